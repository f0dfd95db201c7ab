// Bytes and times as databases take them.
#include "cdr/CdrText.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <openssl/evp.h>

namespace {

constexpr std::uint64_t cTicksPerSecond = 10'000'000;
constexpr std::uint64_t cSecondsFrom1601To1970 = 11'644'473'600ULL;
/// PostgreSQL's index takes 2,704 bytes for a row, of which origin and overhead have their part.
constexpr std::size_t cMostOfKey = 1500;
constexpr std::size_t cBeginOfLongKey = 1000;

/// Length of the valid UTF-8 sequence that begins here; 0 when there is none. A zero byte is none.
std::size_t sequenceAt(std::string_view sBytes) noexcept
{
    const auto byteAt = [&](std::size_t u) { return static_cast<unsigned char>(sBytes[u]); };
    const unsigned uFirst = byteAt(0);
    if (uFirst < 0x80)
        return uFirst != 0 ? 1 : 0;
    const std::size_t uLength = uFirst >= 0xF0 ? 4 : uFirst >= 0xE0 ? 3 : 2;
    if (uFirst < 0xC2 || uFirst > 0xF4 || sBytes.size() < uLength)
        return 0;
    // The second byte's range leaves out overlong forms, surrogates, and what is beyond U+10FFFF.
    const unsigned uLeast = uFirst == 0xE0 ? 0xA0 : uFirst == 0xF0 ? 0x90 : 0x80;
    const unsigned uMost = uFirst == 0xED ? 0x9F : uFirst == 0xF4 ? 0x8F : 0xBF;
    if (byteAt(1) < uLeast || byteAt(1) > uMost)
        return 0;
    for (std::size_t u = 2; u < uLength; ++u)
        if ((byteAt(u) & 0xC0U) != 0x80)
            return 0;
    return uLength;
}

std::string digestOf(std::string_view sBytes)
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> aDigest{};
    unsigned uSize = 0;
    if (EVP_Digest(sBytes.data(), sBytes.size(), aDigest.data(), &uSize, EVP_sha256(), nullptr) != 1)
        throw std::bad_alloc(); // nothing else can fail there
    std::string sHex;
    for (unsigned u = 0; u < uSize; ++u)
    {
        char szHex[4] = "";
        (void)std::snprintf(szHex, sizeof szHex, "%02x", static_cast<unsigned>(aDigest[u]));
        sHex += szHex;
    }
    return sHex;
}

} // namespace

bool CdrText::isText(std::string_view sBytes) noexcept
{
    while (!sBytes.empty())
    {
        const std::size_t uLength = sequenceAt(sBytes);
        if (uLength == 0)
            return false;
        sBytes.remove_prefix(uLength);
    }
    return true;
}

std::string CdrText::escaped(std::string_view sBytes)
{
    std::string sEscaped;
    sEscaped.reserve(sBytes.size());
    while (!sBytes.empty())
    {
        const std::size_t uLength = sBytes.front() == '\\' ? 0 : sequenceAt(sBytes);
        if (uLength == 0)
        {
            char szHex[8] = "";
            (void)std::snprintf(szHex, sizeof szHex, "\\x%02X",
                                static_cast<unsigned>(static_cast<unsigned char>(sBytes.front())));
            sEscaped += szHex;
        }
        else
            sEscaped += sBytes.substr(0, uLength);
        sBytes.remove_prefix(uLength == 0 ? 1 : uLength);
    }
    return sEscaped;
}

std::string CdrText::keyOf(std::string_view sBytes)
{
    std::string sKey = escaped(sBytes);
    if (sKey.size() <= cMostOfKey)
        return sKey;
    std::size_t uCut = cBeginOfLongKey;
    while ((static_cast<unsigned char>(sKey[uCut]) & 0xC0U) == 0x80)
        --uCut; // never within a character
    // No escaped name has such an end: its backslashes are followed by an x.
    return sKey.substr(0, uCut) + "\\sha256:" + digestOf(sBytes);
}

std::string CdrText::base64(std::string_view sBytes)
{
    std::string sText((sBytes.size() + 2) / 3 * 4 + 1, '\0'); // it writes a zero byte behind
    const int nLength =
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(sText.data()),
                        reinterpret_cast<const unsigned char*>(sBytes.data()), static_cast<int>(sBytes.size()));
    sText.resize(static_cast<std::size_t>(nLength));
    return sText;
}

std::string CdrText::timeText(std::uint64_t ullFileTime)
{
    const auto when =
        static_cast<std::time_t>(ullFileTime / cTicksPerSecond) - static_cast<std::time_t>(cSecondsFrom1601To1970);
    std::tm parts{};
    (void)gmtime_r(&when, &parts); // the last file time is in the year 60056, which fits
    char szText[80] = "";
    (void)std::snprintf(szText, sizeof szText,
                        parts.tm_year + 1900 > 9999 ? "+%05d-%02d-%02dT%02d:%02d:%02d.%07uZ"
                                                    : "%04d-%02d-%02dT%02d:%02d:%02d.%07uZ",
                        parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min,
                        parts.tm_sec, static_cast<unsigned>(ullFileTime % cTicksPerSecond));
    return szText;
}

std::uint64_t CdrText::now()
{
    using CTicks = std::chrono::duration<std::uint64_t, std::ratio<1, cTicksPerSecond>>;
    const auto since1970 = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<CTicks>(since1970).count() + cSecondsFrom1601To1970 * cTicksPerSecond;
}
