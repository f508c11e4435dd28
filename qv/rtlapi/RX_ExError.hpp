#ifndef QV_RTLAPI_RX_EXERROR_HPP
#define QV_RTLAPI_RX_EXERROR_HPP

#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_ExFatal.hpp>

/** An error: one operation failed. */
class DALNIM_API RX_ExError : public RX_ExFatal
{
public:
    /** Constructs a message with up to six arguments, without a source position. */
    explicit RX_ExError(int code, const RX_String& a1 = RX_String::none,
                        const RX_String& a2 = RX_String::none, const RX_String& a3 = RX_String::none,
                        const RX_String& a4 = RX_String::none, const RX_String& a5 = RX_String::none,
                        const RX_String& a6 = RX_String::none);
    /** Constructs a message with up to six arguments and the source position of the `throw`. */
    RX_ExError(unsigned int line, const RX_String& file, int code, const RX_String& a1 = RX_String::none,
               const RX_String& a2 = RX_String::none, const RX_String& a3 = RX_String::none,
               const RX_String& a4 = RX_String::none, const RX_String& a5 = RX_String::none,
               const RX_String& a6 = RX_String::none);
    /** Makes a deep copy of any RX_Exception, as an exception of this type. */
    explicit RX_ExError(const RX_Exception& other);
    /** @name Copying */
    /** @{ */
    /** Makes a deep copy, including the chained messages. */
    RX_ExError(const RX_ExError& other) = default;
    RX_ExError& operator=(const RX_ExError& other) = default;
    /** @} */
    ~RX_ExError() override;

    [[noreturn]] void throwThis() const override;
    RX_ExError* clone() const override;
};

#endif
