#ifndef DALNIM_IO_METRICSTEXT_HPP
#define DALNIM_IO_METRICSTEXT_HPP

#include <dalnim/String.hpp>
#include <qv/pmx/api.h>

#include <cstdint>
#include <iosfwd>
#include <map>
#include <utility>
#include <vector>

namespace com::kor::dal::nim::log {
struct Statistics;
}

namespace com::kor::dal::nim::mt {
struct PoolStatistics;
}

namespace com::kor::dal::nim::sys {
struct LoaderStatistics;
}

namespace com::kor::dal::nim::type {
struct ContextStatistics;
}

namespace com::kor::dal::nim::io {

/**
 * Numbers of a process in the text format of Prometheus ("exposition format"), for an HTTP endpoint or a file
 * that the textfile collector of its node exporter reads.
 *
 *     log::Statistics::enable(); // at the start of the program
 *     ...
 *     io::MetricsText metrics;
 *     metrics.add(com_kor_dal_nim_log_control.getStatistics(), "default");
 *     metrics.addGauge("shop_customers", "Customers in the shop.", {{"floor", "2"}}, 17);
 *     metrics.write(file);
 *
 * The samples of a metric may be added in any order. They are written together, after the type and the
 * description of the metric; metrics are in the order of their names.
 *
 * Names of metrics consist of the letters a to z and A to Z, digits, "_" and ":", names of labels of the same
 * without ":"; neither begins with a digit. Prometheus expects names of counters to end in "_total", and
 * units such as "seconds" and "bytes". Values of labels and descriptions are escaped, and bytes that are not
 * UTF-8 are replaced by U+FFFD.
 *
 * All operations that add throw `std::invalid_argument`, and add nothing, if a name is not allowed, if the
 * metric was added with another type or description, or if it has a sample with the same labels:
 * "Illegal metric: NAME".
 *
 * Thread safety: one thread at a time.
 */
class DALNIM_API MetricsText
{
public:
    static constexpr const char CLASS_NAME[] = "MetricsText";

    /** Names and values of the labels of a sample. The order matters only for comparisons. */
    typedef std::vector<std::pair<String, String>> Labels;

    MetricsText();
    ~MetricsText();
    MetricsText(const MetricsText&) = delete;
    MetricsText& operator=(const MetricsText&) = delete;

    /** Adds a number that only increases while the process runs. */
    void addCounter(const String& name, const String& description, const Labels& labels, std::uint64_t value);
    /** Adds a number that may increase and decrease. */
    void addGauge(const String& name, const String& description, const Labels& labels, double value);
    /**
     * Adds a histogram.
     *
     * @param limits  the upper limits of the buckets, in ascending order
     * @param counts  the number of observations in each bucket (not in the buckets below it), and then the
     * number of those above the last limit
     * @param sum     the sum of all observations
     * @throws std::invalid_argument  also if `counts` has another size than `limits` and one, if `limits` are
     * not ascending, or if there is a label "le"
     */
    void addHistogram(const String& name, const String& description, const Labels& labels,
                      const std::vector<double>& limits, const std::vector<std::uint64_t>& counts,
                      double sum);

    /**
     * Adds the statistics of a logger: counters with names that begin with "dalnim_log_", by severity.
     * @param logger  the value of the label "logger"
     */
    void add(const log::Statistics& statistics, const String& logger);
    /**
     * Adds the statistics of a pool: counters, gauges and histograms with names that begin with
     * "dalnim_pool_". Of a pool that does not collect statistics, only the number of workers.
     * @param pool  the value of the label "pool"
     */
    void add(const mt::PoolStatistics& statistics, const String& pool);
    /** Adds the statistics of the dynamic loader: counters with names that begin with "dalnim_loader_". */
    void add(const sys::LoaderStatistics& statistics);
    /** Adds the statistics of contexts: counters and a gauge with names that begin with "dalnim_contexts_".
     */
    void add(const type::ContextStatistics& statistics);

    /** Writes all metrics, each line with a newline. Does not change the state or the formats of the stream.
     */
    void write(std::ostream& os) const;

private:
    /** A metric: its samples as lines, by their labels. */
    struct Metric
    {
        const char* type;
        String description;
        std::map<String, String> samples;
    };

    __attribute__((visibility("hidden"))) void addSamples(const String& name, const char* type,
                                                          const String& description, const Labels& labels,
                                                          const String& lines);

    std::map<String, Metric> metrics;
};

}

#endif
