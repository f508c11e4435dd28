#ifndef DALNIM_TESTS_SUPPORT_CHILDPROCESS_HPP
#define DALNIM_TESTS_SUPPORT_CHILDPROCESS_HPP

#include <string>
#include <sys/types.h>
#include <vector>

namespace support {

/**
 * A program that a test runs, with its two outputs in files of the test's scratch folder. It is killed when
 * the thread that made this object ends, also by a signal.
 */
class ChildProcess
{
public:
    ChildProcess(const std::vector<std::string>& command, const std::string& scratch);
    /** Kills what still runs. */
    ~ChildProcess();

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t process() const;
    void signal(int number) const;
    /** Waits for the end; the exit status, or 128 and the signal that ended it. */
    int wait();
    std::string output() const;
    std::string errors() const;

private:
    std::string out;
    std::string err;
    pid_t pid;
};

}

#endif
