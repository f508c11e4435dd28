// Metrics as Prometheus itself checks them.

#include <dalnim/io/MetricsText.hpp>
#include <dalnim/log/Control.hpp>
#include <dalnim/mt/PoolStatistics.hpp>
#include <dalnim/sys/DynLoaderMgr.hpp>
#include <dalnim/type/ContainerContext.hpp>

#include <support/ChildProcess.hpp>
#include <support/Files.hpp>

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

using namespace com::kor::dal::nim;
using io::MetricsText;

/** Returns the findings of promtool, which are empty if it has none. */
std::string findingsIn(const std::string& text)
{
    const support::ScratchFolder scratch;
    support::writeFile(scratch.file("metrics"), text);
    support::ChildProcess promtool(
        {"/bin/sh", "-c", "\"$0\" check metrics <\"$1\"", PROMTOOL_PROGRAM, scratch.file("metrics")},
        scratch.path());
    const int status = promtool.wait();
    const std::string findings = promtool.output() + promtool.errors();
    EXPECT_EQ(findings.empty(), status == 0) << status;
    return findings;
}

std::string findingsIn(const MetricsText& metrics)
{
    std::ostringstream text;
    metrics.write(text);
    return findingsIn(text.str());
}

TEST(MetricsPromtool, FindsErrors)
{
    EXPECT_NE("", findingsIn("# TYPE a counter\na 1\n"));
    EXPECT_NE("", findingsIn("a{x=\"1\"\n"));
}

TEST(MetricsPromtool, FindsNothingInTheStatisticsOfTheLibrary)
{
    MetricsText metrics;
    metrics.add(com_kor_dal_nim_log_control.getStatistics(), "default");
    metrics.add(log::Statistics(), "of a \"plug-in\"\n\\ \xFF");
    metrics.add(sys::DynLoaderMgr::statistics());
    metrics.add(type::ContainerContext::statistics());
    mt::PoolStatistics pool;
    metrics.add(pool, "idle");
    pool.isCollecting = true;
    pool.waitingTime.counts[3] = 7;
    metrics.add(pool, "busy");
    EXPECT_EQ("", findingsIn(metrics));
}

TEST(MetricsPromtool, FindsNothingInEachKindOfMetric)
{
    MetricsText metrics;
    metrics.addCounter("customers_total", "Customers\n\\.", {}, 1);
    metrics.addGauge("temperature_celsius", "Temperature.", {{"room", "1"}, {"wall", "\xC3\xA4"}}, -1.5e-9);
    metrics.addHistogram("wait_seconds", "Waiting.", {{"pool", "a"}}, {1e-6, 0.5}, {1, 2, 3}, 4.5);
    metrics.addHistogram("wait_seconds", "Waiting.", {{"pool", "b"}}, {1e-6, 0.5}, {0, 0, 0}, 0);
    EXPECT_EQ("", findingsIn(metrics));
}

}
