// Runs processes that log, for a number of seconds, under the disturbances that servers meet, and then
// searches for each record whose statement returned. A round is determined by its number and the seed,
// DALNIM_TORTURE_SEED. Ends with 1 if a record is lost, torn or glued to another one, or if a process hangs.

#include "Findings.hpp"

#include <support/Files.hpp>
#include <support/OwnDisk.hpp>
#include <support/Sanitizers.hpp>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace torture;
typedef std::chrono::steady_clock Clock;
using std::chrono::microseconds;

constexpr uid_t NOBODY = 65534;
constexpr char DISK_SIZE[] = "size=32m";
/**
 * Maximum number of bytes in all records of a round. Leaves space on the disk for reports and other files.
 */
constexpr std::size_t MOST_BYTES = 20 * 1024 * 1024;
/** The descriptor through which a worker maps the memory of the round. */
constexpr int ROUND_DESCRIPTOR = 100;
constexpr int PIPE_SIZE = 4096;
/** Maximum length of a short record, in bytes. */
constexpr std::size_t SHORT_RECORD = 300;
const Clock::duration HUNG = std::chrono::seconds(HUNG_SECONDS);

void require(bool holds, const char* what)
{
    if (!holds) {
        throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
    }
}

/** Random numbers determined by a seed. */
class Random
{
public:
    explicit Random(std::uint64_t seed) : engine(seed) {}

    std::size_t between(std::size_t least, std::size_t most)
    {
        return std::uniform_int_distribution<std::size_t>(least, most)(engine);
    }
    bool isOneOf(std::size_t number)
    {
        return between(1, number) == 1;
    }
    microseconds upTo(microseconds longest)
    {
        return microseconds(between(0, static_cast<std::size_t>(longest.count())));
    }

private:
    std::mt19937_64 engine;
};

Scenario makeScenario(std::uint64_t seed, bool hasDisk)
{
    Random random(seed);
    Scenario scenario = {};
    scenario.seed = seed;
    scenario.lives = static_cast<unsigned int>(random.between(1, MAX_LIVES));
    scenario.threads = static_cast<unsigned int>(random.between(1, MAX_THREADS));
    scenario.atATime = random.isOneOf(6);
    scenario.ownLogger = random.isOneOf(2);
    scenario.localTime = random.isOneOf(3);
    scenario.signals = random.isOneOf(2);
    scenario.reopens = random.isOneOf(4);
    scenario.fallback = random.isOneOf(2);
    scenario.shortest = 40;
    // Records of several pages are truncated if their process is killed or the disk is full.
    scenario.longest = random.isOneOf(2) ? SHORT_RECORD : random.isOneOf(2) ? 3 * 4096 : 32 * 4096;
    if (random.isOneOf(3)) {
        scenario.children = static_cast<unsigned int>(random.between(1, MAX_CHILDREN));
    }
    switch (random.between(0, 2)) {
    case 0:
        break;
    case 1:
        scenario.maxFileSize = random.between(10, 60) * 1000;
        break;
    default:
        scenario.maxFileSize = random.between(1, 20) * 1000;
        scenario.maxNumberOfFiles = random.between(1, 12);
    }
    const bool hasTrouble = random.isOneOf(2);
    scenario.errorOutput = static_cast<ErrorOutput>(random.between(0, hasTrouble ? 3 : 5));
    if (hasTrouble && hasDisk) {
        // Records are then written to standard error, which has a reader.
        (random.isOneOf(3) ? scenario.directoryCloses : scenario.diskFills) = true;
    }
    if (scenario.children != 0 && hasTrouble && scenario.errorOutput != ErrorOutput::FILE) {
        // In a pipe, only writes of at most PIPE_BUF bytes do not interleave with those of other processes.
        scenario.longest = SHORT_RECORD;
    }
    if (scenario.longest > SHORT_RECORD && scenario.maxNumberOfFiles == 0) {
        // Limits the number of files, which each rotation shifts.
        scenario.maxFileSize *= scenario.longest / 1000;
    }
    if (scenario.atATime) {
        // Processes that share a file do not rotate it, and do not notice each other's truncated records. The
        // kernel copies page by page: a record is not truncated if its length, with " : " and a newline,
        // divides a page.
        scenario.lives = std::min(scenario.lives, 3U);
        scenario.maxFileSize = scenario.maxNumberOfFiles = 0;
        scenario.ownLogger = true;
        scenario.localTime = false;
        scenario.children = 0;
        scenario.shortest = scenario.longest = (std::size_t(64) << random.between(0, 2)) - 4;
    }
    if (support::UNDER_ADDRESS_SANITIZER && scenario.children != 0) {
        scenario.threads = 1;
    }
    const std::size_t share = MOST_BYTES / (scenario.lives * scenario.threads);
    const std::size_t bytesOfChildren = scenario.children * CHILD_RECORDS * scenario.longest / 2;
    scenario.records = THREAD_RECORDS;
    if (share < THREAD_RECORDS * scenario.longest) {
        scenario.children = bytesOfChildren < share / 2 ? scenario.children : 0;
        scenario.records = static_cast<unsigned int>(share / scenario.longest);
    }
    return scenario;
}

