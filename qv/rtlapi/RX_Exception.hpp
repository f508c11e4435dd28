#ifndef QV_RTLAPI_RX_EXCEPTION_HPP
#define QV_RTLAPI_RX_EXCEPTION_HPP

/**
 * @file
 * The base of the exceptions of the runtime layer, and the checks that throw them.
 */

#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_Exception_.hpp>

/** Base of all exceptions of the runtime layer. Not derived from `std::exception`. */
class DALNIM_API RX_Exception : public RX_Exception_
{
public:
    /** Constructs a message with up to six arguments, without a source position. */
    explicit RX_Exception(int code, const RX_String& a1 = RX_String::none,
                          const RX_String& a2 = RX_String::none, const RX_String& a3 = RX_String::none,
                          const RX_String& a4 = RX_String::none, const RX_String& a5 = RX_String::none,
                          const RX_String& a6 = RX_String::none);
    /** Constructs a message with up to six arguments and the source position of the `throw`. */
    RX_Exception(unsigned int line, const RX_String& file, int code, const RX_String& a1 = RX_String::none,
                 const RX_String& a2 = RX_String::none, const RX_String& a3 = RX_String::none,
                 const RX_String& a4 = RX_String::none, const RX_String& a5 = RX_String::none,
                 const RX_String& a6 = RX_String::none);
    /** @name Copying */
    /** @{ */
    /** Makes a deep copy, including the chained messages. */
    RX_Exception(const RX_Exception& other) = default;
    RX_Exception& operator=(const RX_Exception& other) = default;
    /** @} */
    ~RX_Exception() override;

    [[noreturn]] void throwThis() const override;
    RX_Exception* clone() const override;
};

/** Throws RX_ExFatal with `status`, which must not be 0, as its code. */
[[noreturn]] DALNIM_API void RX_CheckThrow_(int status);

/** Throws RX_ExFatal with `status` as its code, unless that is 0. */
inline void RX_Check(int status)
{
    if (__builtin_expect(status != 0, 0)) {
        RX_CheckThrow_(status);
    }
}

/**
 * Copies the current exception; called from a handler.
 *
 * - An RX_Exception is cloned, with its dynamic type.
 * - A `std::system_error` of the system or generic category becomes an RX_ExFatal with its error number,
 *   `std::bad_alloc` one with ENOMEM (12), and any other `std::exception` one with the code 51536. Its
 *   argument is the message of the exception.
 * - An exception of any other type becomes an RX_ExFatal with the code 51537, and the name of the type as its
 *   argument if that is available.
 *
 * @return the copy, owned by the caller, or null if no exception is being handled
 */
DALNIM_API RX_Exception* RX_analyzeCurrentException_();

#endif
