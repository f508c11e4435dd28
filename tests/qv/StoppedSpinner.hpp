#ifndef TESTS_QV_STOPPEDSPINNER_HPP
#define TESTS_QV_STOPPEDSPINNER_HPP

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <thread>

#include <link.h>
#include <unistd.h>

#include <dalnim/sys/internal/src/Registers.hpp>

namespace qvtest {

/**
 * Stops a thread in a loop of the library that polls, as if the system had preempted it there: a timer
 * interrupts the thread, and the signal handler looks for the instruction of
 * qv::pausePolling() next to the interrupted one.
 */
class StoppedSpinner
{
public:
    StoppedSpinner()
    {
        if (dl_iterate_phdr(&StoppedSpinner::findLibrary, nullptr) == 0) {
            // The program contains the static library, and is the first object.
            dl_iterate_phdr(&StoppedSpinner::useObject, nullptr);
        }
        struct sigaction action = {};
        action.sa_sigaction = &StoppedSpinner::handle;
        action.sa_flags = SA_SIGINFO | SA_RESTART;
        sigaction(SIGUSR1, &action, &_before);
        mustStop = true;
    }
    StoppedSpinner(const StoppedSpinner&) = delete;
    StoppedSpinner& operator=(const StoppedSpinner&) = delete;
    ~StoppedSpinner()
    {
        release();
        sigaction(SIGUSR1, &_before, nullptr);
    }

    /**
     * Interrupts the calling thread after some nanoseconds, and stops it until release() is called if it
     * spins then.
     */
    void interruptAfter(long nanoseconds)
    {
        outcome = Outcome::NONE;
        sigevent event = {};
        event.sigev_notify = SIGEV_THREAD_ID;
        event.sigev_signo = SIGUSR1;
        event._sigev_un._tid = gettid();
        const itimerspec time = {{0, 0}, {0, nanoseconds}};
        ASSERT_EQ(timer_create(CLOCK_MONOTONIC, &event, &_timer), 0);
        ASSERT_EQ(timer_settime(_timer, 0, &time, nullptr), 0);
    }

    /** Waits until the thread has been interrupted as requested. Returns true if it spun, and is now stopped.
     */
    bool hasStopped()
    {
        while (outcome == Outcome::NONE) {
            std::this_thread::yield();
        }
        timer_delete(_timer);
        return outcome == Outcome::STOPPED;
    }

    void release()
    {
        mustStop = false;
    }

private:
    enum class Outcome { NONE, STOPPED, MISSED };

    /** Finds the code of the library among the loaded objects. */
    static int findLibrary(dl_phdr_info* object, std::size_t, void*)
    {
        const char* const slash = std::strrchr(object->dlpi_name, '/');
        if (slash == nullptr || std::strncmp(slash, "/libdalnim.so", sizeof "/libdalnim.so" - 1) != 0) {
            return 0;
        }
        return useObject(object, 0, nullptr);
    }

    static int useObject(dl_phdr_info* object, std::size_t, void*)
    {
        for (ElfW(Half) i = 0; i < object->dlpi_phnum; ++i) {
            const ElfW(Phdr)& segment = object->dlpi_phdr[i];
            if (segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0) {
                codeBegin = object->dlpi_addr + segment.p_vaddr;
                codeEnd = codeBegin + segment.p_memsz;
            }
        }
        return 1;
    }

    static bool isSpinning(ElfW(Addr) interrupted)
    {
        constexpr ElfW(Addr) LOOP = 24;
        if (interrupted < codeBegin + LOOP || interrupted + LOOP > codeEnd) {
            return false;
        }
#if QV_IS_ARM64
        constexpr unsigned char PAUSE[] = {0xDF, 0x3F, 0x03, 0xD5};
#else
        constexpr unsigned char PAUSE[] = {0xF3, 0x90};
#endif
        const auto* const code = reinterpret_cast<const unsigned char*>(interrupted);
        for (const unsigned char* byte = code - LOOP; byte != code + LOOP; ++byte) {
            if (std::memcmp(byte, PAUSE, sizeof PAUSE) == 0) {
                return true;
            }
        }
        return false;
    }

    static void handle(int, siginfo_t*, void* context)
    {
        if (!isSpinning(com::kor::dal::nim::sys::internal::Registers(context).instruction())) {
            outcome = Outcome::MISSED;
            return;
        }
        outcome = Outcome::STOPPED;
        while (mustStop) {
            usleep(100);
        }
    }

    static inline std::atomic<bool> mustStop{false};
    static inline std::atomic<Outcome> outcome{Outcome::NONE};
    static inline ElfW(Addr) codeBegin = 0;
    static inline ElfW(Addr) codeEnd = 0;

    struct sigaction _before = {};
    timer_t _timer{};
};

}

#endif
