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
 * The exception of the library: a message, an error number, and the stack trace of its construction. The
 * three are separate: what() returns the message only.
 *
 * An exception can be copied through a pointer to a base class, by clone(), and can throw itself, by raise(),
 * so that one thread can store a failure that another one throws.
 */
class DALNIM_API system_error : public std::runtime_error,
                                public StackTrace,
                                public type::Cloneable,
                                public type::Raiseable
{
public:
    static constexpr const char CLASS_NAME[] = "system_error";

    /** Uses the number and the message of the current `errno`. */
    system_error();
    /** Uses the message sys_err_string(sys_err_num). */
    explicit system_error(int sys_err_num);
    /** @name A number with a message */
    /** @{ */
    /** Copies the message. */
    system_error(int err_num, const char* message);
    system_error(int err_num, const String& message);
    /** @} */
    /** Copies the message, the number and the trace. Captures no new trace. */
    system_error(const system_error& r);
    /** Copies the message and the number, and the trace as StackTrace does. */
    system_error& operator=(const system_error& r);
    ~system_error() noexcept override;

    /** Returns the message, without number and trace. Valid as long as the object is unchanged. */
    const char* what() const noexcept override;
    /** Returns a copy, owned by the caller. `deep` has no effect. */
    type::Cloneable* clone(bool deep = false) const override;
    /** Throws a copy of this object as a `system_error`. */
    [[noreturn]] void raise() const override;

    /** Returns the error number: an `errno` value, a code of the runtime layer, or -1 or 0 for none. */
    int error() const noexcept
    {
        return err;
    }

private:
    /** Stores `errno` in `e` and returns its message. */
    static String errno_init(int& e);

    int err;
};

/** Returns `errno`. */
DALNIM_API int sys_err_num() noexcept;

/** @name Messages of error numbers */
/** @{ */
/** Returns the message of an error number, at most 1023 bytes, or "Unknown error N" if there is none. */
DALNIM_API String sys_err_string(int sys_err_num);
DALNIM_API String sys_err_string(unsigned int sys_err_num);
/** @} */
/** Returns the message of the current `errno`. */
DALNIM_API String sys_err_string();

/**
 * Returns the demangled form of a C++ symbol, or `mangled` itself if it is not one.
 * @param mangled  the symbol; the result is empty if this is null
 * @param error    receives the status of the demangler, 0 on success; may be null
 */
DALNIM_API String demangle(const char* mangled, int* error = nullptr);

}

#endif
