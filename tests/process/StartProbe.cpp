/**
 * A program that uses little of the library, and only refers to what it uses. A static object logs and
 * configures the log before main(), which prints the time zone of the process and what a report of threads
 * contains about a task.
 */

#include <dalnim/log/Common.hpp>
#include <dalnim/log/Control.hpp>
#include <dalnim/log/Statement.hpp>
#include <dalnim/mt/Runnable.hpp>
#include <dalnim/mt/Thread.hpp>
#include <dalnim/sys/DynLibrary.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/ThreadReport.hpp>

#include <ctime>
#include <iostream>

namespace {

namespace nim = com::kor::dal::nim;
using nim::sys::ThreadReport;

struct StaticUser
{
    StaticUser()
    {
        NIM_LOG(Severity_WARNING) << "static object";
        com_kor_dal_nim_log_control.setOutputMask(nim::log::Mask_SEVERITY);
        try {
            nim::sys::DynLibrary::load("no-such-plug-in.so");
        } catch (const nim::sys::system_error& failure) {
            NIM_LOG(Severity_WARNING) << failure.error();
        }
    }
};

const StaticUser static_user;

class Reporter : public nim::mt::Runnable
{
    void run() override
    {
        const ThreadReport report;
        for (const ThreadReport::Entry& entry : report.threads()) {
            if (entry.hasTask) {
                std::cout << "task " << entry.taskName << '\n';
            }
        }
    }
};

}

int main()
{
    std::cout << "zone " << timezone << '\n';
    ThreadReport::install();
    Reporter reporter;
    nim::mt::Thread thread(reporter, true, "reporter");
    thread.start();
    thread.join();
}