std::string describe(const Scenario& scenario)
{
    std::string text =
        "seed " + std::to_string(scenario.seed) + ": " + std::to_string(scenario.lives)
        + (scenario.atATime ? " processes at a time, " : " processes in turn, ")
        + std::to_string(scenario.threads) + " threads, " + std::to_string(scenario.children)
        + " children each, records of " + std::to_string(scenario.shortest) + " to "
        + std::to_string(scenario.longest) + ", files of " + std::to_string(scenario.maxFileSize)
        + ", at most " + std::to_string(scenario.maxNumberOfFiles)
        + ", standard error: " + ERROR_OUTPUT_NAMES[static_cast<std::size_t>(scenario.errorOutput)];
    const auto add = [&text](bool applies, const char* name) {
        if (applies) {
            text.append(", ").append(name);
        }
    };
    add(scenario.ownLogger, "own logger");
    add(scenario.localTime, "local time");
    add(scenario.diskFills, "disk fills");
    add(scenario.directoryCloses, "directory closes");
    add(scenario.signals, "signals");
    add(scenario.reopens, "reopens");
    add(scenario.fallback, "fallback");
    return text;
}

/** The memory of a round, which processes map through a descriptor. */
class SharedRound
{
public:
    SharedRound() : descriptor(::memfd_create("round", 0))
    {
        require(descriptor != -1 && ::ftruncate(descriptor, sizeof(Round)) == 0, "memfd_create");
        round = map(descriptor);
        ::new (round) Round();
    }
    ~SharedRound()
    {
        ::munmap(round, sizeof(Round));
        ::close(descriptor);
    }
    SharedRound(const SharedRound&) = delete;
    SharedRound& operator=(const SharedRound&) = delete;

    static Round* map(int memory)
    {
        void* const mapped = ::mmap(nullptr, sizeof(Round), PROT_READ | PROT_WRITE, MAP_SHARED, memory, 0);
        require(mapped != MAP_FAILED, "mmap");
        return static_cast<Round*>(mapped);
    }

    const int descriptor;
    Round* round;
};

/** The standard error of one process and its children. */
class StandardError
{
public:
    StandardError(ErrorOutput kind, const std::string& captured, std::uint64_t seed)
        : output(kind), file(captured), random(seed)
    {
        if (output == ErrorOutput::FILE) {
            writer = ::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
            require(writer != -1, "open");
        } else if (output != ErrorOutput::CLOSED) {
            openPipe();
        }
    }
    ~StandardError()
    {
        closeWriter();
        finish();
        if (reader != -1) {
            ::close(reader);
        }
    }
    StandardError(const StandardError&) = delete;
    StandardError& operator=(const StandardError&) = delete;

    /** Returns the descriptor for the process; -1 if its standard error is closed. */
    int descriptor() const
    {
        return writer;
    }
    void closeWriter()
    {
        if (writer != -1) {
            ::close(writer);
            writer = -1;
        }
    }
    /** Returns the bytes that were written. All processes must have ended. */
    std::string finish()
    {
        if (thread.joinable()) {
            thread.join();
        }
        return output == ErrorOutput::FILE ? support::readFile(file) : text;
    }

private:
    void openPipe()
    {
        int ends[2];
        require(::pipe2(ends, O_CLOEXEC) == 0, "pipe2");
        reader = ends[0];
        writer = ends[1];
        if (output != ErrorOutput::PIPE) {
            ::fcntl(writer, F_SETPIPE_SZ, PIPE_SIZE);
        }
        if (output == ErrorOutput::NON_BLOCKING_PIPE || output == ErrorOutput::FULL_PIPE) {
            ::fcntl(writer, F_SETFL, O_NONBLOCK);
        }
        if (output == ErrorOutput::FULL_PIPE) {
            while (::write(writer, "\n", 1) == 1) {
            }
        } else {
            thread = std::thread([this] { read(); });
        }
    }

