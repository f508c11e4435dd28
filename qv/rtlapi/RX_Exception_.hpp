#ifndef QV_RTLAPI_RX_EXCEPTION_PRIVATE_HPP
#define QV_RTLAPI_RX_EXCEPTION_PRIVATE_HPP

#include <memory>

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_String.hpp>

class RX_Exception;

/**
 * The implementation of the exceptions: a chain of messages, each an error code with up to six
 * arguments, the first with the source position that it was raised from.
 *
 * Thread safety: like an `int`.
 */
class DALNIM_API RX_Exception_
{
public:
    /** How many arguments a message can have. */
    static constexpr unsigned int ARGUMENTS = 6;

    virtual ~RX_Exception_();

    /** The code of the first message. */
    qv_err_t getCode() const noexcept
    {
        return _code;
    }
    /** The source line, 0 when none was told. */
    unsigned int getLine() const noexcept
    {
        return _line;
    }
    /** The source file; empty when none was told. */
    const RX_String& getFile() const noexcept
    {
        return _file;
    }
    /** A message argument, from 0; RX_String::none when it was left out or beyond the sixth. */
    const RX_String& getArgument(unsigned int index) const noexcept;

    /** Hangs a further message behind the last one. Gives this exception. */
    RX_Exception_& chain(int code, const RX_String& a1 = RX_String::none,
                         const RX_String& a2 = RX_String::none, const RX_String& a3 = RX_String::none,
                         const RX_String& a4 = RX_String::none, const RX_String& a5 = RX_String::none,
                         const RX_String& a6 = RX_String::none);

    /**
     * The whole message: for every message of the chain, on a line of its own, the text of its code
     * and its arguments. Lines longer than `width` are folded at blanks; a longer word stays whole.
     *
     * @param width  0 folds nothing
     */
    virtual RX_String asString(unsigned int width) const;

    /** Throws a copy of this exception with its most derived type. */
    [[noreturn]] virtual void throwThis() const = 0;

    /** A copy with the most derived type, for the caller to delete. */
    virtual RX_Exception* clone() const = 0;

protected:
    /** A message and the source position that it is raised from. */
    RX_Exception_(unsigned int line, const RX_String& file, int code, const RX_String& a1,
                  const RX_String& a2, const RX_String& a3, const RX_String& a4, const RX_String& a5,
                  const RX_String& a6);
    /** @name Copying */
    /** @{ */
    /** A deep copy: the chained messages too. */
    RX_Exception_(const RX_Exception_& other);
    RX_Exception_& operator=(const RX_Exception_& other);
    /** @} */

    /** Takes over position, code and arguments of `other`, not what is chained behind it. */
    void copyData(const RX_Exception_& other) noexcept;
    /** Takes over all of `other`, with copies of the messages chained behind it. */
    void deepCopy(const RX_Exception_& other);

private:
    struct Message;

    unsigned int _line;
    RX_String _file;
    int _code;
    RX_String _arguments[ARGUMENTS];
    std::unique_ptr<Message> _next;
};

#endif
