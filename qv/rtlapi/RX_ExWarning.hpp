#ifndef QV_RTLAPI_RX_EXWARNING_HPP
#define QV_RTLAPI_RX_EXWARNING_HPP

#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_ExError.hpp>

/** A warning: a failure that callers are expected to handle, such as denied access or a time-out. */
class DALNIM_API RX_ExWarning : public RX_ExError
{
public:
    /** Constructs a message with up to six arguments, without a source position. */
    explicit RX_ExWarning(int code, const RX_String& a1 = RX_String::none,
                          const RX_String& a2 = RX_String::none, const RX_String& a3 = RX_String::none,
                          const RX_String& a4 = RX_String::none, const RX_String& a5 = RX_String::none,
                          const RX_String& a6 = RX_String::none);
    /** Constructs a message with up to six arguments and the source position of the `throw`. */
    RX_ExWarning(unsigned int line, const RX_String& file, int code, const RX_String& a1 = RX_String::none,
                 const RX_String& a2 = RX_String::none, const RX_String& a3 = RX_String::none,
                 const RX_String& a4 = RX_String::none, const RX_String& a5 = RX_String::none,
                 const RX_String& a6 = RX_String::none);
    /** Makes a deep copy of any RX_Exception, as an exception of this type. */
    explicit RX_ExWarning(const RX_Exception& other);
    /** @name Copying */
    /** @{ */
    /** Makes a deep copy, including the chained messages. */
    RX_ExWarning(const RX_ExWarning& other) = default;
    RX_ExWarning& operator=(const RX_ExWarning& other) = default;
    /** @} */
    ~RX_ExWarning() override;

    [[noreturn]] void throwThis() const override;
    RX_ExWarning* clone() const override;
};

#endif
