#include <dalnim/io/MetricsText.hpp>

#include <dalnim/log/Statistics.hpp>
#include <dalnim/mt/PoolStatistics.hpp>
#include <dalnim/sys/LoaderStatistics.hpp>
#include <dalnim/type/ContextStatistics.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <iomanip>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>

namespace {

using namespace com::kor::dal::nim;
using io::MetricsText;
using testing::HasSubstr;

String textOf(const MetricsText& metrics)
{
    std::ostringstream os;
    metrics.write(os);
    return os.str();
}

/** Returns the message of the std::invalid_argument that `add` throws. */
template <class Add>
String rejection(Add add)
{
    try {
        add();
    } catch (const std::invalid_argument& failure) {
        return failure.what();
    }
    return "nothing";
}

TEST(MetricsText, ContainsNothingWithoutMetrics)
{
    EXPECT_EQ("", textOf(MetricsText()));
}

TEST(MetricsText, SamplesOfAMetricFollowItsTypeAndDescription)
{
    MetricsText metrics;
    metrics.addGauge("b", "Second.", {}, 1.5);
    metrics.addCounter("a_total", "First.", {{"x", "2"}, {"y", ""}}, 18446744073709551615U);
    metrics.addCounter("a_total", "First.", {{"x", "1"}}, 0);
    EXPECT_EQ("# HELP a_total First.\n"
              "# TYPE a_total counter\n"
              "a_total{x=\"1\"} 0\n"
              "a_total{x=\"2\",y=\"\"} 18446744073709551615\n"
              "# HELP b Second.\n"
              "# TYPE b gauge\n"
              "b 1.5\n",
              textOf(metrics));
}

TEST(MetricsText, NumbersAreTheShortestThatReadAsTheSameValue)
{
    const std::pair<double, const char*> numbers[] = {
        {0, "0"},
        {-0.1, "-0.1"},
        {1e21, "1e+21"},
        {1.0 / 3, "0.3333333333333333"},
        {1e-6, "1e-06"},
        {std::numeric_limits<double>::infinity(), "+Inf"},
        {-std::numeric_limits<double>::infinity(), "-Inf"},
        {std::numeric_limits<double>::quiet_NaN(), "NaN"},
    };
    for (const auto& [number, text] : numbers) {
        MetricsText metrics;
        metrics.addGauge("a", "A.", {}, number);
        EXPECT_EQ("# HELP a A.\n# TYPE a gauge\na " + String(text) + "\n", textOf(metrics));
    }
}

TEST(MetricsText, BucketsOfAHistogramAreCumulative)
{
    MetricsText metrics;
    metrics.addHistogram("wait_seconds", "Waiting.", {{"pool", "p"}}, {0.001, 0.5, 2}, {3, 0, 4, 1}, 7.25);
    EXPECT_EQ("# HELP wait_seconds Waiting.\n"
              "# TYPE wait_seconds histogram\n"
              "wait_seconds_bucket{pool=\"p\",le=\"0.001\"} 3\n"
              "wait_seconds_bucket{pool=\"p\",le=\"0.5\"} 3\n"
              "wait_seconds_bucket{pool=\"p\",le=\"2\"} 7\n"
              "wait_seconds_bucket{pool=\"p\",le=\"+Inf\"} 8\n"
              "wait_seconds_sum{pool=\"p\"} 7.25\n"
              "wait_seconds_count{pool=\"p\"} 8\n",
              textOf(metrics));
}

TEST(MetricsText, HistogramWithoutLimitsHasOneBucket)
{
    MetricsText metrics;
    metrics.addHistogram("a", "A.", {}, {}, {2}, 1);
    EXPECT_EQ("# HELP a A.\n# TYPE a histogram\na_bucket{le=\"+Inf\"} 2\na_sum 1\na_count 2\n",
              textOf(metrics));
}

TEST(MetricsText, ValuesAndDescriptionsAreEscaped)
{
    MetricsText metrics;
    metrics.addGauge("a", "A \"line\"\nand a \\.", {{"x", "\"line\"\nand a \\"}}, 1);
    EXPECT_EQ("# HELP a A \"line\"\\nand a \\\\.\n# TYPE a gauge\na{x=\"\\\"line\\\"\\nand a \\\\\"} 1\n",
              textOf(metrics));
}

TEST(MetricsText, BytesThatAreNotUtf8AreReplaced)
{
    const std::pair<const char*, const char*> texts[] = {
        {"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {"a\xFFz", "a\xEF\xBF\xBDz"},
        {"\xC3", "\xEF\xBF\xBD"},
        {"\xC0\xAF", "\xEF\xBF\xBD\xEF\xBF\xBD"},
        {"\xE0\x80\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
        {"\xED\xA0\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
        {"\xF4\x90\x80\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
        {"\xE2\x82x", "\xEF\xBF\xBD\xEF\xBF\xBDx"},
    };
    for (const auto& [text, replaced] : texts) {
        MetricsText metrics;
        metrics.addGauge("a", "A.", {{"x", text}}, 1);
        EXPECT_THAT(textOf(metrics), HasSubstr("a{x=\"" + String(replaced) + "\"} 1\n"));
    }
}

TEST(MetricsText, NamesThatPrometheusRejectsAreRejected)
{
    for (const char* const name : {"", "1a", "a-b", "a b", "\xC3\xA4", "a\n", "a{"}) {
        MetricsText metrics;
        EXPECT_EQ("Illegal metric: " + String(name),
                  rejection([&] { metrics.addCounter(name, "A.", {}, 1); }));
        EXPECT_EQ("Illegal metric: a", rejection([&] {
                      metrics.addGauge("a", "A.", {{"good", ""}, {name, ""}}, 1);
                  }));
        EXPECT_EQ("", textOf(metrics));
    }
    MetricsText metrics;
    EXPECT_EQ("nothing", rejection([&] { metrics.addGauge(":_aZ9", "A.", {{"_aZ9", ""}}, 1); }));
    EXPECT_EQ("Illegal metric: a", rejection([&] { metrics.addGauge("a", "A.", {{"a:b", ""}}, 1); }));
    EXPECT_EQ("Illegal metric: a", rejection([&] {
                  metrics.addGauge("a", "A.", {{"x", "1"}, {"x", "2"}}, 1);
              }));
}

TEST(MetricsText, SampleThatContradictsAnEarlierOneIsRejected)
{
    MetricsText metrics;
    metrics.addGauge("a", "A.", {{"x", "1"}}, 1);
    const String before = textOf(metrics);
    EXPECT_EQ("Illegal metric: a", rejection([&] { metrics.addGauge("a", "A.", {{"x", "1"}}, 1); }));
    EXPECT_EQ("Illegal metric: a", rejection([&] { metrics.addGauge("a", "Another.", {{"x", "2"}}, 1); }));
    EXPECT_EQ("Illegal metric: a", rejection([&] { metrics.addCounter("a", "A.", {{"x", "2"}}, 1); }));
    EXPECT_EQ(before, textOf(metrics));
}

TEST(MetricsText, HistogramThatIsInconsistentIsRejected)
{
    const double infinity = std::numeric_limits<double>::infinity();
    MetricsText metrics;
    const auto rejectionOf = [&metrics](const std::vector<double>& limits,
                                        const std::vector<std::uint64_t>& counts,
                                        const MetricsText::Labels& labels = {}) {
        return rejection([&] { metrics.addHistogram("a", "A.", labels, limits, counts, 1); });
    };
    EXPECT_EQ("Illegal metric: a", rejectionOf({}, {}));
    EXPECT_EQ("Illegal metric: a", rejectionOf({1}, {1}));
    EXPECT_EQ("Illegal metric: a", rejectionOf({1, 1}, {1, 1, 1}));
    EXPECT_EQ("Illegal metric: a", rejectionOf({2, 1}, {1, 1, 1}));
    EXPECT_EQ("Illegal metric: a", rejectionOf({infinity}, {1, 1}));
    EXPECT_EQ("Illegal metric: a", rejectionOf({1}, {1, 1}, {{"le", "1"}}));
    EXPECT_EQ("", textOf(metrics));
}

TEST(MetricsText, StreamFormatsNeitherMatterNorChange)
{
    MetricsText metrics;
    metrics.addCounter("a_total", "A.", {}, 255);
    std::ostringstream os;
    os << std::hex << std::setfill('*') << std::setw(40);
    metrics.write(os);
    EXPECT_EQ("# HELP a_total A.\n# TYPE a_total counter\na_total 255\n", os.str());
    EXPECT_EQ(40, os.width());
}

TEST(MetricsText, StatisticsOfLoggersAreDistinguishedByALabel)
{
    log::Statistics statistics;
    statistics.records[log::Severity_WARNING] = {1, 2, 3, 4, 5};
    statistics.rotations = 6;
    statistics.failedRotations = 7;
    statistics.refusedStatements = 8;
    MetricsText metrics;
    metrics.add(statistics, "default");
    metrics.add(log::Statistics(), "other");
    const String text = textOf(metrics);
    for (const char* const line :
         {"dalnim_log_records_total{logger=\"default\",severity=\"WARNING\"} 1\n",
          "dalnim_log_bytes_total{logger=\"default\",severity=\"WARNING\"} 2\n",
          "dalnim_log_rescued_records_total{logger=\"default\",severity=\"WARNING\"} 3\n",
          "dalnim_log_failed_records_total{logger=\"default\",severity=\"WARNING\"} 4\n",
          "dalnim_log_held_back_records_total{logger=\"default\",severity=\"WARNING\"} 5\n",
          "dalnim_log_rotations_total{logger=\"default\"} 6\n",
          "dalnim_log_failed_rotations_total{logger=\"default\"} 7\n",
          "dalnim_log_refused_statements_total{logger=\"default\"} 8\n",
          "dalnim_log_records_total{logger=\"default\",severity=\"NONE\"} 0\n",
          "dalnim_log_records_total{logger=\"other\",severity=\"FATAL\"} 0\n"}) {
        EXPECT_THAT(text, HasSubstr(line));
    }
    EXPECT_EQ("Illegal metric: dalnim_log_records_total",
              rejection([&] { metrics.add(statistics, "other"); }));
    EXPECT_EQ(text, textOf(metrics));
}

TEST(MetricsText, StatisticsOfContextsAreCountersAndAGauge)
{
    type::ContextStatistics statistics;
    statistics.made = 4;
    statistics.duplicated = 3;
    statistics.attached = 2;
    statistics.alive = 1;
    MetricsText metrics;
    metrics.add(statistics);
    EXPECT_EQ("# HELP dalnim_contexts_alive Contexts that have not been destroyed.\n"
              "# TYPE dalnim_contexts_alive gauge\n"
              "dalnim_contexts_alive 1\n"
              "# HELP dalnim_contexts_attached_total Duplicates that became the context of a worker.\n"
              "# TYPE dalnim_contexts_attached_total counter\n"
              "dalnim_contexts_attached_total 2\n"
              "# HELP dalnim_contexts_duplicated_total Contexts duplicated for tasks and threads.\n"
              "# TYPE dalnim_contexts_duplicated_total counter\n"
              "dalnim_contexts_duplicated_total 3\n"
              "# HELP dalnim_contexts_made_total Contexts constructed.\n"
              "# TYPE dalnim_contexts_made_total counter\n"
              "dalnim_contexts_made_total 4\n",
              textOf(metrics));
}

TEST(MetricsText, StatisticsOfPoolsAreDistinguishedByALabel)
{
    mt::PoolStatistics statistics;
    statistics.workers = 2;
    MetricsText idle;
    idle.add(statistics, "idle");
    EXPECT_EQ("# HELP dalnim_pool_workers Workers of the pool.\n"
              "# TYPE dalnim_pool_workers gauge\n"
              "dalnim_pool_workers{pool=\"idle\"} 2\n",
              textOf(idle))
        << "without statistics";
    statistics.isCollecting = true;
    statistics.submitted = 10;
    statistics.refused = 1;
    statistics.discarded = 2;
    statistics.finished = 5;
    statistics.thrown = 3;
    statistics.pending = 4;
    statistics.running = 6;
    statistics.waitingTime.counts[0] = 1;
    statistics.waitingTime.counts[30] = 2;
    statistics.waitingTime.counts[31] = 3;
    statistics.waitingTime.microseconds = 1500000;
    MetricsText metrics;
    metrics.add(statistics, "busy");
    metrics.add(mt::PoolStatistics(), "idle");
    const String text = textOf(metrics);
    for (const char* const line :
         {"dalnim_pool_workers{pool=\"idle\"} 0\n", "dalnim_pool_submitted_tasks_total{pool=\"busy\"} 10\n",
          "dalnim_pool_refused_tasks_total{pool=\"busy\"} 1\n",
          "dalnim_pool_discarded_tasks_total{pool=\"busy\"} 2\n",
          "dalnim_pool_finished_tasks_total{pool=\"busy\"} 5\n",
          "dalnim_pool_thrown_tasks_total{pool=\"busy\"} 3\n", "dalnim_pool_pending_tasks{pool=\"busy\"} 4\n",
          "dalnim_pool_running_tasks{pool=\"busy\"} 6\n",
          "dalnim_pool_waiting_seconds_bucket{pool=\"busy\",le=\"1e-06\"} 1\n",
          "dalnim_pool_waiting_seconds_bucket{pool=\"busy\",le=\"0.001024\"} 1\n",
          "dalnim_pool_waiting_seconds_bucket{pool=\"busy\",le=\"1073.741824\"} 3\n",
          "dalnim_pool_waiting_seconds_bucket{pool=\"busy\",le=\"+Inf\"} 6\n",
          "dalnim_pool_waiting_seconds_sum{pool=\"busy\"} 1.5\n",
          "dalnim_pool_waiting_seconds_count{pool=\"busy\"} 6\n",
          "dalnim_pool_running_seconds_count{pool=\"busy\"} 0\n"}) {
        EXPECT_THAT(text, HasSubstr(line));
    }
}

TEST(MetricsText, StatisticsOfTheLoaderAreCounters)
{
    MetricsText metrics;
    metrics.add(sys::LoaderStatistics{1, 2, 3, 4});
    EXPECT_EQ("# HELP dalnim_loader_failed_loads_total Loads of dynamic libraries that failed.\n"
              "# TYPE dalnim_loader_failed_loads_total counter\n"
              "dalnim_loader_failed_loads_total 2\n"
              "# HELP dalnim_loader_failed_unloads_total Unloads of dynamic libraries that failed.\n"
              "# TYPE dalnim_loader_failed_unloads_total counter\n"
              "dalnim_loader_failed_unloads_total 4\n"
              "# HELP dalnim_loader_loads_total Dynamic libraries loaded.\n"
              "# TYPE dalnim_loader_loads_total counter\n"
              "dalnim_loader_loads_total 1\n"
              "# HELP dalnim_loader_unloads_total Dynamic libraries unloaded.\n"
              "# TYPE dalnim_loader_unloads_total counter\n"
              "dalnim_loader_unloads_total 3\n",
              textOf(metrics));
}

}
