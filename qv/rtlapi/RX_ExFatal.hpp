#ifndef QV_RTLAPI_RX_EXFATAL_HPP
#define QV_RTLAPI_RX_EXFATAL_HPP

#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_Exception.hpp>

/** A fatal error: the operation cannot continue. Base of errors and warnings. */
class DALNIM_API RX_ExFatal : public RX_Exception
{
public:
    /** Constructs a message with up to six arguments, without a source position. */
    explicit RX_ExFatal(int code, const RX_String& a1 = RX_String::none,
                        const RX_String& a2 = RX_String::none, const RX_String& a3 = RX_String::none,
                        const RX_String& a4 = RX_String::none, const RX_String& a5 = RX_String::none,
                        const RX_String& a6 = RX_String::none);
    /** Constructs a message with up to six arguments and the source position of the `throw`. */
    RX_ExFatal(unsigned int line, const RX_String& file, int code, const RX_String& a1 = RX_String::none,
               const RX_String& a2 = RX_String::none, const RX_String& a3 = RX_String::none,
               const RX_String& a4 = RX_String::none, const RX_String& a5 = RX_String::none,
               const RX_String& a6 = RX_String::none);
    /** Makes a deep copy of any RX_Exception, as an exception of this type. */
    explicit RX_ExFatal(const RX_Exception& other);
    /** @name Copying */
    /** @{ */
    /** Makes a deep copy, including the chained messages. */
    RX_ExFatal(const RX_ExFatal& other) = default;
    RX_ExFatal& operator=(const RX_ExFatal& other) = default;
    /** @} */
    ~RX_ExFatal() override;

    [[noreturn]] void throwThis() const override;
    RX_ExFatal* clone() const override;
};

#endif
