#include <dalnim/sys/ThreadReport.hpp>

#include <dalnim/log/Common.hpp>
#include <dalnim/log/Control.hpp>
#include <dalnim/mt/Runnable.hpp>
#include <dalnim/mt/SysMutex.hpp>
#include <dalnim/mt/Task.hpp>
#include <dalnim/mt/Thread.hpp>
#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>
#include <dalnim/type/ContextScope.hpp>
#include <dalnim/type/SecurityContext.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <qv/Threads.hpp>
#include <support/Files.hpp>
#include <support/InChildProcess.hpp>
#include <support/Sanitizers.hpp>
#include <support/Valgrind.hpp>

namespace {

/** Called when a report is about to be written to a pipe. */
std::atomic<const std::function<void()>*> duringPoll{nullptr};

}

/** Replaces the function of the C library. */
extern "C" __attribute__((visibility("default"))) int poll(pollfd* descriptors, nfds_t count, int timeoutMs)
{
    const std::function<void()>* const call = duringPoll;
    if (call != nullptr) {
        (*call)();
    }
    const timespec timeout = {timeoutMs / 1000, timeoutMs % 1000 * 1000000L};
    return ppoll(descriptors, count, timeoutMs < 0 ? nullptr : &timeout, nullptr);
}

namespace {

namespace mt = com::kor::dal::nim::mt;
namespace type = com::kor::dal::nim::type;
using com::kor::dal::nim::StringVector;
using com::kor::dal::nim::sys::StackTrack;
using com::kor::dal::nim::sys::system_error;
using com::kor::dal::nim::sys::ThreadReport;
using com::kor::dal::nim::sys::internal::ThreadState;
using qvtest::Gate;
using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

typedef ThreadReport::Entry Entry;

/** For threads that answer; much longer than that takes. */
constexpr unsigned int PATIENCE_MS = 20000;

/** Returns the entry of a thread; one with an ID of 0 if the report has none. */
Entry entryOf(const ThreadReport& report, pid_t tid)
{
    const auto found = std::find_if(report.threads().begin(), report.threads().end(),
                                    [tid](const Entry& entry) { return entry.tid == tid; });
    return found != report.threads().end() ? *found : Entry();
}

/** Takes reports until a condition holds for a thread, and returns its entry. */
Entry entryWhen(pid_t tid, const std::function<bool(const Entry&)>& condition)
{
    for (;;) {
        const Entry entry = entryOf(ThreadReport(PATIENCE_MS), tid);
        if (condition(entry)) {
            return entry;
        }
        std::this_thread::yield();
    }
}

class Work : public mt::Runnable
{
public:
    explicit Work(std::function<void()> todo) : work(std::move(todo)) {}
    void run() override
    {
        work();
    }

private:
    std::function<void()> work;
};

class UserToken : public com::kor::dal::nim::mem::RefCntObject
{};

class ThreadReportTest : public testing::Test
{
protected:
    ThreadReportTest()
    {
        ThreadReport::install();
    }
};

TEST_F(ThreadReportTest, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("ThreadReport", ThreadReport::CLASS_NAME);
}

TEST_F(ThreadReportTest, SignalIsTheHighestUnusedRealTimeSignal)
{
    EXPECT_EQ(SIGRTMAX, ThreadReport::realTimeSignal());
}

TEST_F(ThreadReportTest, SecondInstallationWithAnotherSignalThrows)
{
    ThreadReport::install();
    ThreadReport::install(SIGRTMAX);
    try {
        ThreadReport::install(SIGRTMAX - 1);
        FAIL() << "nothing was thrown";
    } catch (const system_error& error) {
        EXPECT_EQ(22, error.error());
        EXPECT_STREQ("Another signal for reports of threads has been installed.", error.what());
    }
}

/** Runs `body` in a child process in which install() has not been called. */
template <class Body>
void inFreshProcess(Body body)
{
    // The state of the parent's class is inherited: this program is started again for a death test.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            body();
            std::fflush(nullptr);
            ::_exit(testing::Test::HasFailure() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(ThreadReportDeathTest, SignalOutsideTheRealTimeRangeIsRejected)
{
    inFreshProcess([] {
        try {
            ThreadReport::install(SIGUSR1);
            FAIL() << "nothing was thrown";
        } catch (const system_error& error) {
            EXPECT_EQ(22, error.error());
            EXPECT_STREQ("Not a real-time signal.", error.what());
        }
        EXPECT_EQ(0, ThreadReport::realTimeSignal());
    });
}

TEST(ThreadReportDeathTest, InstallationThrowsIfEachRealTimeSignalHasAHandler)
{
    inFreshProcess([] {
        for (int number = SIGRTMIN; number <= SIGRTMAX; ++number) {
            std::signal(number, [](int) {});
        }
        try {
            ThreadReport::install();
            FAIL() << "nothing was thrown";
        } catch (const system_error& error) {
            EXPECT_EQ(16, error.error());
            EXPECT_STREQ("Each real-time signal has a handler.", error.what());
        }
    });
}

TEST(ThreadReportDeathTest, InstallationThrowsIfMemoryRunsOut)
{
    if (support::UNDER_THREAD_SANITIZER || support::UNDER_ADDRESS_SANITIZER) {
        GTEST_SKIP() << "the sanitizer needs more address space";
    }
    inFreshProcess([] {
        ThreadState::current();
        const rlimit none = {1, RLIM_INFINITY};
        rlimit old = {};
        getrlimit(RLIMIT_AS, &old);
        setrlimit(RLIMIT_AS, &none);
        int error = 0;
        try {
            ThreadReport::install();
        } catch (const system_error& failure) {
            error = failure.error();
        }
        setrlimit(RLIMIT_AS, &old);
        EXPECT_EQ(12, error);
        EXPECT_EQ(0, ThreadReport::realTimeSignal());
        ThreadReport::install();
        EXPECT_NE(0, ThreadReport::realTimeSignal());
    });
}

TEST(ThreadReportDeathTest, SignalIsNotInstalledIfNoDescriptorIsAvailable)
{
    if (support::UNDER_ADDRESS_SANITIZER) {
        GTEST_SKIP() << "the sanitizer needs descriptors to check an exception";
    }
    inFreshProcess([] {
        ThreadState::current();
        rlimit old = {};
        getrlimit(RLIMIT_NOFILE, &old);
        const rlimit none = {0, old.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
        int error = 0;
        try {
            ThreadReport::installSignal(SIGUSR2);
        } catch (const system_error& failure) {
            error = failure.error();
        }
        setrlimit(RLIMIT_NOFILE, &old);
        EXPECT_EQ(24, error);
        struct sigaction action = {};
        sigaction(SIGUSR2, nullptr, &action);
        EXPECT_EQ(SIG_DFL, action.sa_handler);
        ThreadReport::installSignal(SIGUSR2);
        sigaction(SIGUSR2, nullptr, &action);
        EXPECT_NE(SIG_DFL, action.sa_handler);
    });
}

/** Has a system call of this process fail with EPERM, as the filters of some containers do. */
void forbid(unsigned int systemCall)
{
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, systemCall, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program = {sizeof filter / sizeof *filter, filter};
    ASSERT_EQ(0, prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0));
    ASSERT_EQ(0, prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program));
}

TEST(ThreadReportDeathTest, ReportIsCompleteIfProcessesMayNotBeRead)
{
    inFreshProcess([] {
        ThreadReport::install();
        forbid(SYS_process_vm_readv);
        const StackTrack track("filtered()", 1);
        ThreadState& state = ThreadState::current();
        void* const page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        munmap(page, 4096);
        state.task = static_cast<mt::Task*>(page);
        const Entry entry = entryOf(ThreadReport(), gettid());
        state.task = nullptr;
        EXPECT_EQ("filtered():1", entry.tracks.at(1));
        EXPECT_TRUE(entry.hasTask);
        EXPECT_EQ("", entry.taskName);
    });
}

TEST(ThreadReportDeathTest, ThreadsAreOmittedWithoutInstallation)
{
    inFreshProcess([] {
        const StackTrack track("f()", 1);
        const ThreadReport report;
        EXPECT_TRUE(report.threads().empty());
        EXPECT_EQ(1U, report.omitted());
        EXPECT_EQ("Threads of process " + std::to_string(getpid()) + ": 0; 1 more could not be asked\n",
                  report.toString());
    });
}

TEST(ThreadReportDeathTest, SignalsOfOtherSendersReachThePreviousHandler)
{
    static std::atomic<int> received;
    inFreshProcess([] {
        struct sigaction action = {};
        action.sa_sigaction = [](int, siginfo_t* info, void*) { received = info->si_value.sival_int; };
        action.sa_flags = SA_SIGINFO;
        sigaction(SIGRTMIN + 3, &action, nullptr);
        ThreadReport::install(SIGRTMIN + 3);
        sigval value = {};
        value.sival_int = 4711;
        ASSERT_EQ(0, sigqueue(getpid(), SIGRTMIN + 3, value));
        EXPECT_EQ(4711, received);
    });
}

TEST_F(ThreadReportTest, CallingThreadAnswers)
{
    const StackTrack outer("outer()", "Class", "name.space", 12);
    StackTrack inner("inner()", 0);
    inner.currentLine(34);
    const ThreadReport report;
    const Entry entry = entryOf(report, gettid());
    EXPECT_TRUE(entry.hasAnswered);
    EXPECT_EQ("", entry.silence);
    ASSERT_EQ(3U, entry.tracks.size());
    EXPECT_THAT(entry.tracks[0], StartsWith("com.kor.dal.nim.sys.ThreadReport.ThreadReport():"));
    EXPECT_EQ("inner():-:34", entry.tracks[1]);
    EXPECT_EQ("name.space.Class.outer():12", entry.tracks[2]);
    EXPECT_EQ(0U, entry.omittedTracks);
    EXPECT_FALSE(entry.hasTask);
    EXPECT_FALSE(entry.hasPool);
    EXPECT_EQ("", entry.tokenType);
    EXPECT_EQ(0U, report.omitted());
}

TEST_F(ThreadReportTest, WaitingThreadReportsTracksTaskPoolAndToken)
{
    Gate entered;
    Gate gate;
    std::atomic<pid_t> tid{0};
    Work work([&] {
        const StackTrack track("work()", "Work", "test", 5);
        tid = gettid();
        pthread_setname_np(pthread_self(), "busy bee");
        entered.open();
        gate.pass();
    });
    mt::Task task(work, "import");
    // NOLINTNEXTLINE: the four numbers have no effect
    mt::ThreadPool pool("requests", 1, 0, 0, 0, 0, 8);
    {
        const type::ContextScope scope(type::SecurityContext::opCreate, type::ContextScope::opRemove,
                                       type::SecurityContext::KEY, 0, type::ContainerContext::current());
        type::SecurityContext::current()->token(type::ConstSecurityTokenRef(new UserToken));
        pool.add(task);
    }
    entered.pass();
    const ThreadReport report(PATIENCE_MS);
    const Entry entry = entryOf(report, tid);
    gate.open();
    pool.shutdown();
    EXPECT_TRUE(entry.hasAnswered);
    EXPECT_EQ("busy bee", entry.name);
    ASSERT_EQ(2U, entry.tracks.size());
    EXPECT_EQ("test.Work.work():5", entry.tracks[0]);
    EXPECT_THAT(entry.tracks[1], StartsWith("com.kor.dal.nim.mt.Task.run():"));
    EXPECT_TRUE(entry.hasTask);
    EXPECT_EQ(task.taskId(), entry.taskId);
    EXPECT_EQ("import", entry.taskName);
    EXPECT_EQ("(anonymous namespace)::Work", entry.taskType);
    EXPECT_TRUE(entry.hasPool);
    EXPECT_EQ(pool.poolId(), entry.poolId);
    EXPECT_EQ("requests", entry.poolName);
    EXPECT_EQ("(anonymous namespace)::UserToken", entry.tokenType);
    const std::string head = "  thread " + std::to_string(tid) + " \"busy bee\", state ";
    const std::string body = "    task " + std::to_string(task.taskId())
                             + " \"import\" ((anonymous namespace)::Work) of pool "
                             + std::to_string(pool.poolId())
                             + " \"requests\"\n"
                               "    security token (anonymous namespace)::UserToken\n"
                               "    [1] test.Work.work():5\n"
                               "    [0] com.kor.dal.nim.mt.Task.run():";
    EXPECT_THAT(report.toString(), AllOf(HasSubstr(head), HasSubstr(body)));
}

// The context of a thread that has changed it is a tree, that of a new task a list.
TEST_F(ThreadReportTest, TokenIsFoundInAChangedContext)
{
    const type::ContextScope scope(type::SecurityContext::opCreate, type::ContextScope::opRemove,
                                   type::SecurityContext::KEY, 0, type::ContainerContext::current());
    EXPECT_EQ("", entryOf(ThreadReport(), gettid()).tokenType);
    type::SecurityContext::current()->token(type::ConstSecurityTokenRef(new UserToken));
    EXPECT_EQ("(anonymous namespace)::UserToken", entryOf(ThreadReport(), gettid()).tokenType);
}

TEST_F(ThreadReportTest, WaitForAMutexNamesTheThreadThatHoldsIt)
{
    if (support::UNDER_THREAD_SANITIZER) {
        GTEST_SKIP() << "the sanitizer delivers the signal after the wait";
    }
    mt::SysMutex mutex;
    std::atomic<pid_t> tid{0};
    mutex.acquire();
    std::thread waiting([&] {
        const StackTrack track("waits()", 1);
        tid = gettid();
        mutex.acquire();
        mutex.release();
    });
    while (tid == 0) {
        std::this_thread::yield();
    }
    const Entry entry = entryWhen(tid, [](const Entry& found) { return found.lockAddress != 0; });
    EXPECT_EQ(gettid(), entry.lockOwner);
    EXPECT_EQ("waits():1", entry.tracks.at(0).substr(entry.tracks.at(0).size() - 9));
    const std::string text = ThreadReport(PATIENCE_MS).toString();
    EXPECT_THAT(text, HasSubstr(", held by thread " + std::to_string(gettid()) + "\n"));
    mutex.release();
    waiting.join();
}

TEST_F(ThreadReportTest, ThreadThatBlocksTheSignalIsAFinding)
{
    Gate ready;
    Gate gate;
    std::atomic<pid_t> tid{0};
    std::thread deaf([&] {
        const StackTrack track("deaf()", 1);
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        tid = gettid();
        ready.open();
        gate.pass();
        // The signals of reports that have expired arrive now, and change nothing.
        sigemptyset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        const Entry entry = entryOf(ThreadReport(PATIENCE_MS), gettid());
        EXPECT_TRUE(entry.hasAnswered);
        EXPECT_EQ("deaf():1", entry.tracks.back());
    });
    ready.pass();
    const ThreadReport report(1);
    const ThreadReport second(1);
    gate.open();
    deaf.join();
    const Entry entry = entryOf(report, tid);
    EXPECT_FALSE(entry.hasAnswered);
    EXPECT_EQ("did not answer in time: it blocks the signal", entry.silence);
    EXPECT_TRUE(entry.tracks.empty());
    EXPECT_GE(report.silent(), 1U);
    EXPECT_THAT(report.toString(), HasSubstr(" did not answer in time\n"));
    EXPECT_FALSE(entryOf(second, tid).hasAnswered);
}

TEST_F(ThreadReportTest, EndedThreadsAreNotReported)
{
    pid_t tid = 0;
    std::thread([&tid] {
        tid = gettid();
        ThreadState::current();
        EXPECT_EQ(tid, entryOf(ThreadReport(PATIENCE_MS), tid).tid);
    }).join();
    EXPECT_EQ(0, entryOf(ThreadReport(PATIENCE_MS), tid).tid);
}

TEST_F(ThreadReportTest, ManyThreadsAnswer)
{
    constexpr int THREADS = 300;
    Gate gate;
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; ++i) {
        threads.emplace_back([&] {
            const StackTrack track("one_of_many()", 1);
            ++ready;
            gate.pass();
        });
    }
    while (ready != THREADS) {
        std::this_thread::yield();
    }
    const ThreadReport report(PATIENCE_MS);
    gate.open();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(THREADS,
              std::count_if(report.threads().begin(), report.threads().end(), [](const Entry& entry) {
                  return entry.hasAnswered && entry.tracks == StringVector{"one_of_many():1"};
              }));
    EXPECT_EQ(0U, report.omitted());
}

TEST_F(ThreadReportTest, LabelsBeyondTheCapacityAreCounted)
{
    const std::string longName(250, 'x');
    const std::function<Entry(int)> nest = [&](int depth) {
        const StackTrack track(longName.c_str(), 1);
        return depth == 1 ? entryOf(ThreadReport(), gettid()) : nest(depth - 1);
    };
    const Entry entry = nest(100);
    EXPECT_EQ(101U, entry.tracks.size() + entry.omittedTracks);
    EXPECT_EQ(longName + ":1", entry.tracks.at(1));
    EXPECT_GE(entry.tracks.size(), 10U);
    EXPECT_GE(entry.omittedTracks, 80U);
}

TEST_F(ThreadReportTest, InvalidTrackIsReportedAsUnreadable)
{
    ThreadState& state = ThreadState::current();
    state.where.reserve(8);
    state.where.push_back(reinterpret_cast<const StackTrack*>(8));
    const Entry entry = entryOf(ThreadReport(), gettid());
    state.where.pop_back();
    ASSERT_EQ(2U, entry.tracks.size());
    EXPECT_EQ("(unreadable)", entry.tracks[1]);
}

TEST_F(ThreadReportTest, DestroyedTaskDoesNoHarm)
{
    ThreadState& state = ThreadState::current();
    void* const page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    state.task = static_cast<mt::Task*>(page);
    state.pool = static_cast<mt::ThreadPool*>(page);
    const Entry entry = entryOf(ThreadReport(), gettid());
    state.task = nullptr;
    state.pool = nullptr;
    munmap(page, 4096);
    EXPECT_TRUE(entry.hasTask);
    EXPECT_EQ(0U, entry.taskId);
    EXPECT_EQ("", entry.taskName);
    EXPECT_TRUE(entry.hasPool);
    EXPECT_EQ("", entry.poolName);
}

TEST_F(ThreadReportTest, TimeSinceAnEarlierReportIsMeasured)
{
    Gate ready;
    Gate gate;
    std::atomic<pid_t> tid{0};
    std::thread waiting([&] {
        const StackTrack track("stays()", 1);
        tid = gettid();
        ready.open();
        gate.pass();
    });
    ready.pass();
    const Entry first = entryOf(ThreadReport(PATIENCE_MS), tid);
    const Entry later = entryWhen(tid, [](const Entry& entry) { return entry.sameForMs >= 20; });
    gate.open();
    waiting.join();
    EXPECT_EQ(0, first.sameForMs);
    EXPECT_EQ("stays():1", later.tracks.at(0));
}

TEST_F(ThreadReportTest, ChildOfAForkReportsItsOwnThread)
{
    if (support::UNDER_ADDRESS_SANITIZER) {
        GTEST_SKIP() << "the allocator of the sanitizer does not survive a fork of several threads";
    }
    Gate gate;
    Gate ready;
    std::thread other([&] {
        const StackTrack track("other()", 1);
        ready.open();
        gate.pass();
    });
    ready.pass();
    ThreadState::current();
    const int status = support::inChildProcess([] {
        const ThreadReport report(PATIENCE_MS);
        ASSERT_EQ(1U, report.threads().size());
        EXPECT_EQ(gettid(), report.threads()[0].tid);
        EXPECT_TRUE(report.threads()[0].hasAnswered);
    });
    gate.open();
    other.join();
    EXPECT_EQ(0, status);
}

TEST_F(ThreadReportTest, ChildOfAForkDuringAReportOfAnotherThreadWritesItsOwn)
{
    if (support::UNDER_ADDRESS_SANITIZER) {
        GTEST_SKIP() << "the allocator of the sanitizer does not survive a fork of several threads";
    }
    if (support::UNDER_THREAD_SANITIZER) {
        GTEST_SKIP() << "the thread sanitizer calls handlers later in a child of several threads";
    }
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC | O_NONBLOCK));
    ThreadReport::installSignal(SIGUSR2, ends[1], PATIENCE_MS);
    Gate writing;
    Gate forked;
    const std::function<void()> waitWhileWriting = [&] {
        writing.open();
        forked.pass();
    };
    duringPoll = &waitWhileWriting;
    std::thread reporting([] { std::raise(SIGUSR2); });
    writing.pass();
    duringPoll = nullptr;
    const int status = support::inChildProcess([&] {
        std::raise(SIGUSR2);
        close(ends[1]);
        char text[4096];
        const ssize_t length = read(ends[0], text, sizeof text);
        ASSERT_GT(length, 0);
        EXPECT_THAT(std::string(text, static_cast<std::size_t>(length)),
                    StartsWith("Threads of process " + std::to_string(getpid()) + ": "));
    });
    forked.open();
    reporting.join();
    std::signal(SIGUSR2, SIG_DFL);
    close(ends[0]);
    close(ends[1]);
    EXPECT_EQ(0, status);
}

