#include <host/History.hpp>

#include <gtest/gtest.h>

namespace {

using nimhost::History;
using nimhost::Sample;

TEST(NimhostHistory, StartsWithTheRun)
{
    const History history;
    ASSERT_EQ(history.samples().size(), 1U);
    EXPECT_EQ(history.samples()[0].seconds, 0);
    EXPECT_EQ(history.samples()[0].records, 0U);
}

TEST(NimhostHistory, SkippedSamplesKeepTheirPeak)
{
    History history;
    history.add({0.1, 10, 0, 3});
    history.add({0.12, 12, 0, 40});
    history.add({0.14, 14, 0, 5});
    history.add({0.2, 20, 1, 4});
    ASSERT_EQ(history.samples().size(), 3U);
    EXPECT_EQ(history.samples()[1].records, 10U);
    EXPECT_EQ(history.samples()[1].waiting, 3);
    EXPECT_EQ(history.samples()[2].records, 20U);
    EXPECT_EQ(history.samples()[2].rotations, 1U);
    EXPECT_EQ(history.samples()[2].waiting, 40);
}

TEST(NimhostHistory, LastSampleIsTheEndOfTheRun)
{
    History history;
    history.add({0.1, 10, 0, 3});
    history.add({0.2, 20, 1, 30});
    history.end({0.201, 21, 2, 1});
    ASSERT_EQ(history.samples().size(), 3U);
    EXPECT_EQ(history.samples()[2].seconds, 0.201);
    EXPECT_EQ(history.samples()[2].records, 21U);
    EXPECT_EQ(history.samples()[2].rotations, 2U);
    EXPECT_EQ(history.samples()[2].waiting, 30);

    History longer;
    longer.add({0.1, 10, 0, 3});
    longer.end({0.2, 12, 0, 1});
    ASSERT_EQ(longer.samples().size(), 3U);
    EXPECT_EQ(longer.samples()[2].waiting, 1);

    History short_run;
    short_run.end({0.001, 1, 0, 1});
    EXPECT_EQ(short_run.samples().size(), 2U);
}

TEST(NimhostHistory, NumberOfSamplesIsBounded)
{
    History history;
    for (unsigned int i = 1; i <= 1000000; ++i) {
        history.add({0.1 * i, i, i / 1000, i == 123457 ? 99 : 1});
        ASSERT_LT(history.samples().size(), 480U);
    }
    history.end({100000.05, 1000001, 1000, 1});

    const std::vector<Sample>& samples = history.samples();
    EXPECT_GE(samples.size(), 200U);
    EXPECT_EQ(samples.front().seconds, 0);
    EXPECT_EQ(samples.back().seconds, 100000.05);
    EXPECT_EQ(samples.back().records, 1000001U);
    int peaks = 0;
    for (std::size_t i = 1; i < samples.size(); ++i) {
        ASSERT_GT(samples[i].seconds, samples[i - 1].seconds);
        ASSERT_GT(samples[i].records, samples[i - 1].records);
        if (samples[i].waiting == 99) {
            ++peaks;
            EXPECT_LE(samples[i - 1].seconds, 12345.7);
            EXPECT_GE(samples[i].seconds, 12345.7);
        } else {
            ASSERT_EQ(samples[i].waiting, 1);
        }
    }
    EXPECT_EQ(peaks, 1);
}

}
