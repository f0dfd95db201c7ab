// What the programs of the host have in common.
#include "share/ProgramRun.h"

#include "sip/SipText.h"

#include <exception>
#include <iostream>

int runProgram(CLI::App& app, int argc, char** argv, const std::function<EExit()>& fnRun)
{
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit(error) == 0 ? exit_done : exit_misuse; // help and version are no mistakes
    }
    try
    {
        return fnRun();
    }
    catch (const std::exception& error)
    {
        complainOf(app, error.what());
        return exit_failed;
    }
}

void complainOf(const CLI::App& app, const std::string& sWhy)
{
    std::cerr << app.get_name() << ": " << printable(sWhy) << '\n';
}
