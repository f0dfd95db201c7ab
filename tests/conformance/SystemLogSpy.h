#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

/// Stands in for the system's log: the test program defines syslog(3) itself, so that the support library's calls
/// arrive here.
class CSystemLogSpy
{
public:
    static std::vector<std::pair<int, std::string>> messages();
    static void clear();
    static void add(int nPriority, std::string sText);
};
