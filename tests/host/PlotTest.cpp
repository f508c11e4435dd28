#include <host/Plot.hpp>

#include <gtest/gtest.h>

#include <sstream>

namespace {

using nimhost::grouped;
using nimhost::Plot;

TEST(NimhostPlot, GroupsDigits)
{
    EXPECT_EQ(grouped(std::uint64_t(0)), "0");
    EXPECT_EQ(grouped(std::uint64_t(999)), "999");
    EXPECT_EQ(grouped(std::uint64_t(18446744073709551615U)), "18,446,744,073,709,551,615");
    EXPECT_EQ(grouped(0.0), "0");
    EXPECT_EQ(grouped(7.0), "7");
    EXPECT_EQ(grouped(0.5), "0.5");
    EXPECT_EQ(grouped(999.4), "999");
    EXPECT_EQ(grouped(1000.0), "1,000");
    EXPECT_EQ(grouped(12345.6), "12,346");
    EXPECT_EQ(grouped(1234567.0), "1,234,567");
}

TEST(NimhostPlot, HeightOfEachPartIsItsValue)
{
    Plot plot("Sizes", "bytes");
    plot.add(1, 1500);
    plot.add(2, 2000);
    std::ostringstream os;
    plot.write(os);
    EXPECT_EQ(os.str(),
              R"(<svg viewBox="0 0 760 180" role="img" aria-label="Sizes, at most 2,000 bytes">
<text class="title" x="76" y="16">Sizes</text>
<path class="grid" d="M76 154.0H732"/><text class="y" x="68" y="154.0">0</text>
<path class="grid" d="M76 122.0H732"/><text class="y" x="68" y="122.0">500</text>
<path class="grid" d="M76 90.0H732"/><text class="y" x="68" y="90.0">1,000</text>
<path class="grid" d="M76 58.0H732"/><text class="y" x="68" y="58.0">1,500</text>
<path class="grid" d="M76 26.0H732"/><text class="y" x="68" y="26.0">2,000</text>
<text class="x" x="76.0" y="172">0 s</text>
<text class="x" x="240.0" y="172">0.5 s</text>
<text class="x" x="404.0" y="172">1 s</text>
<text class="x" x="568.0" y="172">1.5 s</text>
<text class="x" x="732.0" y="172">2 s</text>
<path class="curve" d="M76.0 154.0V58.0H404.0V26.0H732.0V154.0Z"/>
<g class="hints">
<rect x="76.0" y="26" width="328.0" height="128"><title>0.0 to 1.0 s: 1,500 bytes</title></rect>
<rect x="404.0" y="26" width="328.0" height="128"><title>1.0 to 2.0 s: 2,000 bytes</title></rect>
</g>
</svg>
)");
}

TEST(NimhostPlot, VeryShortRunHasDecimalLabels)
{
    Plot plot("Sizes", "bytes");
    plot.add(0.25, 1);
    std::ostringstream os;
    plot.write(os);
    EXPECT_NE(os.str().find("y=\"172\">0 s</text>\n<text class=\"x\" x=\"338.4\" y=\"172\">0.1 s</text>\n"
                            "<text class=\"x\" x=\"600.8\" y=\"172\">0.2 s</text>\n<path"),
              std::string::npos)
        << os.str();
}

TEST(NimhostPlot, EmptyPlotHasItsAxes)
{
    std::ostringstream os;
    Plot("Sizes", "bytes").write(os);
    EXPECT_NE(os.str().find("aria-label=\"Sizes, at most 0 bytes\""), std::string::npos);
    EXPECT_NE(os.str().find("<path class=\"curve\" d=\"M76.0 154.0V154.0Z\"/>"), std::string::npos);
    EXPECT_EQ(os.str().find("nan"), std::string::npos);
    EXPECT_EQ(os.str().find("inf"), std::string::npos);
}

}
