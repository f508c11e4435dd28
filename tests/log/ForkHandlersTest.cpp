// Children of a process whose other threads write to several loggers and files.

#include <dalnim/log/Write.hpp>

#include <dalnim/sys/System.hpp>

#include "LogFileFixture.hpp"
#include "Loggers.hpp"

#include <support/Sanitizers.hpp>
#include <support/StandardLibrary.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <functional>
#include <locale>
#include <memory>
#include <mutex>
#include <streambuf>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

/** Number of calls of the function below. */
static std::atomic<int> installed_caches{0};

// The C++ library stores the form of numbers in a locale when a number is first inserted through it, under a
// lock.
extern "C" DALNIM_API void
installCache(void* locale, const void* cache,
             std::size_t index) asm("_ZNSt6locale5_Impl16_M_install_cacheEPKNS_5facetEm");

void installCache(void* locale, const void* cache, std::size_t index)
{
    ++installed_caches;
    reinterpret_cast<void (*)(void*, const void*, std::size_t)>(
        dlsym(RTLD_NEXT, "_ZNSt6locale5_Impl16_M_install_cacheEPKNS_5facetEm"))(locale, cache, index);
}

namespace {

using namespace logtest;
using log::LogFile;
using log::LogFileRef;
using log::Module;
using log::Write;
using logfiletest::contentOf;
using logfiletest::Folder;
using support::inChildProcess;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int FORKS = 50;
constexpr unsigned int PATIENCE_S = 30;

/** Held during a round and during a fork, if the allocator could be inherited locked. */
std::mutex allocator_mutex;

std::unique_lock<std::mutex> lockAllocator()
{
    return support::UNDER_ADDRESS_SANITIZER ? std::unique_lock<std::mutex>(allocator_mutex)
                                            : std::unique_lock<std::mutex>();
}

/** Repeats an action on a thread of its own until the end of the scope. */
class Repeated
{
public:
    explicit Repeated(std::function<void()> repeated)
        : action(std::move(repeated)), thread([this] {
              while (!isOver) {
                  {
                      const std::unique_lock<std::mutex> lock = lockAllocator();
                      action();
                  }
                  ++rounds;
              }
          })
    {
    }
    Repeated(const Repeated&) = delete;
    Repeated& operator=(const Repeated&) = delete;
    ~Repeated()
    {
        isOver = true;
        thread.join();
    }

    void awaitRound() const
    {
        for (const long before = rounds; rounds == before;) {
            std::this_thread::yield();
        }
    }

private:
    const std::function<void()> action;
    std::atomic<bool> isOver{false};
    std::atomic<long> rounds{0};
    std::thread thread;
};

void expectChildrenCan(const Repeated& busy, const std::function<void()>& action)
{
    for (int i = 0; i < FORKS; ++i) {
        busy.awaitRound();
        const std::unique_lock<std::mutex> lock = lockAllocator();
        ASSERT_EQ(0, inChildProcess([&] {
                      ::alarm(PATIENCE_S);
                      action();
                  }));
    }
}

void useTimeZone()
{
    std::tm time = {};
    com::kor::dal::nim::sys::System::localtime(time, std::time(nullptr));
}

long countIn(const String& text, const String& line)
{
    long count = 0;
    for (std::size_t at = text.find(line); at != String::npos; at = text.find(line, at + 1)) {
        ++count;
    }
    return count;
}

/** A logger with a file and a module of its own. */
struct FileLogger
{
    explicit FileLogger(const String& path)
    {
        write.setOutputMask(0);
        write.setPath(path);
    }
    void log(const char* text)
    {
        NIM_LOG_TO(module, Severity_WARNING) << text;
    }

