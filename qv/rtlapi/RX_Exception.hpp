#ifndef QV_RTLAPI_RX_EXCEPTION_HPP
#define QV_RTLAPI_RX_EXCEPTION_HPP

/**
 * @file
 * The root of the exceptions of the runtime layer, and the checks that raise them.
 */

#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_Exception_.hpp>

/** The root of what the runtime layer throws. It is no `std::exception`. */
class DALNIM_API RX_Exception : public RX_Exception_
{
public:
    /** A message without a source position: its code, and up to six arguments. */
    explicit RX_Exception(int code, const RX_String& a1 = RX_String::none,
                          const RX_String& a2 = RX_String::none, const RX_String& a3 = RX_String::none,
                          const RX_String& a4 = RX_String::none, const RX_String& a5 = RX_String::none,
                          const RX_String& a6 = RX_String::none);
    /** A message and the source position that it is raised from. */
    RX_Exception(unsigned int line, const RX_String& file, int code, const RX_String& a1 = RX_String::none,
                 const RX_String& a2 = RX_String::none, const RX_String& a3 = RX_String::none,
                 const RX_String& a4 = RX_String::none, const RX_String& a5 = RX_String::none,
                 const RX_String& a6 = RX_String::none);
    /** @name Copying */
    /** @{ */
    /** A deep copy: the chained messages too. */
    RX_Exception(const RX_Exception& other) = default;
    RX_Exception& operator=(const RX_Exception& other) = default;
    /** @} */
    ~RX_Exception() override;

    [[noreturn]] void throwThis() const override;
    RX_Exception* clone() const override;
};

/** Throws the RX_ExFatal of a status that is not 0. */
[[noreturn]] DALNIM_API void RX_CheckThrow_(int status);

/** Throws unless `status` is 0. */
inline void RX_Check(int status)
{
    if (__builtin_expect(status != 0, 0)) {
        RX_CheckThrow_(status);
    }
}

/**
 * From inside a handler: a copy of the exception in flight, for the caller to delete. An RX_Exception
 * keeps its dynamic type. A `std::system_error` of the system's category becomes an RX_ExFatal with
 * its number, `std::bad_alloc` one with ENOMEM, any other `std::exception` one with the code 51536;
 * each has the text of the exception as its argument. Whatever else it is becomes an RX_ExFatal with the
 * code 51537 and, if it is to be had, the name of its type. Null when nothing is in flight.
 */
DALNIM_API RX_Exception* RX_analyzeCurrentException_();

#endif
