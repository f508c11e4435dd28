#include <host/Plot.hpp>

#include <gtest/gtest.h>

#include <sstream>

namespace {

using nimhost::grouped;
using nimhost::Plot;

TEST(NimhostPlot, GroupsDigits)
{
    EXPECT_EQ(grouped(0), "0");
    EXPECT_EQ(grouped(7), "7");
    EXPECT_EQ(grouped(0.5), "0.5");
    EXPECT_EQ(grouped(999), "999");
    EXPECT_EQ(grouped(1000), "1,000");
    EXPECT_EQ(grouped(12345.6), "12,346");
    EXPECT_EQ(grouped(1234567), "1,234,567");
    EXPECT_EQ(grouped(-100), "-100");
    EXPECT_EQ(grouped(-1000), "-1,000");
}

TEST(NimhostPlot, DrawsEachPartAsHighAsItsValue)
{
    Plot plot("Sizes", "bytes");
    plot.add(1, 1500);
    plot.add(2, 2000);
    std::ostringstream os;
    plot.write(os);
    EXPECT_EQ(os.str(),
              R"(<svg viewBox="0 0 760 180" role="img" aria-label="Sizes, at most 2,000 bytes">
<text class="title" x="76" y="16">Sizes</text>
<path class="grid" d="M76 154.0H748"/><text class="y" x="68" y="154.0">0</text>
<path class="grid" d="M76 122.0H748"/><text class="y" x="68" y="122.0">500</text>
<path class="grid" d="M76 90.0H748"/><text class="y" x="68" y="90.0">1,000</text>
<path class="grid" d="M76 58.0H748"/><text class="y" x="68" y="58.0">1,500</text>
<path class="grid" d="M76 26.0H748"/><text class="y" x="68" y="26.0">2,000</text>
<text class="x" x="76.0" y="172">0 s</text>
<text class="x" x="244.0" y="172">0.5 s</text>
<text class="x" x="412.0" y="172">1 s</text>
<text class="x" x="580.0" y="172">1.5 s</text>
<text class="x" x="748.0" y="172">2 s</text>
<path class="curve" d="M76.0 154.0V58.0H412.0V26.0H748.0V154.0Z"/>
<g class="hints">
<rect x="76.0" y="26" width="336.0" height="128"><title>0.0 to 1.0 s: 1,500 bytes</title></rect>
<rect x="412.0" y="26" width="336.0" height="128"><title>1.0 to 2.0 s: 2,000 bytes</title></rect>
</g>
</svg>
)");
}

TEST(NimhostPlot, OfNothingHasItsAxes)
{
    std::ostringstream os;
    Plot("Sizes", "bytes").write(os);
    EXPECT_NE(os.str().find("aria-label=\"Sizes, at most 0 bytes\""), std::string::npos);
    EXPECT_NE(os.str().find("<path class=\"curve\" d=\"M76.0 154.0V154.0Z\"/>"), std::string::npos);
    EXPECT_EQ(os.str().find("nan"), std::string::npos);
    EXPECT_EQ(os.str().find("inf"), std::string::npos);
}

}
