#ifndef DALNIM_SYS_SYSERROR_HPP
#define DALNIM_SYS_SYSERROR_HPP

#include <dalnim/String.hpp>
#include <dalnim/sys/StackTrace.hpp>
#include <dalnim/type/Cloneable.hpp>
#include <dalnim/type/Raiseable.hpp>
#include <qv/pmx/api.h>

#include <stdexcept>

namespace com::kor::dal::nim::sys {

/**
 * The exception of the library: a message, an error number, and the trace of the tracks that were
 * open when it was built. The three are separate: what() is the bare message.
 *
 * It can be copied through a base pointer (clone) and can throw itself (raise), so that a failure
 * on one thread is stored and raised on another.
 */
class DALNIM_API system_error : public std::runtime_error,
                                public StackTrace,
                                public type::Cloneable,
                                public type::Raiseable
{
public:
    static constexpr const char CLASS_NAME[] = "system_error";

    /** Number and message of the thread's current `errno`. */
    system_error();
    /** The message is sys_err_string(sys_err_num). */
    explicit system_error(int sys_err_num);
    /** A message of the caller's, copied, and a number. */
    system_error(int err_num, const char* message);
    /** The same. */
    system_error(int err_num, const String& message);
    /** Copies message, number and trace; captures nothing anew. */
    system_error(const system_error& r);
    /** Takes over message and number, and the trace as StackTrace does. */
    system_error& operator=(const system_error& r);
    ~system_error() noexcept override;

    /** The bare message: no number, no trace. Valid as long as the object is unchanged. */
    const char* what() const noexcept override;
    /** A copy owned by the caller, the same whether deep or not. */
    type::Cloneable* clone(bool deep = false) const override;
    /** Throws a copy of this object as a `system_error`. */
    [[noreturn]] void raise() const override;

    /** The error number: an `errno` value, -1 or 0 for a failure without one, or a runtime code. */
    int error() const noexcept
    {
        return err;
    }

private:
    static String errno_init(int& e);

    int err;
};

/** The thread's `errno`. */
DALNIM_API int sys_err_num() noexcept;

/** The text of an error number, "Unknown error N" for one that has none; at most 1023 bytes. */
DALNIM_API String sys_err_string(int sys_err_num);
/** The same. */
DALNIM_API String sys_err_string(unsigned int sys_err_num);
/** The text of the thread's current `errno`. */
DALNIM_API String sys_err_string();

/**
 * The readable form of a symbol of the C++ ABI, or `mangled` itself when it is none.
 * @param mangled may be null, which gives the empty text
 * @param error   receives the demangler's status, 0 on success, unless null
 */
DALNIM_API String demangle(const char* mangled, int* error = nullptr);

}

#endif
