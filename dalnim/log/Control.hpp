#ifndef DALNIM_LOG_CONTROL_HPP
#define DALNIM_LOG_CONTROL_HPP

#include <dalnim/String.hpp>
#include <dalnim/log/Common.hpp>
#include <qv/pmx/api.h>

#include <cstddef>
#include <vector>

namespace com::kor::dal::nim::io {
class Properties;
}

namespace com::kor::dal::nim::log {

/** The interface through which a logger is configured. The operations' meaning is told at Write. */
class DALNIM_API Control
{
public:
    static constexpr const char CLASS_NAME[] = "Control";

    // The last part of the configuration keys, behind "com.kor.dal.nim.log.Control.".
    static constexpr const char TAG_OUTPUT_DIRECTORY[] = "directory";
    static constexpr const char TAG_OUTPUT_FILE[] = "file";
    static constexpr const char TAG_OUTPUT_STREAM[] = "stream";
    static constexpr const char TAG_SEVERITY_ID[] = "severity.id";
    static constexpr const char TAG_SEVERITY_MASK[] = "severity.mask";
    static constexpr const char TAG_OUTPUT_MASK[] = "output.mask";
    static constexpr const char TAG_MODULE_LIST[] = "modules";
    static constexpr const char TAG_ALLOW_REMOTE[] = "remote.enable";
    static constexpr const char TAG_RECORD_LOCAL_TIME[] = "localtime";
    static constexpr const char TAG_MAX_FILE_SIZE[] = "maxFileSize";
    static constexpr const char TAG_MAX_NUMBER_OF_FILES[] = "maxNumberOfFiles";

    /** What a logger that is made from now on starts with; Mask_ALL and NOTICE at load. */
    static unsigned int DEFAULT_MASK;
    static Severity DEFAULT_SEVERITY;

    typedef std::vector<Severity> SeverityColl;
    typedef std::vector<String> StringColl;

    virtual ~Control() = 0;

    virtual void setConfiguration(const io::Properties& opts) = 0;
    virtual bool remoteControlAllowed() const = 0;
    virtual bool allowRemoteControl(bool allow) = 0;
    virtual const String getPath() const = 0;
    virtual void setPath(const String& path) = 0;
    virtual void setStream(const String& stream) = 0;
    virtual unsigned int getOutputMask() const = 0;
    virtual void setOutputMask(unsigned int newMask) = 0;
    virtual Severity getSeverity() const = 0;
    virtual void setSeverity(Severity newSev) = 0;
    virtual void getSeverityMask(SeverityColl& severities) const = 0;
    virtual void getSeverityMask(StringColl& severities) const = 0;
    virtual void setSeverityMask(Severity severityId, bool on) = 0;
    virtual void setSeverityMask(const SeverityColl& severities, bool on) = 0;
    virtual void setSeverityMask(const StringColl& severities, bool on) = 0;
    virtual bool getLocaltime() const = 0;
    virtual bool setLocaltime(bool on) = 0;
    virtual void getModuleFilter(StringColl& modules) const = 0;
    virtual void setModuleFilter(const String& module, bool on) = 0;
    /** 0 for a logger that knows no limit. */
    virtual std::size_t getMaxFileSize() const;
    /** Ignored by a logger that knows no limit. */
    virtual void setMaxFileSize(std::size_t size);
    /** 0 for a logger that knows no limit. */
    virtual std::size_t getMaxNumberOfFiles() const;
    /** Ignored by a logger that knows no limit. */
    virtual void setMaxNumberOfFiles(std::size_t number);
    virtual void getModulesRegisteredDynamic(StringColl& modules) const = 0;
    virtual void getModulesRegisteredStatic(StringColl& modules) const = 0;

    /** setSeverity() by name. Throws `std::out_of_range`, "Unrecognized NIM Log Severity". */
    void setSeverity(const String& name);
    /** setSeverityMask() by name. Throws `std::out_of_range`, "Unrecognized NIM Log Severity". */
    void setSeverityMask(const String& name, bool enable);

    // The defaults are guarded by the library's InitLock.
    static unsigned int getOutputMaskDefault();
    static Severity getSeverityDefault();
    /** Throws `std::out_of_range`, "Illegal Mask", above 512: most combined masks are refused here. */
    static void setOutputMaskDefault(unsigned int mask);
    /** Throws `std::out_of_range`, "Illegal Severity". */
    static void setSeverityDefault(Severity severity);

    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;

protected:
    Control() noexcept;
};

}

#endif
