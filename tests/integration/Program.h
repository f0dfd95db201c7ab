#pragma once

#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <stdexcept>
#include <string>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

/// A program that a test talks to through its standard input and output. Killed when the test lets it go.
class CProgram
{
public:
    /// @param nNetwork  descriptor of the network namespace that it runs in; negative: this process's
    explicit CProgram(std::vector<std::string> vecCommand, int nNetwork = -1)
    {
        int nInput[2];
        int nOutput[2];
        if (pipe2(nInput, O_CLOEXEC) != 0 || pipe2(nOutput, O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        std::vector<char*> vecArguments;
        for (std::string& sArgument : vecCommand)
            vecArguments.push_back(sArgument.data());
        vecArguments.push_back(nullptr);
        m_pid = fork();
        if (m_pid == 0)
        {
            (void)dup2(nInput[0], STDIN_FILENO); // a failure shows in an output that never comes
            (void)dup2(nOutput[1], STDOUT_FILENO);
            if (nNetwork >= 0 && setns(nNetwork, CLONE_NEWNET) != 0)
                _exit(126);
            execv(vecArguments[0], vecArguments.data());
            _exit(127);
        }
        close(nInput[0]);
        close(nOutput[1]);
        m_pInput = fdopen(nInput[1], "w");
        m_pOutput = fdopen(nOutput[0], "r");
        if (m_pid < 0 || m_pInput == nullptr || m_pOutput == nullptr)
            throw std::runtime_error("cannot start " + vecCommand[0]);
    }
    ~CProgram()
    {
        kill();
        closeInput();
        std::fclose(m_pOutput);
    }
    CProgram(const CProgram&) = delete;
    CProgram& operator=(const CProgram&) = delete;

    /// 0 when it has ended and was waited for.
    pid_t pid() const { return m_pid; }

    void writeLine(const std::string& sLine)
    {
        std::fputs((sLine + '\n').c_str(), m_pInput);
        std::fflush(m_pInput);
    }
    void closeInput()
    {
        if (m_pInput != nullptr)
            std::fclose(m_pInput);
        m_pInput = nullptr;
    }

    /// @return false at the end of the output
    bool readLine(std::string* psLine)
    {
        psLine->clear();
        for (int c = std::fgetc(m_pOutput); c != EOF; c = std::fgetc(m_pOutput))
        {
            if (c == '\n')
                return true;
            *psLine += static_cast<char>(c);
        }
        return false;
    }
    std::string readRest()
    {
        std::string sRest;
        for (std::string sLine; readLine(&sLine);)
            sRest += sLine + '\n';
        return sRest;
    }

    /// Waits for its end.
    ///
    /// @return exit status; -1 when a signal ended it
    int exitStatus()
    {
        int nStatus = 0;
        if (m_pid <= 0 || waitpid(m_pid, &nStatus, 0) != m_pid)
            return -1;
        m_pid = 0;
        return WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -1;
    }

    /// Asks it to end in order.
    void terminate() const
    {
        if (m_pid > 0)
            ::kill(m_pid, SIGTERM);
    }

    /// @return false when it has not ended in time
    bool awaitEnd(std::chrono::milliseconds limit) const
    {
        const int nProcess = static_cast<int>(syscall(SYS_pidfd_open, m_pid, 0));
        pollfd end{nProcess, POLLIN, 0};
        const bool bEnded = nProcess >= 0 && poll(&end, 1, static_cast<int>(limit.count())) == 1;
        close(nProcess);
        return bEnded;
    }

    /// Stops it as it is: it neither reads nor answers. Returns when it stands still.
    void freeze()
    {
        ::kill(m_pid, SIGSTOP);
        waitpid(m_pid, nullptr, WUNTRACED);
    }
    void thaw() { ::kill(m_pid, SIGCONT); }

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
    std::FILE* m_pInput = nullptr;
    std::FILE* m_pOutput = nullptr;
};
