#pragma once

#include "CPEvent.h"

#include <memory>
#include <string>
#include <vector>

/// What the suite needs to know about the implementation that it is linked with: where lines and events end up, how
/// time passes, how a configuration comes to be broken. One implementation for the fakes, one for the support library.
///
/// A world starts out empty and leaves nothing behind.
class CConformanceWorld
{
public:
    struct CStoredEvent
    {
        char cSeverity; ///< 'i', 'w' or 'e'
        std::string sText;
        bool operator==(const CStoredEvent&) const = default;
    };

    CConformanceWorld();
    ~CConformanceWorld();
    CConformanceWorld(const CConformanceWorld&) = delete;
    CConformanceWorld& operator=(const CConformanceWorld&) = delete;

    /// Texts of the lines that the log has stored, in order.
    std::vector<std::string> storedLines(const std::string& sLog);

    /// Operator events reported so far, in order.
    std::vector<CStoredEvent> storedEvents();

    /// The next log cannot be made.
    void refuseLogs();

    /// Waits for the event while the time it takes passes.
    unsigned long waitWhileTimePasses(CPEvent* pEvent, unsigned long ulMs);

    /// Sleeps by CPortable::Sleep while the time it takes passes.
    void sleepWhileTimePasses(unsigned long ulMs);

    /// Forgets everything that a new start of the process would not find again.
    void restartConfiguration();

    /// Makes the configuration such that it cannot be opened.
    void breakConfiguration();

private:
    struct CState;
    std::unique_ptr<CState> m_pState;
};