// Each answer must be a moment of its thread: a track never appears without the one in which it is nested.
TEST_F(ThreadReportTest, AnswersAreConsistentWhileThreadsEnterTracks)
{
    const int rounds = support::UNDER_THREAD_SANITIZER ? 100 : 300;
    std::atomic<bool> isDone{false};
    const auto enterTracks = [&isDone] {
        while (!isDone) {
            // A new thread, so that its list grows.
            std::thread([] {
                const StackTrack a("a()", 1);
                for (int i = 0; i < 100; ++i) {
                    const StackTrack b("b()", 2);
                    const StackTrack c("c()", 3);
                    const StackTrack d("d()", 4);
                    const StackTrack e("e()", 5);
                }
            }).join();
        }
    };
    std::thread first(enterTracks);
    std::thread second(enterTracks);
    std::vector<std::thread> reporters;
    for (int i = 0; i < 2; ++i) {
        reporters.emplace_back([] {
            for (int round = 0; round < rounds; ++round) {
                const ThreadReport report(PATIENCE_MS);
                for (const Entry& entry : report.threads()) {
                    if (entry.tracks.empty() || entry.tracks.back() != "a():1") {
                        continue;
                    }
                    const StringVector whole = {"e():5", "d():4", "c():3", "b():2", "a():1"};
                    ASSERT_LE(entry.tracks.size(), whole.size());
                    EXPECT_TRUE(std::equal(entry.tracks.rbegin(), entry.tracks.rend(), whole.rbegin()))
                        << report;
                }
            }
        });
    }
    for (std::thread& reporter : reporters) {
        reporter.join();
    }
    isDone = true;
    first.join();
    second.join();
}

