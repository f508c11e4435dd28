#include <dalnim/dalbase.hpp>

#include <dalnim/io/MetricsText.hpp>

#include <dalnim/io/nsdefs.hpp>
#include <dalnim/log/Statistics.hpp>
#include <dalnim/mt/PoolStatistics.hpp>
#include <dalnim/sys/LoaderStatistics.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/type/ContextStatistics.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <numeric>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace com::kor::dal::nim::io {

namespace {

constexpr char COUNTER[] = "counter";
constexpr char GAUGE[] = "gauge";
constexpr char HISTOGRAM[] = "histogram";
/** The label of the limits of a histogram. */
constexpr char LIMIT_LABEL[] = "le";

[[noreturn]] void reject(const String& name)
{
    throw std::invalid_argument("Illegal metric: " + name);
}

constexpr bool isLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

constexpr bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool isLabelName(const String& name)
{
    return !name.empty() && isLetter(name[0])
           && std::all_of(name.begin(), name.end(), [](char c) { return isLetter(c) || isDigit(c); });
}

bool isMetricName(const String& name)
{
    return !name.empty() && !isDigit(name[0]) && std::all_of(name.begin(), name.end(), [](char c) {
        return isLetter(c) || isDigit(c) || c == ':';
    });
}

/** Returns the length of the UTF-8 character at the beginning of a text, or 0 if there is none. */
std::size_t characterLength(std::string_view text)
{
    const auto at = [text](std::size_t index) -> unsigned int {
        return index < text.size() ? static_cast<unsigned char>(text[index]) : 0;
    };
    const unsigned int lead = at(0);
    if (lead < 0x80) {
        return 1;
    }
    const std::size_t length = lead >= 0xC2 && lead <= 0xDF   ? 2
                               : lead >= 0xE0 && lead <= 0xEF ? 3
                               : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                              : 0;
    for (std::size_t i = 1; i < length; ++i) {
        // The first continuation byte excludes longer forms than needed, surrogates, and values that are too
        // large.
        const unsigned int lowest = i > 1 ? 0x80 : lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
        const unsigned int highest = i > 1 ? 0xBF : lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
        if (at(i) < lowest || at(i) > highest) {
            return 0;
        }
    }
    return length;
}

/** Returns the text in UTF-8, with its backslashes, newlines and, if asked for, double quotes escaped. */
String escaped(std::string_view text, bool escapesQuotes)
{
    String result;
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        if (text[0] == '\n') {
            result += "\\n";
        } else if (text[0] == '\\' || (escapesQuotes && text[0] == '"')) {
            result.append(1, '\\').push_back(text[0]);
        } else if (length == 0) {
            result += "\xEF\xBF\xBD";
        } else {
            result.append(text.substr(0, length));
        }
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return result;
}

/** Returns the labels as in a sample: empty, or in braces. */
String labelText(const MetricsText::Labels& labels)
{
    String text;
    for (const auto& [name, value] : labels) {
        text.append(text.empty() ? "{" : ",").append(name).append("=\"").append(escaped(value, true));
        text.push_back('"');
    }
    return text.empty() ? text : text + '}';
}

/** Returns the shortest decimal number that is read as the same value. */
String numberText(double number)
{
    if (std::isnan(number)) {
        return "NaN";
    }
    if (std::isinf(number)) {
        return number < 0 ? "-Inf" : "+Inf";
    }
    char text[32];
    const auto [end, error] = std::to_chars(std::begin(text), std::end(text), number);
    static_cast<void>(error);
    return String(text, end);
}

constexpr double MICROSECONDS = 1e6;

String sampleText(const String& name, const String& labels, const String& value)
{
    return name + labels + ' ' + value + '\n';
}

void addTimes(MetricsText& metrics, const String& name, const String& description,
              const MetricsText::Labels& labels, const mt::PoolStatistics::Histogram& times)
{
    std::vector<double> limits;
    for (unsigned int bucket = 0; bucket + 1 < mt::PoolStatistics::Histogram::BUCKETS; ++bucket) {
        limits.push_back(static_cast<double>(mt::PoolStatistics::Histogram::limit(bucket)) / MICROSECONDS);
    }
    metrics.addHistogram(name, description, labels, limits,
                         {std::begin(times.counts), std::end(times.counts)},
                         static_cast<double>(times.microseconds) / MICROSECONDS);
}

}