    void read()
    {
        char block[PIPE_SIZE];
        for (;;) {
            const ssize_t length = ::read(reader, block, sizeof(block));
            if (length > 0) {
                text.append(block, static_cast<std::size_t>(length));
            } else if (length == 0 || errno != EINTR) {
                return;
            }
            if (output == ErrorOutput::SLOW_PIPE && random.isOneOf(200)) {
                std::this_thread::sleep_for(random.upTo(microseconds(50000)));
            }
        }
    }

    const ErrorOutput output;
    const std::string file;
    Random random;
    int reader = -1;
    int writer = -1;
    std::string text;
    std::thread thread;
};

/** Fills and frees the disk, or closes and opens the directory, until the object is destroyed. */
class Disturbance
{
public:
    Disturbance(const Scenario& scenario, std::string log_directory)
        : directory(std::move(log_directory)), random(scenario.seed + 1)
    {
        if (scenario.diskFills) {
            thread = std::thread([this] { disturb([this] { fillDisk(); }, [this] { freeDisk(); }); });
        } else if (scenario.directoryCloses) {
            thread = std::thread([this] {
                static constexpr mode_t modes[] = {0, 0100, 0300, 0500};
                disturb([this] { ::chmod(directory.c_str(), modes[random.between(0, 3)]); },
                        [this] { ::chmod(directory.c_str(), 0700); });
            });
        }
    }
    ~Disturbance()
    {
        isEnding = true;
        if (thread.joinable()) {
            thread.join();
        }
    }
    Disturbance(const Disturbance&) = delete;
    Disturbance& operator=(const Disturbance&) = delete;

private:
    template <class Begin, class End>
    void disturb(Begin begin, End end)
    {
        while (!isEnding) {
            begin();
            std::this_thread::sleep_for(random.upTo(microseconds(8000)));
            end();
            std::this_thread::sleep_for(random.upTo(microseconds(8000)));
        }
    }

    /** Allocates all blocks of the disk. */
    void fillDisk()
    {
        const int descriptor = ::open(ballast().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        struct statvfs disk;
        off_t size = 0;
        for (int i = 0; i < 100 && ::fstatvfs(descriptor, &disk) == 0 && disk.f_bavail != 0; ++i) {
            // Other processes may have allocated some blocks in between.
            const auto left = static_cast<off_t>(disk.f_bavail * disk.f_frsize);
            if (::fallocate(descriptor, 0, size, left) == 0) {
                size += left;
            }
        }
        ::close(descriptor);
    }
    void freeDisk() const
    {
        ::unlink(ballast().c_str());
    }
    std::string ballast() const
    {
        return directory + "/ballast";
    }

    const std::string directory;
    Random random;
    std::atomic<bool> isEnding{false};
    std::thread thread;
};

/** Starts this program as a worker. The child calls only functions that are safe between fork and exec. */
pid_t startWorker(int memory, const StandardError& errors, const std::string& life)
{
    std::string program = "/proc/self/exe";
    std::string option = "--worker";
    std::string number = life;
    char* const arguments[] = {program.data(), option.data(), number.data(), nullptr};
    const int errorDescriptor = errors.descriptor();
    const pid_t child = ::fork();
    if (child == 0) {
        ::setpgid(0, 0);
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::dup2(memory, ROUND_DESCRIPTOR);
        if (errorDescriptor == -1) {
            ::close(STDERR_FILENO);
        } else {
            ::dup2(errorDescriptor, STDERR_FILENO);
        }
        ::execv(arguments[0], arguments);
        ::_exit(127);
    }
    require(child != -1, "fork");
    return child;
}

class Torture
{
public:
    Torture() : hasDisk(support::mountOwnDisk(scratch.path(), DISK_SIZE))
    {
        // Children of workers that were killed become children of this process.
        require(::prctl(PR_SET_CHILD_SUBREAPER, 1) == 0, "prctl");
    }

