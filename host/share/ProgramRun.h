#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

/// How every program of the host ends.
enum EExit : int
{
    exit_done = 0,
    exit_failed = 1, ///< refused or failed
    exit_misuse = 2
};

/// Reads the command line, does the work, and says on standard error what an exception was about.
///
/// @param app    has the program's name and options
/// @param fnRun  the work
/// @return exit status
[[nodiscard]] int runProgram(CLI::App& app, int argc, char** argv, const std::function<EExit()>& fnRun);

/// Says on standard error why a program cannot do what it was asked for, with nothing in it that a terminal would obey.
void complainOf(const CLI::App& app, const std::string& sWhy);
