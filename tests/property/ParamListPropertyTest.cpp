#include "CDSParams.h"
#include "ModelGenerators.h"

#include <cstdlib>

using namespace model;

namespace {

using CStrings = std::vector<std::string>;

CParamsX listOf(const CStrings& vecElements)
{
    CParamsX list;
    for (const std::string& sElement : vecElements)
        RC_ASSERT(list.addParam(sElement, 3.14F) == 0);
    return list;
}

CStrings elementsOf(const CParamsX& list)
{
    CStrings vecElements;
    for (int i = 0; i < list.count(); ++i)
        vecElements.push_back(list.getStringParamAt(i));
    return vecElements;
}

bool verified(const std::string& sText)
{
    int nErrorPos = 0;
    return CParamsX::Verify(sText, static_cast<int>(sText.size()) + 1, &nErrorPos);
}

/// Texts that are nearly lists.
rc::Gen<std::string> genNearlyList()
{
    return rc::gen::container<std::string>(rc::gen::element('0', '1', '2', '3', '9', ';', ';', ';', '-', ' ', 'x'));
}

} // namespace

RC_GTEST_PROP(ParamListProperties, ElementsReadBackAsTheyWere, ())
{
    const auto vecElements = *rc::gen::container<CStrings>(genBytes());
    const CParamsX list = listOf(vecElements);
    RC_ASSERT(elementsOf(list) == vecElements);
    RC_ASSERT(elementsOf(CParamsX(list.paramListRef())) == vecElements);
    RC_ASSERT(verified(list.paramListRef()));
}

RC_GTEST_PROP(ParamListProperties, AHeaderComesBackToo, ())
{
    const auto vecElements = *rc::gen::container<CStrings>(genBytes());
    const auto sHeader = *rc::gen::suchThat(genBytes(), [](const std::string& s) {
        return !s.empty() && s.find(';') == std::string::npos && (s[0] < '0' || s[0] > '9');
    });
    CParamsX list;
    list.addHeader(sHeader);
    list.append(listOf(vecElements).paramListRef());
    const CParamsX read(list.paramListRef());
    RC_ASSERT(read.getHeader() == sHeader);
    RC_ASSERT(elementsOf(read) == vecElements);
    RC_ASSERT(!verified(list.paramListRef()));
}

RC_GTEST_PROP(ParamListProperties, TypedValuesReadBackAsTheyWere,
              (std::int32_t lSigned, std::uint32_t dwUnsigned, unsigned long long ullWide, bool bFlag,
               std::int32_t lResult))
{
    const auto sBytes = *genBytes();
    const CValue blob(sBytes);
    CParamsX list;
    list.addResult(lResult);
    list.addParam(static_cast<long>(lSigned));
    list.addParam(static_cast<unsigned long>(dwUnsigned));
    list.addParam(ullWide);
    list.addParam(bFlag ? 1 : 0);
    list.addParam(blob.data(), blob.length());

    const CParamsX read(list.paramListRef());
    RC_ASSERT(read.getHRESULT() == lResult);
    RC_ASSERT(CParamsX::getHRESULT(list.paramListRef()) == lResult);
    RC_ASSERT(read.getLongParamAt(1) == lSigned);
    RC_ASSERT(read.getULONGParamAt(2) == dwUnsigned);
    RC_ASSERT(read.getULONGLONGParamAt(3) == ullWide);
    RC_ASSERT(read.getBOOLParamAt(4) == bFlag);
    int nSize = -1;
    unsigned char* const pData = read.getCDSDATAParamAt(5, &nSize);
    const std::string sRead = textOf(pData, nSize);
    std::free(pData);
    RC_ASSERT(sRead == sBytes);
}

RC_GTEST_PROP(ParamListProperties, AppendingJoins, ())
{
    auto vecElements = *rc::gen::container<CStrings>(genBytes());
    const auto vecMore = *rc::gen::nonEmpty(rc::gen::container<CStrings>(genBytes()));
    CParamsX list = listOf(vecElements);
    list.append(listOf(vecMore).paramListRef());
    vecElements.insert(vecElements.end(), vecMore.begin(), vecMore.end());
    RC_ASSERT(list.paramListRef() == listOf(vecElements).paramListRef());
    RC_ASSERT(elementsOf(list) == vecElements);
}

RC_GTEST_PROP(ParamListProperties, NestedListsReadBackAsTheyWere, ())
{
    const auto vecLists = *rc::gen::container<std::vector<CStrings>>(rc::gen::container<CStrings>(genBytes()));
    CStrings vecTexts;
    for (const CStrings& vecElements : vecLists)
        vecTexts.push_back(listOf(vecElements).paramList());
    const CParamsX read(listOf(vecTexts).paramListRef());
    RC_ASSERT(read.count() == static_cast<int>(vecLists.size()));
    for (std::size_t i = 0; i < vecLists.size(); ++i)
        RC_ASSERT(elementsOf(CParamsX(read.getStringParamAt(static_cast<int>(i)))) == vecLists[i]);
}

RC_GTEST_PROP(ParamListProperties, AVerifiedTextParses, ())
{
    const auto sText = *genNearlyList();
    const bool bVerified = verified(sText);
    RC_CLASSIFY(bVerified && !sText.empty(), "well formed");
    const unsigned long ulThrown = thrownBy([&] {
        const CParamsX list(sText);
        RC_ASSERT(list.paramListRef() == sText);
        for (const std::string& sElement : elementsOf(list))
            RC_ASSERT(sElement.size() <= sText.size());
    });
    RC_ASSERT(ulThrown == 0 || ulThrown == cParseFailure);
    RC_ASSERT(!bVerified || ulThrown == 0);
}

RC_GTEST_PROP(ParamListProperties, BothWaysToMeasureAnElementAgree, ())
{
    const auto sText = *genNearlyList();
    const auto nPos = *rc::gen::inRange<int>(0, static_cast<int>(sText.size()) + 1);
    CParamsX list;
    RC_PRE(thrownBy([&] { list.constructor(sText); }) == 0);
    long lSafePrefix = 0;
    const long lSafe = CParamsX::getSafeLength(sText.c_str(), nPos, &lSafePrefix);
    RC_PRE(lSafe >= 0);
    long lPrefix = 0;
    RC_ASSERT(list.getLength(nPos, &lPrefix) == lSafe);
    RC_ASSERT(lPrefix == lSafePrefix);
}
