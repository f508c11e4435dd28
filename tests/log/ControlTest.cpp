#include <dalnim/log/Control.hpp>

#include "Loggers.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <type_traits>

namespace {

using namespace logtest;
using log::Control;

static_assert(std::is_abstract_v<Control> && std::has_virtual_destructor_v<Control>);
static_assert(std::is_same_v<Control::SeverityColl, std::vector<log::Severity>>);
static_assert(std::is_same_v<Control::StringColl, std::vector<String>>);
static_assert(std::is_same_v<decltype(Control::DEFAULT_MASK), unsigned int>);
static_assert(std::is_same_v<decltype(Control::DEFAULT_SEVERITY), log::Severity>);
static_assert(std::is_same_v<decltype(std::declval<const Control&>().getPath()), const String>);

/** A Control without files, which overrides only the pure virtual operations. */
class FilelessControl : public Control
{
public:
    void setConfiguration(const com::kor::dal::nim::io::Properties&) override {}
    bool remoteControlAllowed() const override
    {
        return false;
    }
    bool allowRemoteControl(bool) override
    {
        return false;
    }
    const String getPath() const override
    {
        return String();
    }
    void setPath(const String&) override {}
    void setStream(const String&) override {}
    unsigned int getOutputMask() const override
    {
        return 0;
    }
    void setOutputMask(unsigned int) override {}
    log::Severity getSeverity() const override
    {
        return severity;
    }
    void setSeverity(log::Severity newSev) override
    {
        severity = newSev;
    }
    void getSeverityMask(SeverityColl&) const override {}
    void getSeverityMask(StringColl&) const override {}
    void setSeverityMask(log::Severity masked, bool on) override
    {
        severity = masked;
        switchedOn = on;
    }
    void setSeverityMask(const SeverityColl&, bool) override {}
    void setSeverityMask(const StringColl&, bool) override {}
    bool getLocaltime() const override
    {
        return false;
    }
    bool setLocaltime(bool) override
    {
        return false;
    }
    void getModuleFilter(StringColl&) const override {}
    void setModuleFilter(const String&, bool) override {}
    void getModulesRegisteredDynamic(StringColl&) const override {}
    void getModulesRegisteredStatic(StringColl&) const override {}