    bool ownsDisk() const
    {
        return hasDisk;
    }

    /** Runs one round. Returns its figures, and stores a description of the bad records in `report`. */
    Figures run(std::uint64_t seed, std::string& report)
    {
        Figures figures;
        Random random(seed + 2);
        const support::ScratchFolder captured;
        const std::string directory = scratch.file("log");
        std::filesystem::create_directory(directory);
        ::new (shared.round) Round();
        Round& round = *shared.round;
        round.scenario = makeScenario(seed, hasDisk);
        const Scenario& scenario = round.scenario;
        std::snprintf(round.path.data(), round.path.size(), "%s/torture.log", directory.c_str());
        if (scenario.directoryCloses) {
            require(::chown(directory.c_str(), NOBODY, NOBODY) == 0, "chown");
            ::chmod(scratch.path().c_str(), 0755);
        }

        std::vector<std::unique_ptr<StandardError>> errors;
        {
            const Disturbance disturbance(scenario, directory);
            std::vector<pid_t> workers;
            for (unsigned int life = 0; life < scenario.lives; ++life) {
                const std::string number = std::to_string(life);
                errors.push_back(std::make_unique<StandardError>(scenario.errorOutput, captured.file(number),
                                                                 seed + 3 + life));
                workers.push_back(startWorker(shared.descriptor, *errors.back(), number));
                errors.back()->closeWriter();
                if (!scenario.atATime) {
                    end(workers.back(), life, random, figures);
                    figures.gaps += hasGap(directory) ? 1 : 0;
                }
            }
            for (unsigned int life = 0; scenario.atATime && life < scenario.lives; ++life) {
                end(workers[life], life, random, figures);
            }
            awaitOrphans(workers, figures);
        }

        Findings findings(round);
        for (const auto& entry : std::filesystem::directory_iterator(directory)) {
            findings.read(support::readFile(entry.path()), true);
        }
        std::string output;
        for (const auto& error : errors) {
            const std::string text = error->finish();
            findings.read(text, false);
            output += text;
        }
        findings.judge(figures, report);
        figures.hung += round.hung;
        figures.kills += round.childKills;
        for (const auto& forks : round.forks) {
            figures.forks += forks;
        }
        if (!figures.isClean()) {
            report = describe(scenario) + '\n' + report + "standard error ended with:\n"
                     + output.substr(output.size() > 2000 ? output.size() - 2000 : 0) + '\n';
            keep(directory, seed);
        }
        std::filesystem::remove_all(directory);
        return figures;
    }

private:
    /** Kills a worker at a random moment, or lets it finish. */
    void end(pid_t worker, unsigned int life, Random& random, Figures& figures)
    {
        Round& round = *shared.round;
        const bool kills = !random.isOneOf(3);
        const microseconds patience =
            random.upTo(random.isOneOf(2) ? microseconds(3000) : microseconds(40000));
        const auto hasBegun = [&] { return round.begun[life] != 0; };
        if (!awaitEnd(worker, figures, hasBegun)) {
            if (kills) {
                std::this_thread::sleep_for(patience);
                ::kill(worker, SIGKILL);
                ++figures.kills;
            }
            if (awaitEnd(worker, figures, [] { return false; })) {
                return;
            }
            ++figures.hung;
            ::kill(-worker, SIGKILL);
            ::waitpid(worker, nullptr, 0);
        }
    }

    /**
     * Waits until a worker has ended. It must have finished or been killed; otherwise `figures.wrong` is
     * incremented. Returns false if `isEnough` returns true first, or if the worker counts as hung.
     */
    template <class Predicate>
    static bool awaitEnd(pid_t worker, Figures& figures, Predicate isEnough)
    {
        const Clock::time_point end = Clock::now() + HUNG;
        while (Clock::now() < end && !isEnough()) {
            int status = 0;
            if (::waitpid(worker, &status, WNOHANG) != 0) {
                const bool isKilled = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
                figures.wrong += isKilled || status == 0 ? 0 : 1;
                return true;
            }
            std::this_thread::sleep_for(microseconds(200));
        }
        return false;
    }