/** A file in memory to which signal handlers write reports. */
class ReportFile
{
public:
    ReportFile() : descriptor(memfd_create("report", MFD_CLOEXEC)) {}
    ~ReportFile()
    {
        close(descriptor);
    }
    ReportFile(const ReportFile&) = delete;
    ReportFile& operator=(const ReportFile&) = delete;

    int get() const
    {
        return descriptor;
    }
    std::string text() const
    {
        std::string content(static_cast<std::size_t>(lseek(descriptor, 0, SEEK_END)), '\0');
        EXPECT_EQ(static_cast<ssize_t>(content.size()), pread(descriptor, content.data(), content.size(), 0));
        return content;
    }

private:
    const int descriptor;
};

TEST_F(ThreadReportTest, SignalWritesTheReport)
{
    const ReportFile file;
    ThreadReport::installSignal(SIGUSR2, file.get(), PATIENCE_MS);
    Gate ready;
    Gate gate;
    std::atomic<pid_t> tid{0};
    std::thread other([&] {
        const StackTrack track("other()", 7);
        tid = gettid();
        ready.open();
        gate.pass();
    });
    ready.pass();
    const StackTrack track("main()", 8);
    errno = 4711;
    std::raise(SIGUSR2);
    EXPECT_EQ(4711, errno);
    gate.open();
    other.join();
    std::signal(SIGUSR2, SIG_DFL);
    const std::string text = file.text();
    EXPECT_THAT(text, StartsWith("Threads of process " + std::to_string(getpid()) + ": "));
    EXPECT_THAT(text, HasSubstr("  thread " + std::to_string(gettid()) + " \""));
    EXPECT_THAT(text, HasSubstr("    [0] main():8\n"));
    EXPECT_THAT(text, HasSubstr("  thread " + std::to_string(tid) + " \""));
    EXPECT_THAT(text, HasSubstr("    [0] other():7\n"));
    EXPECT_THAT(text, EndsWith("\n"));
}

