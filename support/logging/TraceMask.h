#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

/// The trace mask of a log name. Made once, never moved or destroyed: whoever tests a level reads the word without a
/// lock, also when the log is gone.
///
/// Threads    any.
class CTraceMask
{
public:
    static CTraceMask& of(const std::string& sLogName);

    const std::atomic<std::uint32_t>& word() const noexcept { return m_dwMask; }

    /// The host's choice: holds until the configured mask changes.
    void choose(std::uint32_t dwMask);

    /// The configured mask, when a log is bound and whenever the configuration is read.
    void configure(std::uint32_t dwMask);

    /// The log's binding is gone: what is configured for the next one is no change.
    void unbind();

private:
    std::atomic<std::uint32_t> m_dwMask{0};
    std::mutex m_mtx;
    std::optional<std::uint32_t> m_optConfigured; // guarded by m_mtx
    bool m_bChosen = false;                       // guarded by m_mtx
};
