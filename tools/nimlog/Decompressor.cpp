#include "Decompressor.hpp"

#include <support/Errors.hpp>

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <new>
#include <spawn.h>
#include <sys/wait.h>

namespace nimlog {

namespace {

/** The status with which gzip and xz end if the output is complete, but something was noticeable. */
constexpr int STATUS_OF_WARNING = 2;

/** The descriptors of a new process. */
class FileActions
{
public:
    /** @throws Failure if memory runs out */
    FileActions(int input, int output)
    {
        check(posix_spawn_file_actions_init(&actions));
        const int failure = posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
        isWhole = failure == 0 && posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO) == 0;
    }
    ~FileActions()
    {
        posix_spawn_file_actions_destroy(&actions);
    }

    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;

    const posix_spawn_file_actions_t* get() const
    {
        check(isWhole ? 0 : ENOMEM);
        return &actions;
    }

private:
    static void check(int error)
    {
        if (error != 0) {
            throw std::bad_alloc();
        }
    }

    posix_spawn_file_actions_t actions = {};
    bool isWhole = false;
};

}

Decompressor::Decompressor(const char* programName, int compressed, std::string fileName)
    : program(programName), name(std::move(fileName))
{
    std::array<int, 2> ends = {-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) == -1) {
        throw nimtools::cannotRead(name);
    }
    pipe = nimtools::Descriptor(ends[0]);
    const nimtools::Descriptor input(ends[1]);
    const FileActions actions(compressed, input.get());
    std::string word = program;
    std::string option = "-dc";
    const std::array<char*, 3> words = {word.data(), option.data(), nullptr};
    const int error = posix_spawnp(&process, programName, actions.get(), nullptr, words.data(), environ);
    if (error != 0) {
        process = -1;
        if (error == ENOENT) {
            throw nimtools::Failure("cannot read " + name + ": the program " + program + " is not installed");
        }
        errno = error;
        throw nimtools::cannotRead(name + " with " + program);
    }
}

Decompressor::~Decompressor()
{
    if (process != -1) {
        kill(process, SIGKILL);
        wait();
    }
}

void Decompressor::finish()
{
    const int status = wait();
    if (WIFSIGNALED(status)) {
        throw nimtools::Failure("cannot read " + name + ": " + program + " was ended by signal "
                                + std::to_string(WTERMSIG(status)));
    }
    if (WEXITSTATUS(status) != 0 && WEXITSTATUS(status) != STATUS_OF_WARNING) {
        throw nimtools::Failure("cannot read " + name + ": " + program + " failed with status "
                                + std::to_string(WEXITSTATUS(status)));
    }
}

int Decompressor::wait()
{
    int status = 0;
    while (waitpid(process, &status, 0) == -1 && errno == EINTR) {
    }
    process = -1;
    return status;
}

}
