#include <dalnim/journal/JournalLog.hpp>

#include <dalnim/log/Header.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <qv/pmx/src/CancellationOff.hpp>

#include <cctype>
#include <string>
#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

// The place of a record is that of its statement, not the one below.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

namespace com::kor::dal::nim::journal {

namespace {

const char NAMESPACE_NAME[] = "com.kor.dal.nim.journal";

/** The socket of the journal, whose path libsystemd does not export. */
const char JOURNAL_SOCKET[] = "/run/systemd/journal/socket";

int priorityOf(log::Severity severity)
{
    switch (severity) {
    case log::Severity_FATAL:
        return LOG_CRIT;
    case log::Severity_ERROR:
        return LOG_ERR;
    case log::Severity_WARNING:
        return LOG_WARNING;
    case log::Severity_NOTICE:
        return LOG_NOTICE;
    case log::Severity_DEBUG:
    case log::Severity_TRACE:
        return LOG_DEBUG;
    default:
        return LOG_INFO;
    }
}

String trimmed(String text)
{
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())) != 0) {
        text.pop_back();
    }
    return text;
}

/** The fields of an entry. */
class Entry
{
public:
    void add(const char* name, const String& value)
    {
        fields.push_back(name + ('=' + value));
    }
    void add(const String& field)
    {
        fields.push_back(field);
    }

    /** Returns 0, or a negative error number. */
    int send() const
    {
        std::vector<iovec> parts;
        parts.reserve(fields.size());
        for (const String& field : fields) {
            parts.push_back({const_cast<char*>(field.data()), field.size()}); // NOLINT: it is only read
        }
        const qv::CancellationOff uncut;
        return sd_journal_sendv(parts.data(), static_cast<int>(parts.size()));
    }

private:
    std::vector<String> fields;
};

}

JournalLog::JournalLog(const String& identifier)
    : identifierField("SYSLOG_IDENTIFIER=" + (identifier.empty() ? log::getProcessName() : identifier))
{
}

JournalLog::~JournalLog() = default;

void JournalLog::log(const log::Module& mod, const log::Header& rec, bool force)
{
    const sys::StackTrack track("log()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (!force && !isSeveritySatisfied(rec.getSeverityId())) {
        return;
    }
    if (!send(mod, rec)) {
        Write::log(mod, rec, true);
    }
}

bool JournalLog::send(const log::Module& mod, const log::Header& rec) const
{
    Entry entry;
    entry.add("MESSAGE", trimmed(rec.str()));
    entry.add("PRIORITY", std::to_string(priorityOf(rec.getSeverityId())));
    entry.add(identifierField);
    if (rec.getFile() != nullptr) {
        entry.add("CODE_FILE", rec.getFile());
    }
    entry.add("CODE_LINE", std::to_string(rec.getLine()));
    entry.add("TID", std::to_string(rec.getThread()));
    entry.add("DALNIM_MODULE", mod.getName());
    entry.add("DALNIM_SEVERITY", rec.getSeverityName());
    // sd_journal_sendv() drops an entry and reports success if there is no journal.
    return access(JOURNAL_SOCKET, F_OK) == 0 && entry.send() >= 0;
}

}
