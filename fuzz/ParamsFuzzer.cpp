// The parameter list on arbitrary text: parsing, checking before parsing, every reader, and writing again.

#include "CDSParams.h"
#include "CDSResults.h"
#include "FakeLog.h"
#include "FuzzCheck.h"

#include <cstdlib>
#include <memory>
#include <string>

namespace {

// An element's structure shows in a few bytes; longer inputs only take longer.
constexpr std::size_t cMaxInput = 4096;

struct CFree
{
    void operator()(unsigned char* pData) const { std::free(pData); }
};
using CBytes = std::unique_ptr<unsigned char, CFree>;

/// Calls what may throw the parse failure, and nothing else.
///
/// @return whether it did not throw
template <class TCall> bool parses(const TCall& call)
{
    try
    {
        call();
        return true;
    }
    catch (unsigned long ulCode)
    {
        FUZZ_CHECK(ulCode == 0x80004005UL);
        return false;
    }
}

/// Every reader, on every element and on the indexes beside them.
void readAll(const CParamsX& list)
{
    for (int i = -1; i <= list.count(); ++i)
    {
        const std::string sText = list.getStringParamAt(i);
        FUZZ_CHECK(sText == list.getViewParamAt(i));
        FUZZ_CHECK(sText.size() <= static_cast<std::size_t>(list.length()));

        const long lValue = list.getLongParamAt(i);
        FUZZ_CHECK(lValue >= INT32_MIN && lValue <= INT32_MAX);
        FUZZ_CHECK(list.getULONGParamAt(i) == static_cast<std::uint32_t>(lValue));
        FUZZ_CHECK(list.getBOOLParamAt(i) == (sText == "T"));
        (void)list.getULONGLONGParamAt(i); // any number

        int nSize = -1;
        const CBytes pBytes(list.getCDSDATAParamAt(i, &nSize));
        FUZZ_CHECK(nSize == static_cast<int>(sText.size() / 2));
        FUZZ_CHECK((pBytes == nullptr) == (nSize == 0));

        // Bytes that were read are written, and read again, as they are.
        CParamsX written;
        written.addParam(pBytes.get(), nSize);
        int nAgain = -1;
        const CBytes pAgain(written.getCDSDATAParamAt(0, &nAgain));
        FUZZ_CHECK(nAgain == nSize);
        FUZZ_CHECK(std::string_view(reinterpret_cast<const char*>(pAgain.get()), static_cast<std::size_t>(nAgain)) ==
                   std::string_view(reinterpret_cast<const char*>(pBytes.get()), static_cast<std::size_t>(nSize)));
    }
    const long lResult = list.getHRESULT();
    FUZZ_CHECK(lResult >= INT32_MIN && lResult <= INT32_MAX);
}

/// Elements written into a new list are found in it, and in what its text parses to.
void writeAgain(const CParamsX& list)
{
    CParamsX copy;
    for (int i = 0; i < list.count(); ++i)
        FUZZ_CHECK(copy.addParam(list.getStringParamAt(i), 0.0F) == 0);

    const CParamsX parsed(copy.paramListRef());
    FUZZ_CHECK(copy.count() == list.count() && parsed.count() == list.count());
    for (int i = 0; i < list.count(); ++i)
    {
        FUZZ_CHECK(copy.getViewParamAt(i) == list.getViewParamAt(i));
        FUZZ_CHECK(parsed.getViewParamAt(i) == list.getViewParamAt(i));
    }
    int nErrorPos = -1;
    FUZZ_CHECK(CParamsX::Verify(copy.paramListRef(), static_cast<int>(copy.length()) + 1, &nErrorPos));
    FUZZ_CHECK(nErrorPos == -1);
}

/// A text that was checked can be parsed and appended.
void takeVerified(const std::string& sText)
{
    const CParamsX list(sText);
    FUZZ_CHECK(list.getHeader().empty());
    CParamsX more;
    more.addParam(1L);
    if (!sText.empty())
        more.append(sText);
    FUZZ_CHECK(more.count() == 1 + list.count());
    for (int i = 0; i < list.count(); ++i)
        FUZZ_CHECK(more.getViewParamAt(i + 1) == list.getViewParamAt(i));
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize)
{
    if (uSize > cMaxInput)
        return 0;
    const std::string sText(reinterpret_cast<const char*>(pData), uSize);

    int nErrorPos = -1;
    const bool bVerified = CParamsX::Verify(sText, static_cast<int>(uSize) + 1, &nErrorPos);
    FUZZ_CHECK(bVerified ? nErrorPos == -1 : nErrorPos >= 0 && static_cast<std::size_t>(nErrorPos) <= uSize);
    FUZZ_CHECK(!CParamsX::Verify(sText, static_cast<int>(uSize), &nErrorPos) && nErrorPos == 0);

    const bool bParses = parses([&] {
        const CParamsX list(sText);
        FUZZ_CHECK(list.paramListRef() == sText);
        readAll(list);
        writeAgain(list);
    });
    FUZZ_CHECK(bParses || !bVerified);
    if (bVerified)
        takeVerified(sText);

    const long lResult = CParamsX::getHRESULT(sText);
    FUZZ_CHECK(lResult >= INT32_MIN && lResult <= INT32_MAX);
    (void)parses([&] {
        CParamsX list;
        list.addHeader("HDR");
        list.append(sText);
        readAll(list);
    });
    CFakeLog::clear(); // it keeps every line, for as long as the fuzzer runs
    return 0;
}
