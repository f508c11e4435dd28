#include "Severities.hpp"

#include <dalnim/log/Common.hpp>

#include <algorithm>
#include <array>

namespace nimlog {

namespace log = com::kor::dal::nim::log;

namespace {

struct SeverityNames
{
    SeverityNames()
    {
        for (int severity = log::Severity_MIN; severity <= log::Severity_MAX; ++severity) {
            const auto id = static_cast<log::Severity>(severity);
            names[static_cast<std::size_t>(severity)] = log::getSeverityName(id);
        }
    }
    std::array<std::string, log::Severity_COUNT> names;
};

const SeverityNames& known()
{
    static const SeverityNames names;
    return names;
}

}

bool readSeverity(std::string_view name, int& into)
{
    const auto& names = known().names;
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) {
        return false;
    }
    into = static_cast<int>(found - names.begin());
    return true;
}

std::string_view severityNameOf(const Fields& fields)
{
    return (fields.present & log::Mask_SEVERITY) != 0
               ? fields.severityName
               : std::string_view(known().names[static_cast<std::size_t>(fields.severity)]);
}

int severityOfPriority(std::string_view line)
{
    // Of emergency, alert and critical, the log has only one.
    static constexpr std::array<log::Severity, 8> SEVERITIES = {
        log::Severity_FATAL,   log::Severity_FATAL,  log::Severity_FATAL, log::Severity_ERROR,
        log::Severity_WARNING, log::Severity_NOTICE, log::Severity_INFO,  log::Severity_DEBUG};
    return SEVERITIES[static_cast<std::size_t>(line[1] - '0')];
}

Record withoutPriorities(const Record& record, std::string& storage)
{
    storage.clear();
    std::string_view rest = record.whole;
    for (std::size_t end; (end = rest.find('\n')) != std::string_view::npos;) {
        storage += withoutPriority(rest.substr(0, end + 1));
        rest.remove_prefix(end + 1);
    }
    storage += withoutPriority(rest);
    Record plain = record;
    plain.whole = storage;
    plain.fields.length -= PRIORITY_LENGTH;
    rebase(plain.fields, record.whole.data() + PRIORITY_LENGTH, storage.data());
    return plain;
}

}
