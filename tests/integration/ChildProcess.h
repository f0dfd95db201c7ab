#pragma once

#include <cstdio>
#include <stdexcept>
#include <string>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

/// A program that a test started, and whose standard output it reads. Killed when the test lets it go.
class CChildProcess
{
public:
    CChildProcess(const std::string& sProgram, const std::string& sArgument)
    {
        int nPipe[2];
        if (pipe(nPipe) != 0)
            throw std::runtime_error("no pipe");
        m_pid = fork();
        if (m_pid == 0)
        {
            (void)dup2(nPipe[1], STDOUT_FILENO); // a failure shows in an output that never comes
            close(nPipe[0]);
            close(nPipe[1]);
            execl(sProgram.c_str(), sProgram.c_str(), sArgument.c_str(), nullptr);
            _exit(127);
        }
        close(nPipe[1]);
        m_pOutput = fdopen(nPipe[0], "r");
        if (m_pid < 0 || m_pOutput == nullptr)
            throw std::runtime_error("cannot start " + sProgram);
    }
    ~CChildProcess()
    {
        kill();
        std::fclose(m_pOutput);
    }
    CChildProcess(const CChildProcess&) = delete;
    CChildProcess& operator=(const CChildProcess&) = delete;

    /// The next number that the program prints; -1 when it has ended.
    int readNumber()
    {
        int nNumber = 0;
        return std::fscanf(m_pOutput, "%d", &nNumber) == 1 ? nNumber : -1;
    }

    /// Ends it at once, without a chance to tidy up.
    void kill()
    {
        if (m_pid <= 0)
            return;
        ::kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
        m_pid = 0;
    }

private:
    pid_t m_pid = 0;
    std::FILE* m_pOutput = nullptr;
};