    /** Waits for the children of workers that were killed. Each is in the process group of its parent. */
    static void awaitOrphans(const std::vector<pid_t>& workers, Figures& figures)
    {
        const Clock::time_point end = Clock::now() + HUNG;
        bool isLate = false;
        pid_t ended = 0;
        while ((ended = ::waitpid(-1, nullptr, WNOHANG)) != -1 || errno == EINTR) {
            if (!isLate && Clock::now() > end) {
                isLate = true;
                ++figures.hung;
                for (const pid_t worker : workers) {
                    ::kill(-worker, SIGKILL);
                }
            }
            if (ended == 0) {
                std::this_thread::sleep_for(microseconds(200));
            }
        }
    }

    static bool hasGap(const std::string& directory)
    {
        std::size_t count = 0;
        std::size_t most = 0;
        for (const auto& entry : std::filesystem::directory_iterator(directory)) {
            const std::string extension = entry.path().extension();
            if (extension != ".log" && extension.size() > 1) {
                ++count;
                most = std::max(most, std::stoul(extension.substr(1)) + 1);
            }
        }
        return most > count;
    }

    /** Copies the files of a failed round to the directory DALNIM_TORTURE_KEEP, if that is set. */
    static void keep(const std::string& directory, std::uint64_t seed)
    {
        if (const char* const target = std::getenv("DALNIM_TORTURE_KEEP")) {
            std::filesystem::copy(directory, std::string(target) + "/" + std::to_string(seed),
                                  std::filesystem::copy_options::recursive);
        }
    }

    const support::ScratchFolder scratch;
    const bool hasDisk;
    const SharedRound shared;
};

/** Returns the number in an environment variable, or `other` if it is not set. */
std::uint64_t numberFrom(const char* variable, std::uint64_t other)
{
    const char* const text = std::getenv(variable);
    return text == nullptr ? other : std::strtoull(text, nullptr, 10);
}

void print(const Figures& figures, std::size_t rounds, std::uint64_t seed)
{
    std::printf(
        "%zu rounds from seed %llu: %zu gaps left by kills between two renames, %zu records on standard "
        "error, %zu statements threw\n",
        rounds, static_cast<unsigned long long>(seed), figures.gaps, figures.onStandardError, figures.throws);
    std::printf("%zu records, %zu kills, %zu forks, %zu lost, %zu torn, %zu glued, %zu hung\n",
                figures.records, figures.kills, figures.forks, figures.lost, figures.torn, figures.glued,
                figures.hung);
}

int runRounds(std::size_t seconds)
{
    const std::uint64_t seed = numberFrom("DALNIM_TORTURE_SEED", 1);
    const std::size_t maxRounds = numberFrom("DALNIM_TORTURE_ROUNDS", ~std::size_t(0));
    const Clock::time_point end = Clock::now() + std::chrono::seconds(seconds);
    Torture torture;
    if (!torture.ownsDisk()) {
        std::puts("cannot mount a disk: no disk is filled, and no directory is closed");
    }
    Figures sum;
    std::size_t rounds = 0;
    for (; Clock::now() < end && rounds < maxRounds; ++rounds) {
        std::string report;
        const Figures figures = torture.run(seed + rounds, report);
        sum += figures;
        if (!figures.isClean()) {
            std::printf("%s%zu lost, %zu torn, %zu glued, %zu hung, %zu wrong\n", report.c_str(),
                        figures.lost, figures.torn, figures.glued, figures.hung, figures.wrong);
            std::fflush(stdout);
        }
    }
    print(sum, rounds, seed);
    return sum.isClean() && sum.records != 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

}

int main(int argc, char** argv)
{
    if (argc == 3 && std::string(argv[1]) == "--worker") {
        return work(*SharedRound::map(ROUND_DESCRIPTOR), static_cast<unsigned int>(std::atoi(argv[2])));
    }
    const int seconds = argc == 2 ? std::atoi(argv[1]) : 0;
    if (seconds <= 0) {
        std::fprintf(stderr, "usage: %s SECONDS\n", argv[0]);
        return 2;
    }
    try {
        return runRounds(static_cast<std::size_t>(seconds));
    } catch (const std::exception& exc) {
        std::fprintf(stderr, "failed: %s\n", exc.what());
        return EXIT_FAILURE;
    }
}
