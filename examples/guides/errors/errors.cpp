#include <dalnim/nim.hpp>

#include <cerrno>
#include <iostream>
#include <stdexcept>

using namespace com::kor::dal::nim;

namespace bank {

const char NAMESPACE_NAME[] = "bank";

class Account
{
public:
    static constexpr const char CLASS_NAME[] = "Account";

    void withdraw(int amount)
    {
        const sys::StackTrack track("withdraw()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
        if (amount > balance) {
            throw sys::system_error(ERANGE, "the balance is " + std::to_string(balance));
        }
        balance -= amount;
    }

private:
    int balance = 100;
};

/** Work for a separate thread. */
class Payment : public mt::Runnable
{
public:
    void run() override
    {
        const sys::StackTrack track("run()", "Payment", NAMESPACE_NAME, __LINE__);
        Account().withdraw(500);
    }
};

}

int main()
{
    com_kor_dal_nim_log_control.setOutputMask(log::Mask_SEVERITY);
    const sys::StackTrack track("main()", __LINE__);

    // A failure of the library: its error number, its message and its stack trace.
    try {
        io::fullPath("no/such/file");
    } catch (const sys::system_error& failure) {
        const sys::StackTrace& trace = failure;
        std::cerr << failure.error() << ": " << failure.what() << '\n' << trace;
    }

    // The severity selects how much of it is logged.
    try {
        bank::Account().withdraw(200);
    } catch (const std::exception& failure) {
        NIM_LOG_TRAPPED(Severity_WARNING, failure, "with the trace");
        com_kor_dal_nim_log_control.setSeverity(log::Severity_DEBUG);
        NIM_LOG_TRAPPED(Severity_INFO, failure, "without it");
        NIM_LOG_TRAPPED(Severity_DEBUG, failure, "with the type, too");
    }

    // The exception that ended a thread is thrown again on the thread that joins it.
    bank::Payment payment;
    mt::Thread thread(payment, true, "payment");
    thread.start();
    try {
        if (const std::exception* const failure = thread.join()) {
            if (const auto* const raiseable = dynamic_cast<const type::Raiseable*>(failure)) {
                raiseable->raise();
            }
            throw std::runtime_error(failure->what());
        }
    } catch (const sys::system_error& failure) {
        std::cerr << "the payment: " << failure.what() << '\n' << failure.toString();
    }
}
