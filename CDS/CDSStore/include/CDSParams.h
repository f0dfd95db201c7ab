#pragma once

#include "CDSExport.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The one text encoding of the system: an ordered list of text elements, each written as its length in decimal, a
/// semicolon and its characters, joined by semicolons.
///
///     CParamsX list;
///     list.addParam(42L);                      // "2;42"
///     list.addParam(std::string("abc"), 3.14F); // "2;42;3;abc"
///     CParamsX same(list.paramListRef());
///     same.getLongParamAt(0);                  // 42
///
/// Since every element carries its length it may hold any bytes, whole nested lists included. The list knows only
/// texts; the typed operations say how a value becomes one. Integers are 32-bit on every ABI: a wider one is cut to
/// its low 32 bits when written and clamped to the 32-bit range when read.
///
/// Beware of the overloads of addParam: int means a truth value, so that a bool, an enumerator, a plain literal or a
/// 32-bit integer type picks the truth-value form.
///
/// Threads    no lock; one thread builds or reads a list.
/// Errors     adding writes an error line to the trace log and leaves the list as it was when an element is longer
///            than cMaxElement. Parsing throws an unsigned long, the code of E_FAIL, when a length prefix is malformed.
/// Units      positions and lengths are bytes.
class CDS_API CParamsX
{
public:
    /// Longest element, in characters; a blob has half as many bytes.
    static constexpr long cMaxElement = 999995;

    CParamsX() = default;

    /// An empty list with room for lReserve characters; 0 or less reserves nothing.
    explicit CParamsX(long lReserve);

    /// Parses an encoded text; an empty one gives an empty list. The lengths are trusted: whether a semicolon stands
    /// between two elements is not checked. Whoever reads untrusted text calls Verify first.
    explicit CParamsX(const std::string& sParams);

    /// The parse itself: replaces the text, and appends the element positions it finds to those already there.
    void constructor(const std::string& sParams);

    /// Back to an empty list.
    void clear() noexcept;

    int count() const noexcept { return static_cast<int>(m_paramStarts.size()); }
    long length() const noexcept { return static_cast<long>(m_sParamList.size()); }

    std::string paramList() const& { return m_sParamList; }
    /// Of a list that is not needed any more.
    std::string paramList() && { return std::move(m_sParamList); }
    /// Valid until the list changes.
    const std::string& paramListRef() const noexcept { return m_sParamList; }

    /// Writes one error-level trace line per element.
    void dump() const;

    /// Appends the text as it stands.
    ///
    /// @param dummy  never read; it tells this overload from the others
    /// @return 0, or E_FAIL when the text is longer than cMaxElement
    long addParam(const std::string& sParam, float dummy);
    /// Decimal.
    void addParam(long lValue);
    /// The same 32 bits as a signed decimal: 0xC0A80001 is written "-1062731775".
    void addParam(unsigned long ulValue);
    /// "T" for any value but 0, which is "F".
    void addParam(int bValue);
    void addParam(unsigned long long ullValue);
    /// Two upper-case hexadecimal digits a byte; null or a size below 1 gives an empty element.
    void addParam(unsigned char* const& pData, int nSize);
    /// "0x%08X".
    void addResult(long hr);

    /// Replaces the whole text by the header and a semicolon; nothing for an empty header. Meant for an empty list:
    /// positions already recorded stay, and reading those elements may throw the parse failure.
    ///
    /// @param sHeader  begins with no digit and holds no semicolon
    void addHeader(std::string sHeader);

    /// Appends an already encoded sequence of elements without a header. An empty one appends a lone semicolon to a
    /// list that has elements: callers pass none.
    ///
    /// @throws unsigned long  when the sequence is malformed; the list is then unusable until cleared
    void append(const std::string& sParams);

    // Readers. An index that is negative or past the end names an absent element.

    /// The characters; empty when absent.
    std::string getStringParamAt(int nIndex) const;
    /// The same without a copy; valid until the list changes.
    std::string_view getViewParamAt(int nIndex) const;
    /// As strtol with base 10 in 32 bits; 0 when absent.
    long getLongParamAt(int nIndex) const;
    /// As getLongParamAt, the same 32 bits unsigned.
    unsigned long getULONGParamAt(int nIndex) const;
    /// True exactly when the characters are "T".
    bool getBOOLParamAt(int nIndex) const;
    /// As strtoull with base 10; 0 when absent.
    unsigned long long getULONGLONGParamAt(int nIndex) const;
    /// The bytes of a blob, in a new buffer that the caller releases with free.
    ///
    /// @param pnSize  out: the number of bytes, also when the buffer could not be allocated and null is returned
    unsigned char* getCDSDATAParamAt(int nIndex, int* pnSize) const;
    /// The result code in element 0: E_FAIL when there is none or it has not exactly 10 characters, 0 when those are
    /// not "0x" and hexadecimal digits.
    long getHRESULT() const;
    /// The header without its semicolon; empty when there is none.
    std::string getHeader() const;

    /// The length that is written at a position of the text; 0 when no digit stands there.
    ///
    /// @param plPrefixLength  out: characters up to and including the semicolon
    /// @throws unsigned long  when no semicolon follows, or one stands at the position itself
    long getLength(long lPos, long* plPrefixLength) const;

    // On raw texts.

    /// The result code in the first element of a text, read as getHRESULT() does.
    static long getHRESULT(const std::string& sParams);

    /// Whether a received text is a well-formed sequence of elements without header.
    ///
    /// @param nReceived    bytes received, one terminating zero byte included
    /// @param pnErrorPos   out: where the text goes wrong; untouched when it does not
    static bool Verify(const std::string& sParams, int nReceived, int* pnErrorPos);

    /// As getLength, but -1 instead of an exception, and -1 when no digit stands at the position.
    ///
    /// @param pszParams  terminated text of more than lPos characters, or exactly as many
    static long getSafeLength(const char* pszParams, long lPos, long* plPrefixLength) noexcept;

private:
    /// Positions, the first few of which need no memory of their own: most lists have no more.
    class CPositions
    {
    public:
        std::size_t size() const noexcept { return m_uFirst + m_vecMore.size(); }
        bool empty() const noexcept { return m_uFirst == 0; }
        std::int32_t operator[](std::size_t u) const { return u < cFirst ? m_aFirst[u] : m_vecMore[u - cFirst]; }
        void add(std::int32_t lPosition)
        {
            if (m_uFirst < cFirst)
                m_aFirst[m_uFirst++] = lPosition;
            else
                m_vecMore.push_back(lPosition);
        }
        void clear() noexcept
        {
            m_uFirst = 0;
            m_vecMore.clear();
        }

    private:
        static constexpr std::size_t cFirst = 8;

        std::array<std::int32_t, cFirst> m_aFirst{};
        std::uint32_t m_uFirst = 0;
        std::vector<std::int32_t> m_vecMore; // empty until m_aFirst is full
    };

    void walkFrom(long lPos);
    void beginElement(std::size_t uSize);

    std::int32_t m_lHeaderLength = 0; // semicolon included
    std::string m_sParamList;
    CPositions m_paramStarts; // where each element's length prefix begins
};
