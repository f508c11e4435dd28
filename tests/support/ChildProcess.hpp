#ifndef DALNIM_TESTS_SUPPORT_CHILDPROCESS_HPP
#define DALNIM_TESTS_SUPPORT_CHILDPROCESS_HPP

#include <string>
#include <sys/types.h>
#include <vector>

namespace support {

/**
 * A program that a test runs. Its two outputs are stored in files in the test's temporary directory. It is
 * killed when the thread that created this object ends, even if by a signal.
 */
class ChildProcess
{
public:
    ChildProcess(const std::vector<std::string>& command, const std::string& scratch);
    /** Kills the program if it still runs. */
    ~ChildProcess();

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t process() const;
    void signal(int number) const;
    /** Waits for the end. Returns the exit status, or 128 + the signal that ended the program. */
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
