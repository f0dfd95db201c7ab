#pragma once

#include "CPExport.h"

#include <memory>
#include <string>

namespace KRRegLib {

/// A key of the configuration: a set of named values. Keys nest, their names joined by a backslash ("Orvane\CDS").
///
/// Threads    any thread; every operation sees and leaves the configuration whole.
/// Errors     results are 0 or a negative code; out-arguments are untouched on failure.
class CP_API CRegKey
{
public:
    CRegKey();
    ~CRegKey();
    CRegKey(CRegKey&&) noexcept;
    CRegKey& operator=(CRegKey&&) noexcept;

    /// Opens the sub-key, making it when it is not there.
    ///
    /// @param sName  name, backslashes between levels
    /// @param pKey   out: the key
    long createOrOpenKey(const std::string& sName, CRegKey* pKey);

    /// Reads a number from 0 to 4294967295. Negative when there is no such value or it is not such a number.
    long queryValue(const std::string& sName, unsigned long* pulValue) const;
    /// Reads a text.
    long queryValue(const std::string& sName, std::string* psValue) const;

    /// Writes a value, replacing one of the same name; it is kept for the next start.
    long setValue(const std::string& sName, unsigned long ulValue);
    long setValue(const std::string& sName, const std::string& sValue);

private:
    friend class CRegLib;
    struct CState;
    std::shared_ptr<CState> m_pState;
};

/// The configuration store.
///
/// Threads    as CRegKey.
/// Errors     the constructor throws KRException when the store cannot be opened or read.
class CP_API CRegLib
{
public:
    CRegLib();
    ~CRegLib();
    CRegLib(const CRegLib&) = delete;
    CRegLib& operator=(const CRegLib&) = delete;

    /// The key above all others.
    CRegKey& rootKey() noexcept;

private:
    CRegKey m_keyRoot;
};

} // namespace KRRegLib
