#ifndef QV_RTLAPI_RX_EXWARNING_HPP
#define QV_RTLAPI_RX_EXWARNING_HPP

#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_ExError.hpp>

/** A refusal that the caller is to reckon with. */
class DALNIM_API RX_ExWarning : public RX_ExError
{
public:
    /** A message without a source position: its code, and up to six arguments. */
    explicit RX_ExWarning(int code, const RX_String& a1 = RX_String::none,
                          const RX_String& a2 = RX_String::none, const RX_String& a3 = RX_String::none,
                          const RX_String& a4 = RX_String::none, const RX_String& a5 = RX_String::none,
                          const RX_String& a6 = RX_String::none);
    /** A message and the source position that it is raised from. */
    RX_ExWarning(unsigned int line, const RX_String& file, int code, const RX_String& a1 = RX_String::none,
                 const RX_String& a2 = RX_String::none, const RX_String& a3 = RX_String::none,
                 const RX_String& a4 = RX_String::none, const RX_String& a5 = RX_String::none,
                 const RX_String& a6 = RX_String::none);
    /** A deep copy of any exception of the tree, as one of this type. */
    explicit RX_ExWarning(const RX_Exception& other);
    /** @name Copying */
    /** @{ */
    /** A deep copy: the chained messages too. */
    RX_ExWarning(const RX_ExWarning& other) = default;
    RX_ExWarning& operator=(const RX_ExWarning& other) = default;
    /** @} */
    ~RX_ExWarning() override;

    [[noreturn]] void throwThis() const override;
    RX_ExWarning* clone() const override;
};

#endif
