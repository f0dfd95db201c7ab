#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

/// The fake log: keeps every line and operator event in memory.
///
/// Lines are recorded whatever the trace mask says, since the mask is the writer's to test. The mask of a log is 0
/// until a CLogFileRegistry brings the number it was given, unless the test sets another.
///
/// Threads    every operation may be called from any thread; lines of one thread keep their order.
class CFakeLog
{
public:
    struct CLine
    {
        std::string sLog;
        std::string sText; ///< formatted; a wide line as UTF-8
        int nPriority = 0;
        bool bWide = false;
        bool bReservedNull = true; ///< the argument before the format was null
        bool bStored = true;       ///< a log that is not traceable drops what it is handed
        std::thread::id idThread{};
        std::vector<std::string> vecLocks{}; ///< held by the thread, while locks are recorded
        std::size_t uLives = 0;              ///< entries of CFakeLives before the line
    };

    struct CEvent
    {
        std::string sLog;
        std::uint32_t dwEventID = 0;
        std::uint16_t wCount = 0;
        std::uint16_t wCategory = 0;
        bool bWide = false;
        bool bStringsNull = false;
        std::vector<std::string> vecStrings; ///< insertion strings; wide ones as UTF-8
        std::vector<std::wstring> vecWide;   ///< wide ones as they came
        const void* pRawData = nullptr;
        bool bSeverity = false; ///< reported through the form with a severity
        int nSeverity = 0;
    };

    struct CLogArguments
    {
        std::string sName;
        bool bSecondNameNull = true;
        bool bAppendOnly = false;
        bool bCreate = false;
        bool bEvents = false;
    };

    struct CRegistryArguments
    {
        std::string sLog; ///< name of the log that is bound
        std::string sKey;
        std::string sSubKey;
        bool bReserved1Null = true;
        bool bReserved2Null = true;
        std::array<unsigned long, 15> arrNumbers{}; ///< from ulDestination to ulReserved4
    };

    // Lines and events, in the order written.
    static std::vector<CLine> lines();
    static std::vector<std::string> texts();
    static std::vector<CEvent> events();
    /// Number of lines that contain the text, or are exactly it.
    static std::size_t countContaining(const std::string& sPart);
    static std::size_t countExactly(const std::string& sText);
    static bool contains(const std::string& sPart);
    /// The first line that contains the text, "" when there is none.
    static std::string find(const std::string& sPart);
    /// Forgets lines and events; everything else stays.
    static void clear();

    /// Sets a log's trace mask, now and against the number of a later CLogFileRegistry; also before the log exists.
    static void setTraceMask(const std::string& sLog, std::uint32_t dwMask);
    static std::uint32_t traceMask(const std::string& sLog);

    /// What IsTraceable answers, for every log. Without this call: by what the CLogFileRegistry was given.
    static void setTraceable(bool bTraceable);
    /// The priorities asked for so far.
    static std::vector<int> traceableQueries();

    /// What the reports return from now on. They are recorded all the same.
    static void setReportResult(long lResult);

    /// The next CLogFile, or CLogFileRegistry, after uSkip good ones, throws KRException(lCode, pszSource, nLine).
    static void failNextCreation(long lCode, std::size_t uSkip = 0, const char* pszSource = "fakes/CLogFile",
                                 int nLine = 1);
    static void failNextRegistry(long lCode, std::size_t uSkip = 0, const char* pszSource = "fakes/CLogFileRegistry",
                                 int nLine = 1);

    // Constructions so far, in order, and what exists now.
    static std::vector<CLogArguments> creations();
    static std::vector<CRegistryArguments> registries();
    static std::size_t alive();
    static std::size_t registriesAlive();

    /// Constructions and destructions in order: "CLogFile OvnCDS", "CLogFileRegistry OvnCDS", "~CLogFileRegistry
    /// OvnCDS", "~CLogFile OvnCDS". Failed constructions are not among them.
    static std::vector<std::string> lifeCycle();

    static void reset();
};