    log::Severity severity = log::Severity_NONE;
    bool switchedOn = false;
};

/** Restores the defaults, directly: the setter would reject DEFAULT_MASK. */
class Defaults : public testing::Test
{
protected:
    ~Defaults() override
    {
        Control::DEFAULT_MASK = 1023;
        Control::DEFAULT_SEVERITY = log::Severity_NOTICE;
    }
};

TEST(Control, TagsHaveTheirTexts)
{
    EXPECT_STREQ("Control", Control::CLASS_NAME);
    EXPECT_STREQ("directory", Control::TAG_OUTPUT_DIRECTORY);
    EXPECT_STREQ("file", Control::TAG_OUTPUT_FILE);
    EXPECT_STREQ("stream", Control::TAG_OUTPUT_STREAM);
    EXPECT_STREQ("severity.id", Control::TAG_SEVERITY_ID);
    EXPECT_STREQ("severity.mask", Control::TAG_SEVERITY_MASK);
    EXPECT_STREQ("output.mask", Control::TAG_OUTPUT_MASK);
    EXPECT_STREQ("modules", Control::TAG_MODULE_LIST);
    EXPECT_STREQ("remote.enable", Control::TAG_ALLOW_REMOTE);
    EXPECT_STREQ("localtime", Control::TAG_RECORD_LOCAL_TIME);
    EXPECT_STREQ("maxFileSize", Control::TAG_MAX_FILE_SIZE);
    EXPECT_STREQ("maxNumberOfFiles", Control::TAG_MAX_NUMBER_OF_FILES);
}

TEST(Control, FileLimitsAreIgnoredByALoggerWithoutFiles)
{
    FilelessControl fileless;
    Control& control = fileless;
    control.setMaxFileSize(100);
    control.setMaxNumberOfFiles(5);
    EXPECT_EQ(0u, control.getMaxFileSize());
    EXPECT_EQ(0u, control.getMaxNumberOfFiles());
}

TEST(Control, SeveritiesCanBeSetByName)
{
    FilelessControl fileless;
    Control& control = fileless;
    control.setSeverity("DEBUG");
    EXPECT_EQ(log::Severity_DEBUG, fileless.severity);
    control.setSeverity(String("ERROR"));
    EXPECT_EQ(log::Severity_ERROR, fileless.severity);
    control.setSeverityMask("TRACE", true);
    EXPECT_EQ(log::Severity_TRACE, fileless.severity);
    EXPECT_TRUE(fileless.switchedOn);
    control.setSeverityMask(String("FATAL"), false);
    EXPECT_EQ(log::Severity_FATAL, fileless.severity);
    EXPECT_FALSE(fileless.switchedOn);
}

TEST(Control, UnknownSeverityNamesThrow)
{
    FilelessControl fileless;
    Control& control = fileless;
    control.setSeverity("ERROR");
    EXPECT_EQ("Unrecognized NIM Log Severity",
              textOf<std::out_of_range>([&] { control.setSeverity("error"); }));
    EXPECT_EQ("Unrecognized NIM Log Severity",
              textOf<std::out_of_range>([&] { control.setSeverityMask("error", true); }));
    EXPECT_EQ(log::Severity_ERROR, fileless.severity);
    EXPECT_FALSE(fileless.switchedOn);
}

TEST_F(Defaults, AreAllFieldsAndNoticeInitially)
{
    EXPECT_EQ(1023u, Control::DEFAULT_MASK);
    EXPECT_EQ(4, Control::DEFAULT_SEVERITY);
    EXPECT_EQ(1023u, Control::getOutputMaskDefault());
    EXPECT_EQ(log::Severity_NOTICE, Control::getSeverityDefault());
}

TEST_F(Defaults, ApplyToLoggersConstructedLater)
{
    const log::Write before;
    Control::setOutputMaskDefault(4);
    Control::setSeverityDefault(log::Severity_TRACE);
    const log::Write after;
    EXPECT_EQ(1023u, before.getOutputMask());
    EXPECT_EQ(log::Severity_NOTICE, before.getSeverity());
    EXPECT_EQ(4u, after.getOutputMask());
    EXPECT_EQ(log::Severity_TRACE, after.getSeverity());
    EXPECT_TRUE(after.isSeveritySatisfied(log::Severity_TRACE));
    EXPECT_FALSE(after.isSeveritySatisfied(log::Severity_NONE));
}

TEST_F(Defaults, MaskAboveTheHighestSingleBitThrows)
{
    Control::setOutputMaskDefault(512);
    EXPECT_EQ(512u, Control::getOutputMaskDefault());
    for (const unsigned int mask : {513u, 1023u, 1024u, 0xFFFFFFFFu}) {
        EXPECT_EQ("Illegal Mask", textOf<std::out_of_range>([mask] { Control::setOutputMaskDefault(mask); }));
        EXPECT_EQ(512u, Control::getOutputMaskDefault());
    }
    Control::setOutputMaskDefault(0);
    EXPECT_EQ(0u, Control::getOutputMaskDefault());
    Control::setOutputMaskDefault(511);
    EXPECT_EQ(511u, Control::DEFAULT_MASK);
}

TEST_F(Defaults, SeverityAboveFatalThrows)
{
    for (const int severity : {8, -1, 255}) {
        EXPECT_EQ("Illegal Severity", textOf<std::out_of_range>([severity] {
                      Control::setSeverityDefault(static_cast<log::Severity>(severity));
                  }));
        EXPECT_EQ(log::Severity_NOTICE, Control::getSeverityDefault());
    }
    Control::setSeverityDefault(log::Severity_NONE);
    EXPECT_EQ(log::Severity_NONE, Control::getSeverityDefault());
    Control::setSeverityDefault(log::Severity_FATAL);
    EXPECT_EQ(log::Severity_FATAL, Control::DEFAULT_SEVERITY);
}

TEST_F(Defaults, MayBeSetByAnyThread)
{
    std::thread other([] {
        for (int i = 0; i < 1000; ++i) {
            Control::setOutputMaskDefault(static_cast<unsigned int>(i % 2));
            Control::setSeverityDefault(i % 2 != 0 ? log::Severity_INFO : log::Severity_DEBUG);
        }
    });
    for (int i = 0; i < 1000; ++i) {
        Control::setOutputMaskDefault(static_cast<unsigned int>(i % 2));
        EXPECT_LE(Control::getOutputMaskDefault(), 1023u);
        EXPECT_LE(Control::getSeverityDefault(), log::Severity_NOTICE);
    }
    other.join();
}

}