MetricsText::MetricsText() = default;
MetricsText::~MetricsText() = default;

void MetricsText::addSamples(const String& name, const char* type, const String& description,
                             const Labels& labels, const String& lines)
{
    for (auto label = labels.begin(); label != labels.end(); ++label) {
        const bool isDuplicate = std::any_of(
            labels.begin(), label, [label](const auto& earlier) { return earlier.first == label->first; });
        if (!isLabelName(label->first) || isDuplicate) {
            reject(name);
        }
    }
    const auto found = metrics.find(name);
    if (found == metrics.end()) {
        if (!isMetricName(name)) {
            reject(name);
        }
        Metric metric = {type, description, {}};
        metric.samples.emplace(labelText(labels), lines);
        metrics.emplace(name, std::move(metric));
        return;
    }
    Metric& metric = found->second;
    if (std::string_view(metric.type) != type || metric.description != description
        || !metric.samples.emplace(labelText(labels), lines).second) {
        reject(name);
    }
}

void MetricsText::addCounter(const String& name, const String& description, const Labels& labels,
                             std::uint64_t value)
{
    const sys::StackTrack track("addCounter()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    addSamples(name, COUNTER, description, labels,
               sampleText(name, labelText(labels), std::to_string(value)));
}

void MetricsText::addGauge(const String& name, const String& description, const Labels& labels, double value)
{
    const sys::StackTrack track("addGauge()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    addSamples(name, GAUGE, description, labels, sampleText(name, labelText(labels), numberText(value)));
}

void MetricsText::addHistogram(const String& name, const String& description, const Labels& labels,
                               const std::vector<double>& limits, const std::vector<std::uint64_t>& counts,
                               double sum)
{
    const sys::StackTrack track("addHistogram()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const auto isNotAscending = [](double lower, double upper) { return !(lower < upper); };
    if (counts.size() != limits.size() + 1
        || std::adjacent_find(limits.begin(), limits.end(), isNotAscending) != limits.end()
        || std::any_of(limits.begin(), limits.end(), [](double limit) { return !std::isfinite(limit); })
        || std::any_of(labels.begin(), labels.end(),
                       [](const auto& label) { return label.first == LIMIT_LABEL; })) {
        reject(name);
    }
    String lines;
    std::uint64_t total = 0;
    Labels withLimit = labels;
    withLimit.emplace_back(LIMIT_LABEL, "");
    for (std::size_t i = 0; i < counts.size(); ++i) {
        total += counts[i];
        withLimit.back().second = i < limits.size() ? numberText(limits[i]) : "+Inf";
        lines += sampleText(name + "_bucket", labelText(withLimit), std::to_string(total));
    }
    lines += sampleText(name + "_sum", labelText(labels), numberText(sum));
    lines += sampleText(name + "_count", labelText(labels), std::to_string(total));
    addSamples(name, HISTOGRAM, description, labels, lines);
}

void MetricsText::add(const log::Statistics& statistics, const String& logger)
{
    const sys::StackTrack track("add()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const struct
    {
        const char* name;
        const char* description;
        std::uint64_t log::Statistics::Records::*number;
    } families[] = {
        {"dalnim_log_records_total", "Records written to the output of the logger.",
         &log::Statistics::Records::written},
        {"dalnim_log_bytes_total", "Bytes of the records written to the output of the logger.",
         &log::Statistics::Records::bytes},
        {"dalnim_log_rescued_records_total",
         "Records written to standard error because the output of the logger rejected them.",
         &log::Statistics::Records::rescued},
        {"dalnim_log_failed_records_total", "Records not written because their statement failed.",
         &log::Statistics::Records::failed},
        {"dalnim_log_held_back_records_total", "Records held back by a limit of their module.",
         &log::Statistics::Records::heldBack},
    };
    for (const auto& family : families) {
        for (unsigned int severity = log::Severity_NONE; severity < log::Severity_COUNT; ++severity) {
            addCounter(family.name, family.description,
                       {{"logger", logger},
                        {"severity", log::getSeverityName(static_cast<log::Severity>(severity))}},
                       statistics.records[severity].*family.number);
        }
    }
    const Labels labels = {{"logger", logger}};
    addCounter("dalnim_log_rotations_total", "Rotations of the log file.", labels, statistics.rotations);
    addCounter("dalnim_log_failed_rotations_total",
               "Rotations of the log file that failed, so that the log continued on standard error.", labels,
               statistics.failedRotations);
    addCounter("dalnim_log_refused_statements_total",
               "Log statements refused because they ran in a signal handler that interrupted another one.",
               labels, statistics.refusedStatements);
}

void MetricsText::add(const mt::PoolStatistics& statistics, const String& pool)
{
    const sys::StackTrack track("add()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const Labels labels = {{"pool", pool}};
    addGauge("dalnim_pool_workers", "Workers of the pool.", labels, statistics.workers);
    if (!statistics.isCollecting) {
        return;
    }
    addCounter("dalnim_pool_submitted_tasks_total", "Tasks queued.", labels, statistics.submitted);
    addCounter("dalnim_pool_refused_tasks_total", "Tasks not queued, because the pool was full or shut down.",
               labels, statistics.refused);
    addCounter("dalnim_pool_discarded_tasks_total", "Tasks queued, and discarded before they started.",
               labels, statistics.discarded);
    addCounter("dalnim_pool_finished_tasks_total", "Tasks that have ended.", labels, statistics.finished);
    addCounter("dalnim_pool_thrown_tasks_total", "Tasks that have ended by an exception.", labels,
               statistics.thrown);
    addGauge("dalnim_pool_pending_tasks", "Tasks that wait for a worker.", labels,
             static_cast<double>(statistics.pending));
    addGauge("dalnim_pool_running_tasks", "Tasks that are running.", labels,
             static_cast<double>(statistics.running));
    addTimes(*this, "dalnim_pool_waiting_seconds", "Times from the submission of a task to its start.",
             labels, statistics.waitingTime);
    addTimes(*this, "dalnim_pool_running_seconds", "Times from the start of a task to its end.", labels,
             statistics.runningTime);
}

void MetricsText::add(const sys::LoaderStatistics& statistics)
{
    const sys::StackTrack track("add()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    addCounter("dalnim_loader_loads_total", "Dynamic libraries loaded.", {}, statistics.loaded);
    addCounter("dalnim_loader_failed_loads_total", "Loads of dynamic libraries that failed.", {},
               statistics.failedLoads);
    addCounter("dalnim_loader_unloads_total", "Dynamic libraries unloaded.", {}, statistics.unloaded);
    addCounter("dalnim_loader_failed_unloads_total", "Unloads of dynamic libraries that failed.", {},
               statistics.failedUnloads);
}

void MetricsText::add(const type::ContextStatistics& statistics)
{
    const sys::StackTrack track("add()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    addCounter("dalnim_contexts_made_total", "Contexts constructed.", {}, statistics.made);
    addCounter("dalnim_contexts_duplicated_total", "Contexts duplicated for tasks and threads.", {},
               statistics.duplicated);
    addCounter("dalnim_contexts_attached_total", "Duplicates that became the context of a worker.", {},
               statistics.attached);
    addGauge("dalnim_contexts_alive", "Contexts that have not been destroyed.", {},
             static_cast<double>(statistics.alive));
}

void MetricsText::write(std::ostream& os) const
{
    for (const auto& [name, metric] : metrics) {
        const String head = "# HELP " + name + ' ' + escaped(metric.description, false) + "\n# TYPE " + name
                            + ' ' + metric.type + '\n';
        os.write(head.data(), static_cast<std::streamsize>(head.size()));
        for (const auto& [labels, lines] : metric.samples) {
            os.write(lines.data(), static_cast<std::streamsize>(lines.size()));
        }
    }
}

}