TEST(ThreadReportDeathTest, SignalWritesARecordToTheFileOfTheDefaultLogger)
{
    const support::ScratchFolder folder;
    setenv("REPORT_LOG", folder.file("log").c_str(), 0);
    inFreshProcess([] {
        const std::string path = std::getenv("REPORT_LOG");
        ThreadReport::installSignal(SIGUSR2);
        const StackTrack track("reporting()", 3);
        // Without a file, the report is on standard error alone.
        std::raise(SIGUSR2);
        com_kor_dal_nim_log_control.setPath(path);
        EXPECT_THAT(support::readFile(path), Not(HasSubstr("reporting()")));
        std::raise(SIGUSR2);
        const std::string content = support::readFile(path);
        EXPECT_THAT(
            content,
            ContainsRegex(" com.kor.dal.nim NOTICE ThreadReport [0-9]* : Threads of process [0-9]*: 1\n"
                          "  thread [0-9]* .*\n    \\[0\\] reporting\\(\\):3\n$"));
        com_kor_dal_nim_log_control.setPath(path + ".next");
        std::raise(SIGUSR2);
        EXPECT_EQ(content, support::readFile(path));
        EXPECT_THAT(support::readFile(path + ".next"), EndsWith("    [0] reporting():3\n"));
        // The report does not count as a record of the log, which continues after it.
        com_kor_dal_nim_log_control.setMaxFileSize(1000000);
        EXPECT_THAT(support::readFile(path + ".next"), EndsWith("\n\tnew: \"1000000\"\n"));
    });
    unsetenv("REPORT_LOG");
}

