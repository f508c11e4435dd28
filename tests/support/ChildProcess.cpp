#include "ChildProcess.hpp"

#include "Files.hpp"

#include <csignal>
#include <fcntl.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace support {

ChildProcess::ChildProcess(const std::vector<std::string>& command, const std::string& scratch)
    : out(scratch + "/stdout"), err(scratch + "/stderr"), pid(-1)
{
    std::vector<char*> argv;
    for (const std::string& word : command) {
        argv.push_back(const_cast<char*>(word.c_str()));
    }
    argv.push_back(nullptr);
    const pid_t test = getpid();
    pid = fork();
    if (pid == -1) {
        throw std::runtime_error("fork");
    }
    if (pid == 0) {
        // Kills the child with this process: a test that is killed, by its time limit for example, runs no
        // destructor.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != test) {
            kill(getpid(), SIGKILL);
        }
        const int flags = O_WRONLY | O_CREAT | O_TRUNC;
        if (dup2(open(out.c_str(), flags, 0600), 1) == -1 || dup2(open(err.c_str(), flags, 0600), 2) == -1) {
            _exit(125);
        }
        execv(argv[0], argv.data());
        _exit(126);
    }
}

ChildProcess::~ChildProcess()
{
    if (pid != -1) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
}

pid_t ChildProcess::process() const
{
    return pid;
}

void ChildProcess::signal(int number) const
{
    kill(pid, number);
}

int ChildProcess::wait()
{
    int status = 0;
    waitpid(pid, &status, 0);
    pid = -1;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

std::string ChildProcess::output() const
{
    return readFile(out);
}

std::string ChildProcess::errors() const
{
    return readFile(err);
}

}
