#ifndef TESTS_LOG_LOGGERS_HPP
#define TESTS_LOG_LOGGERS_HPP

#include <dalnim/log/Header.hpp>
#include <dalnim/log/Log.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/ModuleRegistration.hpp>
#include <dalnim/log/Write.hpp>

#include <atomic>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace logtest {

using com::kor::dal::nim::String;
namespace log = com::kor::dal::nim::log;

typedef log::Control::SeverityColl SeverityColl;
typedef log::Control::StringColl StringColl;

/** The fields of a prefix that are the same on every run, less the line. */
constexpr unsigned int FIXED_FIELDS = log::Mask_MODULENAME | log::Mask_SEVERITY | log::Mask_SOURCEFILE;

/** The front of what the logger reports with these fields. */
constexpr char REPORT[] = "com.kor.dal.nim.log.internal INFO Write : Changing logging setting: ";

inline log::Write& defaultWrite()
{
    return dynamic_cast<log::Write&>(log::GET_NIM_LOG_LOGGER_VAR());
}

inline std::ios& asIos(std::ostream& stream)
{
    return stream;
}

/** What a stream has taken since the last call. */
inline String take(std::ostringstream& stream)
{
    const String text = stream.str();
    stream.str("");
    return text;
}

/**
 * The default logger on a text stream, with short prefixes, all else as at load, and its stream
 * header behind it. At the end it is on standard error again.
 */
class DefaultLogger
{
public:
    DefaultLogger()
    {
        settle();
        write().setOutputMask(FIXED_FIELDS);
        write().getStream();
        taken();
    }
    DefaultLogger(const DefaultLogger&) = delete;
    DefaultLogger& operator=(const DefaultLogger&) = delete;
    ~DefaultLogger()
    {
        settle();
        write().setOutputMask(log::Mask_ALL);
        write().setStream(asIos(std::cerr));
    }

    log::Write& write() const
    {
        return defaultWrite();
    }
    log::Write* operator->() const
    {
        return &defaultWrite();
    }

    /** What was logged since the last call. */
    String taken()
    {
        return take(sink);
    }

    std::ostringstream sink;

private:
    void settle()
    {
        write().setStream(asIos(sink));
        write().setSeverity(log::Severity_NOTICE);
        write().setModuleFilter("", false);
        write().setLocaltime(false);
        write().allowRemoteControl(false);
        write().setMaxFileSize(0);
        write().setMaxNumberOfFiles(0);
        write().setEscapeControls(false);
        write().setPriorityPrefix(false);
        write().setTimeFormat(log::TimeFormat_LOCAL);
        write().setFallback(false);
        write().setFileMode(log::Control::MODE_OF_UMASK);
    }
};

/** A logger of its own on a text stream. */
class OwnLogger
{
public:
    explicit OwnLogger(unsigned int mask = FIXED_FIELDS)
    {
        write.setStream(asIos(sink));
        write.setOutputMask(mask);
    }

    String taken()
    {
        return take(sink);
    }

    std::ostringstream sink;
    log::Write write;
};

/** A logger that replaces nothing of what Log itself does. */
class PlainLog : public log::Log
{
public:
    // Configuration: of no matter here, except the mask.
    void setConfiguration(const com::kor::dal::nim::io::Properties&) override {}
    bool remoteControlAllowed() const override
    {
        return false;
    }
    bool allowRemoteControl(bool) override
    {
        return false;
    }
    const String getPath() const override
    {
        return String();
    }
    void setPath(const String&) override {}
    void setStream(const String&) override {}
    unsigned int getOutputMask() const override
    {
        return mask;
    }
    void setOutputMask(unsigned int newMask) override
    {
        mask = newMask;
    }
    log::Severity getSeverity() const override
    {
        return threshold;
    }
    using Control::setSeverity;
    void setSeverity(log::Severity newSev) override
    {
        threshold = newSev;
    }
    void getSeverityMask(SeverityColl&) const override {}
    void getSeverityMask(StringColl&) const override {}
    using Control::setSeverityMask;
    void setSeverityMask(log::Severity severity, bool on) override
    {
        masked = {severity};
        maskedOn = on;
    }
    void setSeverityMask(const SeverityColl& severities, bool on) override
    {
        masked = severities;
        maskedOn = on;
    }
    void setSeverityMask(const StringColl&, bool) override {}
    bool getLocaltime() const override
    {
        return false;
    }
    bool setLocaltime(bool) override
    {
        return false;
    }
    void getModuleFilter(StringColl&) const override {}
    void setModuleFilter(const String&, bool) override {}
    void getModulesRegisteredDynamic(StringColl&) const override {}
    void getModulesRegisteredStatic(StringColl&) const override {}

    // The record path.
    bool isSeveritySatisfied(log::Severity sev) const override
    {
        ++asked;
        return sev >= threshold;
    }
    bool is_open() const override
    {
        return false;
    }
    bool is_valid() const override
    {
        return false;
    }
    bool is_reserved() const override
    {
        return false;
    }
    std::ios* getStream() const override
    {
        return stream;
    }
    void setStream(std::ios& newStream) override
    {
        stream = &newStream;
    }

    using Log::format;
    using Log::log;
    using Log::switchFile;
    log::ModuleRegistration& moduleRegistrar() override
    {
        return registration;
    }

    unsigned int mask = log::Mask_ALL;
    log::Severity threshold = log::Severity_NOTICE;
    std::ios* stream = nullptr;
    SeverityColl masked;
    bool maskedOn = false;
    mutable std::atomic<int> asked{0};
    log::ModuleRegistration registration;
};

/** A stream's output as a text, until the end of its scope. */
class Captured
{
public:
    explicit Captured(std::ostream& captured) : stream(captured), old(captured.rdbuf(buffer.rdbuf())) {}
    Captured(const Captured&) = delete;
    Captured& operator=(const Captured&) = delete;
    ~Captured()
    {
        stream.rdbuf(old);
    }

    String taken()
    {
        return take(buffer);
    }

private:
    std::ostringstream buffer;
    std::ostream& stream;
    std::streambuf* old;
};

/** What the default logger reports of a change of `setting`, with both values. */
inline String changed(const String& setting, const String& oldValue, const String& newValue)
{
    return REPORT + setting + "\n\told: " + oldValue + "\n\tnew: " + newValue + '\n';
}

inline SeverityColl maskOf(const log::Write& logger)
{
    SeverityColl mask{log::Severity_FATAL};
    logger.getSeverityMask(mask);
    return mask;
}

inline StringColl filterOf(const log::Write& logger)
{
    StringColl filter{"cleared"};
    logger.getModuleFilter(filter);
    return filter;
}

/** Writes "global ERROR Source : <text>" by the fixed fields. */
inline void writeError(log::Write& logger, const String& text)
{
    log::Header header(log::Severity_ERROR, "x/Source", 7);
    header.os() << text;
    logger.log(log::Module::DEFAULT_INSTANCE, header, false);
}

/** The text behind its first newline. */
inline String behindFirstLine(const String& text)
{
    const std::size_t end = text.find('\n');
    return end != String::npos ? text.substr(end + 1) : String();
}

inline String firstLine(const String& text)
{
    return text.substr(0, text.find('\n'));
}

/** What `call` throws as an E, or "nothing". */
template <class E, class Call>
String textOf(Call call)
{
    try {
        call();
    } catch (const E& exc) {
        return exc.what();
    }
    return "nothing";
}

}

#endif