TEST(ThreadReportDeathTest, ThreadsMayInstallTheSignalConcurrently)
{
    const support::ScratchFolder folder;
    setenv("REPORT_LOG", folder.file("log").c_str(), 0);
    inFreshProcess([] {
        constexpr int THREADS = 4;
        const std::string path = std::getenv("REPORT_LOG");
        com_kor_dal_nim_log_control.setPath(path);
        std::atomic<int> readyThreads{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < THREADS; ++i) {
            threads.emplace_back([&] {
                ++readyThreads;
                while (readyThreads != THREADS) {
                }
                ThreadReport::installSignal(SIGUSR2);
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        std::raise(SIGUSR2);
        EXPECT_THAT(support::readFile(path), HasSubstr(" com.kor.dal.nim NOTICE ThreadReport "));
    });
    unsetenv("REPORT_LOG");
}

TEST_F(ThreadReportTest, SignalThatMayHaveNoHandlerIsRejected)
{
    try {
        ThreadReport::installSignal(SIGKILL);
        FAIL() << "nothing was thrown";
    } catch (const system_error& error) {
        EXPECT_EQ(22, error.error());
        EXPECT_STREQ("Invalid argument", error.what());
    }
}

TEST_F(ThreadReportTest, ReportIsNotWrittenToAPipeWithoutReader)
{
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    close(ends[0]);
    ThreadReport::installSignal(SIGUSR2, ends[1]);
    // SIGPIPE would end the process.
    std::raise(SIGUSR2);
    std::signal(SIGUSR2, SIG_DFL);
    close(ends[1]);
}

#if defined(__x86_64__)

/** Sets or clears the trap flag: the processor then raises SIGTRAP after each instruction. */
inline void setTrapFlag()
{
    __asm__ volatile(
        "lea -128(%%rsp), %%rsp\n\tpushfq\n\torq $0x100, (%%rsp)\n\tpopfq\n\tlea 128(%%rsp), %%rsp"
        :
        :
        : "memory", "cc");
}
inline void clearTrapFlag()
{
    __asm__ volatile(
        "lea -128(%%rsp), %%rsp\n\tpushfq\n\tandq $-257, (%%rsp)\n\tpopfq\n\tlea 128(%%rsp), %%rsp"
        :
        :
        : "memory", "cc");
}

std::atomic<int> steps;

/** Returns the lists of tracks in the reports of one thread, each as one string, in their order. */
std::vector<std::string> trackLists(const std::string& reports, pid_t tid)
{
    const std::string mark = "  thread " + std::to_string(tid) + " \"";
    std::vector<std::string> lists;
    for (std::size_t at = 0; (at = reports.find(mark, at)) != std::string::npos;) {
        at = reports.find('\n', at) + 1;
        std::string list;
        while (reports.compare(at, 4, "    ") == 0) {
            const std::size_t end = reports.find('\n', at);
            list += reports.substr(at + 4, end - at - 4) + ' ';
            at = end + 1;
        }
        if (lists.empty() || lists.back() != list) {
            lists.push_back(list);
        }
    }
    return lists;
}

TEST_F(ThreadReportTest, ReportAfterEachInstructionOfATrackContainsCompleteTracks)
{
    if (support::UNDER_THREAD_SANITIZER || support::UNDER_ADDRESS_SANITIZER || support::isUnderValgrind()) {
        GTEST_SKIP() << "the instructions are not those that the processor executes otherwise";
    }
    const ReportFile file;
    ThreadReport::installSignal(SIGUSR2, file.get(), PATIENCE_MS);
    struct sigaction trap = {};
    trap.sa_handler = [](int) {
        ++steps;
        std::raise(SIGUSR2);
    };
    sigaction(SIGTRAP, &trap, nullptr);
    pid_t tid = 0;
    std::thread([&tid] {
        tid = gettid();
        // One free element, then none: the second track makes the list grow.
        ThreadState::current().where.reserve(2);
        const StackTrack outer("outer()", 1);
        setTrapFlag();
        {
            const StackTrack inner("inner()", "Class", "space", 2);
            const StackTrack growing("growing()", 3);
        }
        clearTrapFlag();
    }).join();
    std::signal(SIGTRAP, SIG_DFL);
    std::signal(SIGUSR2, SIG_DFL);
    EXPECT_GT(steps, 200);
    const std::vector<std::string> expected = {
        "[0] outer():1 ",
        "[1] space.Class.inner():2 [0] outer():1 ",
        "[2] growing():3 [1] space.Class.inner():2 [0] outer():1 ",
        "[1] space.Class.inner():2 [0] outer():1 ",
        "[0] outer():1 ",
    };
    EXPECT_EQ(expected, trackLists(file.text(), tid));
}

#endif

}
