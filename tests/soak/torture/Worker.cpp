#include "Round.hpp"

#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <exception>
#include <random>
#include <thread>
#include <vector>

#include <sys/prctl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

namespace torture {

namespace {

namespace log = com::kor::dal::nim::log;
typedef std::chrono::steady_clock Clock;

constexpr uid_t NOBODY = 65534;

void sleepFor(std::chrono::microseconds time)
{
    std::this_thread::sleep_for(time);
}

/** Sends SIGALRM to the process every millisecond, to interrupt system calls. */
void startSignals()
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    const itimerval interval = {{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &interval, nullptr);
}

class Worker
{
public:
    Worker(Round& shared, unsigned int number)
        : round(shared), scenario(shared.scenario), life(number),
          logger(scenario.ownLogger ? own : log::GET_NIM_LOG_LOGGER_VAR())
    {
    }

    void run()
    {
        configure();
        std::vector<std::thread> threads;
        for (unsigned int index = 1; index < scenario.threads; ++index) {
            threads.emplace_back([this, index] { write(round.thread(life, index)); });
        }
        if (scenario.reopens) {
            threads.emplace_back([this] { reopen(); });
        }
        write(round.thread(life, 0));
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

private:
    void configure()
    {
        set([this] { logger.setFallback(scenario.fallback); });
        set([this] {
            logger.setOutputMask(scenario.localTime ? log::Mask_DATETIME | log::Mask_MODULENAME : 0);
        });
        set([this] { logger.setLocaltime(scenario.localTime); });
        set([this] { logger.setMaxFileSize(scenario.maxFileSize); });
        set([this] { logger.setMaxNumberOfFiles(scenario.maxNumberOfFiles); });
        set([this] { logger.setPath(round.path.data()); });
    }

    /** Changes a setting, which is in effect even if its report cannot be written. */
    template <class Setter>
    static void set(Setter setter)
    {
        try {
            setter();
        } catch (const std::exception&) {
            // The report could not be written.
        }
    }

    bool shouldContinue() const
    {
        return !round.isStopped.load(std::memory_order_relaxed);
    }

    /** Logs one record, and stores the state of its statement in the shared memory. */
    void write(const Writer& writer, unsigned int number)
    {
        const std::string text = recordText(scenario, writer.number, number);
        writer.statements[number] = Statement::BEGUN;
        try {
            NIM_LOG_TO(module, Severity_WARNING) << text;
            writer.statements[number] = Statement::RETURNED;
        } catch (const std::exception&) {
            writer.statements[number] = Statement::THREW;
        }
    }

    /** Logs the records of a thread, and forks some of the children of the process. */
    void write(const Writer& writer)
    {
        const unsigned int interval = std::max(1U, scenario.records / (scenario.children + 1));
        for (unsigned int number = 0; number < writer.count && shouldContinue(); ++number) {
            write(writer, number);
            if (number == 0) {
                ++round.begun[life];
            }
            if (number % interval == 0) {
                fork();
            }
        }
        ++round.finished[life];
    }

    void reopen()
    {
        while (shouldContinue() && round.finished[life] < scenario.threads) {
            sleepFor(std::chrono::microseconds(500));
            try {
                logger.reopen();
            } catch (const std::exception&) {
                // The directory or the disk prevents it. The old file remains in use.
            }
        }
    }

    /** Forks one of the children, which logs, and waits for its end. Kills some of them. */
    void fork()
    {
        unsigned int index = round.forks[life];
        do {
            if (index >= scenario.children) {
                return;
            }
        } while (!round.forks[life].compare_exchange_weak(index, index + 1));
        std::mt19937_64 random(scenario.seed + life * MAX_CHILDREN + index);
        const bool kills = random() % 4 == 0;
        const std::chrono::microseconds patience(random() % 2000);
        const pid_t child = ::fork();
        if (child == 0) {
            runChild(index);
        }
        if (child == -1) {
            return;
        }
        if (kills) {
            sleepFor(patience);
            ::kill(child, SIGKILL);
            ++round.childKills;
        }
        await(child);
    }

    [[noreturn]] void runChild(unsigned int index)
    {
        if (scenario.signals) {
            startSignals();
        }
        // Only the parent rotates.
        set([this] { logger.setMaxFileSize(0); });
        const Writer writer = round.child(life, index);
        for (unsigned int number = 0; number < writer.count; ++number) {
            write(writer, number);
        }
        ::_exit(0);
    }

    void await(pid_t child)
    {
        const Clock::time_point end = Clock::now() + std::chrono::seconds(HUNG_SECONDS);
        for (;;) {
            const pid_t ended = ::waitpid(child, nullptr, WNOHANG);
            if (ended == child || (ended == -1 && errno != EINTR)) {
                return;
            }
            if (Clock::now() > end) {
                ++round.hung;
                ::kill(child, SIGKILL);
                while (::waitpid(child, nullptr, 0) == -1 && errno == EINTR) {
                }
                return;
            }
            sleepFor(std::chrono::microseconds(200));
        }
    }

    Round& round;
    const Scenario& scenario;
    const unsigned int life;
    log::Write own;
    log::Log& logger;
    log::Module module{"torture", logger};
};

}

int work(Round& round, unsigned int life)
{
    if (round.scenario.directoryCloses && (setegid(NOBODY) == -1 || seteuid(NOBODY) == -1)) {
        return 1;
    }
    // The change of the user has cleared the signal that the starting process had set.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (round.scenario.signals) {
        startSignals();
    }
    Worker(round, life).run();
    return 0;
}

}
