#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// A SIP or tel URI.
struct CSipUri
{
    std::string sText;   ///< as it stood in the message, without brackets
    std::string sScheme; ///< lower case
    std::string sUser;   ///< decoded, without parameters; of a tel URI the number
    std::string sHost;   ///< with ":port" where one is given

    bool empty() const noexcept { return sText.empty(); }
    /// Who it names: the user, or the host when it names a machine.
    const std::string& identity() const noexcept { return sUser.empty() ? sHost : sUser; }
};

/// An address header field.
struct CSipAddress
{
    std::string sName; ///< display name, unquoted and unescaped
    CSipUri uri;
    std::string sTag;
    /// Why a call was sent on: the cause of a Reason that is part of a History-Info URI, or that a Diversion's reason
    /// stands for; 0 when none is given.
    int nCause = 0;
};

/// A Reason header field.
struct CSipReason
{
    std::string sProtocol; ///< "SIP", "Q.850"
    int nCause = 0;
    std::string sText;
};

/// A SIP message, as far as call data is made of it. Texts are as sent: not yet checked for valid UTF-8.
struct CSipMessage
{
    bool isRequest() const noexcept { return nCode == 0; }

    int nCode = 0;       ///< of a response, 100 to 699; 0: a request
    std::string sReason; ///< of a response
    std::string sMethod; ///< of a request; of a response that of its CSeq
    CSipUri requestUri;

    std::string sCallID;
    std::uint32_t dwCSeq = 0;
    std::string sBranch; ///< of the top Via; empty when there is none
    CSipAddress from;
    CSipAddress to; ///< empty when the message has none

    std::vector<CSipAddress> vecAsserted; ///< P-Asserted-Identity
    std::vector<CSipAddress> vecContacts;
    std::vector<CSipAddress> vecDiversion; ///< the latest first
    std::vector<CSipAddress> vecHistory;   ///< History-Info, the earliest first
    std::vector<CSipReason> vecReasons;
    CSipUri referTo;
    std::string sReplacesCallID;        ///< of the Replaces header field
    bool bReliable = false;             ///< a provisional response that is acknowledged
    std::uint32_t dwRSeq = 0;           ///< its number; 0 when not given
    std::uint32_t dwSessionExpires = 0; ///< seconds; 0 when not given
    std::string sSdp;                   ///< the session description in its body
};
