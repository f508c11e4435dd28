#include <dalnim/journal/JournalLog.hpp>

#include <dalnim/log/FieldReader.hpp>
#include <dalnim/log/Header.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <qv/pmx/src/CancellationOff.hpp>

#include <cctype>
#include <cstddef>
#include <string>
#include <string_view>
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

/** Prefix of the names that programs choose, which can then not collide with the other names. */
const char FIELD_PREFIX[] = "F_";
/** The journal ignores fields with longer names. */
constexpr std::size_t MAX_NAME = 64;
/** A message has 1,024 parts at most, of which libsystemd uses up to five for each field. */
constexpr unsigned int MAX_FIELDS = 100;

/** Returns the name in the journal, which consists of capital letters, digits and "_". */
String journalName(std::string_view field)
{
    String name = FIELD_PREFIX;
    for (const char character : field.substr(0, MAX_NAME - name.size())) {
        const auto byte = static_cast<unsigned char>(character);
        name += std::isalnum(byte) != 0 ? static_cast<char>(std::toupper(byte)) : '_';
    }
    return name;
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
    void add(const String& name, const String& value)
    {
        fields.push_back(name + '=' + value);
    }
    void add(const String& field)
    {
        fields.push_back(field);
    }
    /** Adds the fields in the text of a record. */
    void addFieldsOf(const String& text)
    {
        log::FieldReader reader(text);
        for (unsigned int i = 0; i < MAX_FIELDS && reader.next(); ++i) {
            add(journalName(reader.name()), reader.value());
        }
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
    const String text = trimmed(rec.str());
    Entry entry;
    entry.add("MESSAGE", text);
    entry.add("PRIORITY", std::to_string(priorityOf(rec.getSeverityId())));
    entry.add(identifierField);
    if (rec.getFile() != nullptr) {
        entry.add("CODE_FILE", rec.getFile());
    }
    entry.add("CODE_LINE", std::to_string(rec.getLine()));
    entry.add("TID", std::to_string(rec.getThread()));
    entry.add("DALNIM_MODULE", mod.getName());
    entry.add("DALNIM_SEVERITY", rec.getSeverityName());
    entry.addFieldsOf(text);
    // sd_journal_sendv() drops an entry and reports success if there is no journal.
    return access(JOURNAL_SOCKET, F_OK) == 0 && entry.send() >= 0;
}

}
