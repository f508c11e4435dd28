#ifndef QV_RTLAPI_RX_EXFATAL_HPP
#define QV_RTLAPI_RX_EXFATAL_HPP

#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_Exception.hpp>

/** A failure after which the operation cannot go on. */
class DALNIM_API RX_ExFatal : public RX_Exception
{
public:
    /** A message without a source position: its code, and up to six arguments. */
    explicit RX_ExFatal(int code, const RX_String& a1 = RX_String::none,
                        const RX_String& a2 = RX_String::none, const RX_String& a3 = RX_String::none,
                        const RX_String& a4 = RX_String::none, const RX_String& a5 = RX_String::none,
                        const RX_String& a6 = RX_String::none);
    /** A message and the source position that it is raised from. */
    RX_ExFatal(unsigned int line, const RX_String& file, int code, const RX_String& a1 = RX_String::none,
               const RX_String& a2 = RX_String::none, const RX_String& a3 = RX_String::none,
               const RX_String& a4 = RX_String::none, const RX_String& a5 = RX_String::none,
               const RX_String& a6 = RX_String::none);
    /** A deep copy of any exception of the tree, as one of this type. */
    explicit RX_ExFatal(const RX_Exception& other);
    /** @name Copying */
    /** @{ */
    /** A deep copy: the chained messages too. */
    RX_ExFatal(const RX_ExFatal& other) = default;
    RX_ExFatal& operator=(const RX_ExFatal& other) = default;
    /** @} */
    ~RX_ExFatal() override;

    [[noreturn]] void throwThis() const override;
    RX_ExFatal* clone() const override;
};

#endif
