#ifndef DALNIM_LOG_LOG_HPP
#define DALNIM_LOG_LOG_HPP

#include <dalnim/log/Control.hpp>

#include <ios>

namespace com::kor::dal::nim::log {

class Header;
class ModuleRegistration;

/**
 * A logger: receives records, and defines the layout of a record line. A subclass that does not override
 * log(const Module&, const Header&, bool) receives its lines one at a time, serialised with those of all
 * other such loggers.
 */
class DALNIM_API Log : public Control
{
public:
    static constexpr const char CLASS_NAME[] = "Log";

    ~Log() override;

    /** Returns true if records of this severity are logged; the module filter is not considered. */
    virtual bool isSeveritySatisfied(Severity sev) const = 0;
    /** Returns true if there is an output in a good state. */
    virtual bool is_open() const = 0;
    /** Returns true if there is an output and, if it is a file, the file is open. */
    virtual bool is_valid() const = 0;
    /** Returns true if the output is a stream that the logger does not own. */
    virtual bool is_reserved() const = 0;
    /** Returns the stream that records are written to, or null. The caller does not own it. */
    virtual std::ios* getStream() const = 0;
    using Control::setStream;
    /**
     * Writes records to a stream of the caller.
     * @param stream  must exist until another output is set
     * @throws std::invalid_argument if it is not a `std::ostream`
     */
    virtual void setStream(std::ios& stream) = 0;

    /**
     * Logs a record: formats it, and passes the line to log(const String&).
     * @param force  skips the severity check
     */
    virtual void log(const Module& mod, const Header& rec, bool force);

protected:
    friend class Module;

    Log() noexcept;

    /**
     * Returns the prefix of a record: the fields that the output mask selects, joined by SEPARATOR, then
     * TERMINATOR. The name of the module is escaped if getEscapeControls().
     * @throws sys::system_error if the host name, the process name or the date cannot be determined
     */
    virtual String format(const Module& mod, const Header& rec);
    /**
     * Writes a line without its trailing white space. A line that the stream rejects is written to standard
     * error: no record is dropped.
     */
    virtual void log(const String& msg);
    /** Returns the registration of this logger's modules, whose constructors register them there. */
    virtual ModuleRegistration& moduleRegistrar() = 0;
    /** Switches a logger with several outputs to the next one. Does nothing here, and is not called. */
    virtual void switchFile();
};

}

#endif
