#ifndef QV_RTLAPI_RX_EXCEPTION_PRIVATE_HPP
#define QV_RTLAPI_RX_EXCEPTION_PRIVATE_HPP

#include <memory>

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_String.hpp>

class RX_Exception;

/**
 * Implementation of the exceptions: a chain of messages. Each message is an error code with up to six
 * arguments; the first one also has the source position of the `throw`.
 *
 * Thread safety: as for an `int`.
 */
class DALNIM_API RX_Exception_
{
public:
    /** Maximum number of arguments of a message. */
    static constexpr unsigned int ARGUMENTS = 6;

    virtual ~RX_Exception_();

    /** Returns the code of the first message. */
    qv_err_t getCode() const noexcept
    {
        return _code;
    }
    /** Returns the source line, or 0 if there is none. */
    unsigned int getLine() const noexcept
    {
        return _line;
    }
    /** Returns the source file; empty if there is none. */
    const RX_String& getFile() const noexcept
    {
        return _file;
    }
    /** Returns an argument of the first message, counted from 0, or RX_String::none if there is none. */
    const RX_String& getArgument(unsigned int index) const noexcept;

    /** Appends a message to the chain. Returns this exception. */
    RX_Exception_& chain(int code, const RX_String& a1 = RX_String::none,
                         const RX_String& a2 = RX_String::none, const RX_String& a3 = RX_String::none,
                         const RX_String& a4 = RX_String::none, const RX_String& a5 = RX_String::none,
                         const RX_String& a6 = RX_String::none);

    /**
     * Formats all messages of the chain, one per line: the message of the code, then the arguments. Lines
     * longer than `width` are wrapped at spaces; a longer word is not broken.
     *
     * @param width  maximum length of a line, in bytes; 0 does not wrap
     */
    virtual RX_String asString(unsigned int width) const;

    /** Throws a copy of this exception, of its most derived type. */
    [[noreturn]] virtual void throwThis() const = 0;

    /** Returns a copy of the most derived type, owned by the caller. */
    virtual RX_Exception* clone() const = 0;

protected:
    /** Constructs a message with the source position of the `throw`. */
    RX_Exception_(unsigned int line, const RX_String& file, int code, const RX_String& a1,
                  const RX_String& a2, const RX_String& a3, const RX_String& a4, const RX_String& a5,
                  const RX_String& a6);
    /** @name Copying */
    /** @{ */
    /** Makes a deep copy, including the chained messages. */
    RX_Exception_(const RX_Exception_& other);
    RX_Exception_& operator=(const RX_Exception_& other);
    /** @} */

    /** Copies position, code and arguments of `other`, but not its chained messages. */
    void copyData(const RX_Exception_& other) noexcept;
    /** Copies all of `other`, including the chained messages. */
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
