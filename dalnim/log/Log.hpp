#ifndef DALNIM_LOG_LOG_HPP
#define DALNIM_LOG_LOG_HPP

#include <dalnim/log/Control.hpp>

#include <ios>

namespace com::kor::dal::nim::log {

class Header;
class ModuleRegistration;

/**
 * A logger: takes records, and knows the one layout of a record line. A subclass that does not
 * replace log() gets its records one at a time, serialised with those of all other such loggers.
 */
class DALNIM_API Log : public Control
{
public:
    static constexpr const char CLASS_NAME[] = "Log";

    ~Log() override;

    /** Whether a record of this severity would be taken, whatever the module filter says. */
    virtual bool isSeveritySatisfied(Severity sev) const = 0;
    /** Whether there is an output in a good state. */
    virtual bool is_open() const = 0;
    /** Whether there is an output, and, if it is a file, the file is open. */
    virtual bool is_valid() const = 0;
    /** Whether the output belongs to somebody else. */
    virtual bool is_reserved() const = 0;
    /** The stream that records go to, null for none; not owned by the caller. */
    virtual std::ios* getStream() const = 0;
    using Control::setStream;
    /**
     * Sends records to a stream of the caller's, which must outlive its use. Throws `std::invalid_argument`
     * for one that cannot be written to.
     */
    virtual void setStream(std::ios& stream) = 0;

    /**
     * Takes a record: formats it and passes the line to log(const String&).
     * @param force skips the test of the severity
     */
    virtual void log(const Module& mod, const Header& rec, bool force);

protected:
    friend class Module;

    Log() noexcept;

    /**
     * The prefix of a record: the fields that the output mask selects, joined by SEPARATOR, then
     * TERMINATOR. The name of the module is escaped if getEscapeControls(). What the look-up of host, process
     * or date raises passes through.
     */
    virtual String format(const Module& mod, const Header& rec);
    /**
     * Writes a line without its trailing white space, to standard error if the stream will not take
     * it: no record is dropped.
     */
    virtual void log(const String& msg);
    /** The registration of the modules that log here; their constructors enter themselves. */
    virtual ModuleRegistration& moduleRegistrar() = 0;
    /** For loggers of several outputs: goes on to the next. Does nothing here, and nothing calls it. */
    virtual void switchFile();
};

}

#endif