    Write write;
    Module module{"tests.fork", write};
};

TEST(ForkHandlers, AChildCanUseEveryLogger)
{
    const Folder folder;
    FileLogger first(folder / "first.log");
    FileLogger second(folder / "second.log");
    {
        const Repeated busyFirst([&] { first.log("parent"); });
        const Repeated busySecond([&] { second.log("parent"); });
        expectChildrenCan(busyFirst, [&] {
            first.log("child");
            second.log("child");
        });
    }
    EXPECT_EQ(FORKS, countIn(contentOf(folder / "first.log"), " : child\n"));
    EXPECT_EQ(FORKS, countIn(contentOf(folder / "second.log"), " : child\n"));
}

TEST(ForkHandlers, AChildCanUseALogFileWithoutALogger)
{
    const Folder folder;
    LogFileRef file(new LogFile);
    file->setPath(folder / "a.log");
    {
        const Repeated busy([&] { file->log("parent"); });
        expectChildrenCan(busy, [&] { file->log("child"); });
    }
    EXPECT_EQ(FORKS, countIn(contentOf(folder / "a.log"), "child\n"));
}

TEST(ForkHandlers, AChildCanSetTheTimeFormat)
{
    Write parents;
    const Repeated settings([&parents] {
        parents.setTimeFormat(log::TimeFormat_UTC_MS);
        parents.setTimeFormat(log::TimeFormat_UTC);
        Write other;
        other.setTimeFormat(log::TimeFormat_UTC_US);
    });
    expectChildrenCan(settings, [&parents] {
        parents.setTimeFormat(log::TimeFormat_OFFSET_MS);
        parents.setTimeFormat(log::TimeFormat_LOCAL);
    });
}

TEST(ForkHandlers, AFileThatLoggersShareIsLockedOnce)
{
    const Folder folder;
    FileLogger owner(folder / "a.log");
    FileLogger user(folder / "b.log");
    const Module shared("com_kor_dal_nim_log_module_CIMOM", owner.write);
    user.write.registerModule(shared);
    user.write.setStream("CIMOM");
    {
        const Repeated busyOwner([&] { owner.log("owner"); });
        const Repeated busyUser([&] { user.log("user"); });
        expectChildrenCan(busyUser, [&] {
            owner.log("owner's child");
            user.log("user's child");
        });
    }
    const String text = contentOf(folder / "a.log");
    EXPECT_EQ(FORKS, countIn(text, " : owner's child\n"));
    EXPECT_EQ(FORKS, countIn(text, " : user's child\n"));
    user.write.unregisterModule(shared);
}

TEST(ForkHandlers, LoggersAreConstructedAndReplaceTheirFilesDuringForks)
{
    const Folder folder;
    FileLogger owner(folder / "a.log");
    FileLogger user(folder / "b.log");
    const Module shared("com_kor_dal_nim_log_module_CIMOM", owner.write);
    user.write.registerModule(shared);
    // Creates the files.
    owner.log("owner");
    user.log("user");
    int slowForks = 0;
    {
        const Repeated constructing([&] { const FileLogger other(folder / "c.log"); });
        // Destroys its current file while its lock is held.
        const Repeated replacing([&] {
            user.write.setStream("CIMOM");
            user.write.setPath(folder / "b.log");
        });
        for (int i = 0; i < FORKS; ++i) {
            replacing.awaitRound();
            const std::unique_lock<std::mutex> lock = lockAllocator();
            const auto begin = steady_clock::now();
            ASSERT_EQ(0, inChildProcess([&] {
                          ::alarm(PATIENCE_S);
                          user.log("child");
                          FileLogger other(folder / "c.log");
                          other.log("child");
                      }));
            slowForks += steady_clock::now() - begin >= milliseconds(1000) ? 1 : 0;
        }
    }
    EXPECT_EQ(FORKS, countIn(contentOf(folder / "c.log"), " : child\n"));
    EXPECT_EQ(FORKS, countIn(contentOf(folder / "a.log") + contentOf(folder / "b.log"), " : child\n"));
    // If locks were acquired in two orders, each fork would take a second.
    EXPECT_LT(slowForks, FORKS / 2);
    user.write.unregisterModule(shared);
}

TEST(ForkHandlers, ThreadsForkConcurrently)
{
    constexpr int THREADS = 3;
    const Folder folder;
    FileLogger first(folder / "first.log");
    FileLogger second(folder / "second.log");
    {
        const Repeated busy([&] { first.log("parent"); });
        std::vector<std::thread> threads;
        for (int i = 0; i < THREADS; ++i) {
            threads.emplace_back([&] {
                expectChildrenCan(busy, [&] {
                    first.log("child");
                    second.log("child");
                });
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    EXPECT_EQ(THREADS * FORKS, countIn(contentOf(folder / "first.log"), " : child\n"));
    EXPECT_EQ(THREADS * FORKS, countIn(contentOf(folder / "second.log"), " : child\n"));
}

/** A stream whose records run a function of the test. */
class Callback : public std::streambuf
{
public:
    std::function<void()> action;

protected:
    std::streamsize xsputn(const char* text, std::streamsize size) override
    {
        written.append(text, static_cast<std::size_t>(size));
        if (action) {
            const std::function<void()> once = std::move(action);
            action = nullptr;
            once();
        }
        return size;
    }
    int overflow(int c) override
    {
        const char byte = static_cast<char>(c);
        xsputn(&byte, 1);
        return c;
    }

public:
    String written;
};

TEST(ForkHandlers, ForkWithinARecordKeepsItsLocksInTheChild)
{
    Callback buffer;
    std::ostream stream(&buffer);
    Write write;
    write.setOutputMask(0);
    write.setStream(asIos(stream));
    Module module("tests.fork", write);
    pid_t child = -1;
    buffer.action = [&] { child = ::fork(); };
    NIM_LOG_TO(module, Severity_WARNING) << "forks";
    if (child == 0) {
        ::alarm(PATIENCE_S);
        NIM_LOG_TO(module, Severity_WARNING) << "child";
        std::thread([&] { NIM_LOG_TO(module, Severity_WARNING) << "thread"; }).join();
        ::_exit(buffer.written == " : forks\n : child\n : thread\n" ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(child, ::waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    NIM_LOG_TO(module, Severity_WARNING) << "parent";
    EXPECT_EQ(" : forks\n : parent\n", buffer.written);
}

TEST(ForkHandlers, ForkReturnsAfterASecondIfThePipeIsNotRead)
{
    const Folder folder;
    const String path = folder / "pipe";
    ASSERT_EQ(0, ::mkfifo(path.c_str(), 0600));
    const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_NE(-1, reader);
    FileLogger blocked(path);
    std::atomic<long> written{0};
    std::atomic<bool> isOver{false};
    std::thread writer([&] {
        while (!isOver) {
            blocked.log(String(1000, 'x').c_str());
            ++written;
        }
    });
    // Blocked as soon as it makes no progress for long.
    for (long before = -1; written == 0 || written != before;) {
        before = written;
        std::this_thread::sleep_for(milliseconds(100));
    }
    // The fork waits for the time zone mutex after the second has passed.
    const Repeated inTimeZone([] { useTimeZone(); });
    inTimeZone.awaitRound();
    const auto begin = steady_clock::now();
    EXPECT_EQ(0, inChildProcess([&] {
                  ::alarm(PATIENCE_S);
                  useTimeZone();
                  // The locks of the logger and its file are free.
                  blocked.write.setPath(folder / "child.log");
                  blocked.log("child");
              }));
    EXPECT_GE(steady_clock::now() - begin, milliseconds(990));
    EXPECT_EQ(" : child\n", contentOf(folder / "child.log"));

    // The parent continues as soon as the pipe is read.
    isOver = true;
    char bytes[65536];
    while (::read(reader, bytes, sizeof bytes) > 0) {
        std::this_thread::sleep_for(milliseconds(10));
    }
    writer.join();
    blocked.write.setPath(folder / "parent.log");
    blocked.log("parent");
    EXPECT_EQ(" : parent\n", contentOf(folder / "parent.log"));
    ::close(reader);
}

/** A logger whose records run a function of the test. */
struct CallbackLogger
{
    CallbackLogger()
    {
        write.setOutputMask(0);
        write.setStream(asIos(stream));
    }
    /** Logs a record on another thread, which runs `action` under the locks. Returns when it has begun. */
    std::thread logOnAThread(const std::function<void()>& action)
    {
        std::atomic<bool> hasBegun{false};
        buffer.action = [&hasBegun, action] {
            hasBegun = true;
            action();
        };
        std::thread thread([this] { NIM_LOG_TO(module, Severity_WARNING) << "record"; });
        while (!hasBegun) {
            std::this_thread::yield();
        }
        return thread;
    }

    Callback buffer;
    std::ostream stream{&buffer};
    Write write;
    Module module{"tests.fork", write};
};

TEST(ForkHandlers, ABlockedLoggerDoesNotUseUpTheTimeOfOtherLoggers)
{
    constexpr auto IN_ALL = milliseconds(1000);
    constexpr auto LONGER = milliseconds(5);
    CallbackLogger busy;
    // The logger that was constructed last is the first that a fork waits for.
    CallbackLogger blocked;
    std::atomic<bool> isOver{false};
    std::thread blockedThread = blocked.logOnAThread([&isOver] {
        while (!isOver) {
            std::this_thread::sleep_for(milliseconds(1));
        }
    });
    std::atomic<steady_clock::time_point> forkBegin{steady_clock::time_point::max()};
    std::atomic<int> changes{0};
    std::thread busyThread = busy.logOnAThread([&] {
        ++changes;
        while (forkBegin.load() == steady_clock::time_point::max()
               || steady_clock::now() < forkBegin.load() + IN_ALL + LONGER) {
        }
        ++changes;
    });
    forkBegin = steady_clock::now();
    EXPECT_EQ(0, inChildProcess([&] {
                  ::alarm(PATIENCE_S);
                  EXPECT_EQ(2, changes) << "the fork cut a record of the other logger off";
                  NIM_LOG_TO(busy.module, Severity_WARNING) << "child";
              }));
    isOver = true;
    blockedThread.join();
    busyThread.join();
}

/** Selects a global locale until the end of the scope. */
class GlobalLocale
{
public:
    explicit GlobalLocale(const std::locale& selected) : before(std::locale::global(selected)) {}
    GlobalLocale(const GlobalLocale&) = delete;
    GlobalLocale& operator=(const GlobalLocale&) = delete;
    ~GlobalLocale()
    {
        std::locale::global(before);
    }

private:
    const std::locale before;
};

TEST(ForkHandlers, AChildInsertsNumbersWithoutALockOfTheLocale)
{
    if (support::USES_LIBCXX) {
        GTEST_SKIP() << "libc++ stores the form of numbers nowhere";
    }
    CallbackLogger logger;
    // The child of a process that has always had a single thread may acquire any lock.
    logger.logOnAThread([] {}).join();
    const GlobalLocale locale(std::locale(std::locale::classic(), new std::numpunct<char>));
    EXPECT_EQ(0, inChildProcess([&] {
                  ::alarm(PATIENCE_S);
                  const int before = installed_caches;
                  NIM_LOG_TO(logger.module, Severity_WARNING) << 12345 << ' ' << 0.5;
                  EXPECT_EQ(before, installed_caches);
                  EXPECT_EQ(" : record\n : 12345 0.5\n", logger.buffer.written);
              }));
}

}
