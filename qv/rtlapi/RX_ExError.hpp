#ifndef QV_RTLAPI_RX_EXERROR_HPP
#define QV_RTLAPI_RX_EXERROR_HPP

#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_ExFatal.hpp>

/** A failure of one operation. */
class DALNIM_API RX_ExError : public RX_ExFatal
{
public:
    /** A message without a source position: its code, and up to six arguments. */
    explicit RX_ExError(int code, const RX_String& a1 = RX_String::none,
                        const RX_String& a2 = RX_String::none, const RX_String& a3 = RX_String::none,
                        const RX_String& a4 = RX_String::none, const RX_String& a5 = RX_String::none,
                        const RX_String& a6 = RX_String::none);
    /** A message and the source position that it is raised from. */
    RX_ExError(unsigned int line, const RX_String& file, int code, const RX_String& a1 = RX_String::none,
               const RX_String& a2 = RX_String::none, const RX_String& a3 = RX_String::none,
               const RX_String& a4 = RX_String::none, const RX_String& a5 = RX_String::none,
               const RX_String& a6 = RX_String::none);
    /** A deep copy of any exception of the tree, as one of this type. */
    explicit RX_ExError(const RX_Exception& other);
    /** @name Copying */
    /** @{ */
    /** A deep copy: the chained messages too. */
    RX_ExError(const RX_ExError& other) = default;
    RX_ExError& operator=(const RX_ExError& other) = default;
    /** @} */
    ~RX_ExError() override;

    [[noreturn]] void throwThis() const override;
    RX_ExError* clone() const override;
};

#endif
