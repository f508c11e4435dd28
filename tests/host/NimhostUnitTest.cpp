#include "NimhostFixture.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

using support::ChildProcess;
using support::writeFile;
using testing::HasSubstr;

/** The unit file, with the program of this build. */
class NimhostUnitTest : public NimhostFixture
{
protected:
    std::string unit() const
    {
        std::string text = support::readFile(NIMHOST_UNIT);
        const std::string installed = "/usr/local/lib/nimhost/nimhost ";
        const std::size_t found = text.find(installed);
        if (found == std::string::npos) {
            throw std::runtime_error("no " + installed);
        }
        text.replace(found, installed.size(), NIMHOST_PROGRAM " ");
        writeFile(scratch.file("nimhost.service"), text);
        return scratch.file("nimhost.service");
    }
};

}

TEST_F(NimhostUnitTest, HasNoFindingOfSystemdAnalyze)
{
    ChildProcess verify({SYSTEMD_ANALYZE_PROGRAM, "verify", "--man=no", unit()}, scratch.path());
    EXPECT_EQ(verify.wait(), 0);
    EXPECT_EQ(verify.errors(), "");
    EXPECT_EQ(verify.output(), "");
}

TEST_F(NimhostUnitTest, ExposureIsLow)
{
    // The limit is 1 of 10.
    ChildProcess security({SYSTEMD_ANALYZE_PROGRAM, "security", "--offline=true", "--threshold=10", unit()},
                          scratch.path());
    EXPECT_EQ(security.wait(), 0) << security.output() << security.errors();
}

TEST_F(NimhostUnitTest, CommandLineIsAccepted)
{
    const std::string text = support::readFile(NIMHOST_UNIT);
    EXPECT_THAT(text, HasSubstr("\nExecStart=/usr/local/lib/nimhost/nimhost --service --config "
                                "/etc/nimhost/host.properties\n"));
    expectRejected({"--service", "--config", scratch.file("host.properties")},
                   "nimhost: cannot read " + scratch.file("host.properties") + ": No such file or directory");
}
