#pragma once

/// Why a callback message was sent. The values travel between servers.
enum CDSCALLBACKREASON : int
{
    ccbr_calldata = 1,     ///< new or changed data of a call; the payload is a CCallData
    ccbr_registration = 2, ///< a registration or unregistration; the payload is a CRegistrationData
    ccbr_cdrcalldata = 3   ///< call data for call detail records; the payload is a CCallData
};
