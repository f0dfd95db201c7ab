#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

/// The fake configuration: a map of keys to values, which outlives every CRegLib.
///
/// Keys are named by their full path from the root, levels joined by a backslash.
///
/// Threads    every operation may be called from any thread.
class CFakeConfiguration
{
public:
    /// Puts a value there, making its key.
    static void setNumber(const std::string& sKey, const std::string& sName, unsigned long ulValue);
    static void setText(const std::string& sKey, const std::string& sName, const std::string& sValue);

    /// What is there.
    static std::optional<unsigned long> number(const std::string& sKey, const std::string& sName);
    static std::optional<std::string> text(const std::string& sKey, const std::string& sName);
    static bool hasKey(const std::string& sKey);

    /// Every operation by the code under test, in order, as "open", "key <path>", "query <path>\<name>" and
    /// "set <path>\<name>".
    static std::vector<std::string> operations();

    /// CRegLib's constructor throws KRException(lCode, pszSource, nLine), once.
    static void failNextOpen(long lCode, const char* pszSource = "fakes/CRegLib", int nLine = 1);

    /// Operations fail with these results from now on; 0: they do not.
    static void failKeys(long lResult);
    static void failQueries(long lResult);
    static void failWrites(long lResult);

    static void reset();
};
