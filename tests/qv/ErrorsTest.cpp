#include <qv/pmx/errors.h>

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <thread>

#include <qv/pmx/init.h>

namespace {

TEST(StrError, ErrnoValueHasTheMessageOfTheSystem)
{
    EXPECT_STREQ(qv_si_strerror(0), "Success");
    EXPECT_STREQ(qv_si_strerror(2), "No such file or directory");
    EXPECT_STREQ(qv_si_strerror(13), "Permission denied");
    EXPECT_STREQ(qv_si_strerror(16), "Device or resource busy");
    EXPECT_STREQ(qv_si_strerror(22), "Invalid argument");
    EXPECT_STREQ(qv_si_strerror(34), "Numerical result out of range");
    EXPECT_STREQ(qv_si_strerror(62), "Timer expired");
}

TEST(StrError, UnknownNumberHasNoMessage)
{
    // 41 and 58 are not errno values.
    for (const int code : {-1, -22, 41, 58, 4095, 51457, 51460, 99999, 882164500,
                           std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        EXPECT_EQ(qv_si_strerror(code), nullptr) << code;
    }
}

TEST(StrError, ErrorsOfTheClassLibraryHaveMessages)
{
    EXPECT_STREQ(qv_si_strerror(51458), "Index out of range");
    EXPECT_STREQ(qv_si_strerror(51459), "Condition does not hold");
    EXPECT_STREQ(qv_si_strerror(51488), "No such element");
    EXPECT_STREQ(qv_si_strerror(51512), "Iterator used past its end");
    EXPECT_STREQ(qv_si_strerror(51532), "Set was modified during an iteration");
    EXPECT_STREQ(qv_si_strerror(51536), "Exception");
    EXPECT_STREQ(qv_si_strerror(51537), "Exception of unknown type");
}

TEST(StrError, EveryFamilyHasMessages)
{
    EXPECT_STREQ(qv_si_strerror(49408), "Library cannot be loaded");
    EXPECT_STREQ(qv_si_strerror(49664), "Host name cannot be resolved");
    EXPECT_STREQ(qv_si_strerror(49920), "Pipe cannot be created");
    EXPECT_STREQ(qv_si_strerror(50176), "Large number is malformed");
    EXPECT_STREQ(qv_si_strerror(50432), "Encryption failed");
    EXPECT_STREQ(qv_si_strerror(51712), "Configuration entry not found");
    EXPECT_STREQ(qv_si_strerror(51968), "Authentication failed");
    EXPECT_STREQ(qv_si_strerror(52224), "File cannot be mapped into memory");
    EXPECT_STREQ(qv_si_strerror(52480), "Path cannot be resolved");
    EXPECT_STREQ(qv_si_strerror(52736), "Java virtual machine not found");
    EXPECT_STREQ(qv_si_strerror(52992), "Signal handler cannot be installed");
}

TEST(StrError, MessageIsTheSameOnEveryThread)
{
    const char* here = qv_si_strerror(2);
    const char* there = nullptr;
    std::thread([&there] { there = qv_si_strerror(2); }).join();
    EXPECT_EQ(here, there);
    // Looking up another message does not change the first one.
    qv_si_strerror(13);
    EXPECT_STREQ(here, "No such file or directory");
}

TEST(ErrorTables, AreRegisteredWhenTheLibraryIsLoaded)
{
    EXPECT_EQ(_qv_RTLD_error_table_initializer_done, 1);
    EXPECT_EQ(_qv_DNS_error_table_initializer_done, 1);
    EXPECT_EQ(_qv_PIPE_error_table_initializer_done, 1);
    EXPECT_EQ(_qv_BNUM_error_table_initializer_done, 1);
    EXPECT_EQ(_qv_CRPT_error_table_initializer_done, 1);
    EXPECT_EQ(_qv_RX_error_table_initializer_done, 1);
    EXPECT_EQ(_qv_UCNF_error_table_initializer_done, 1);
    EXPECT_EQ(_qv_AUTH_error_table_initializer_done, 1);
    EXPECT_EQ(_qv_MAPP_error_table_initializer_done, 1);
    EXPECT_EQ(_qv_MISC_error_table_initializer_done, 1);
    EXPECT_EQ(_qv_JVMI_error_table_initializer_done, 1);
    EXPECT_EQ(_qv_SGNL_error_table_initializer_done, 1);
}

int initCalls = 0;

void countCall()
{
    ++initCalls;
}

TEST(ErrorTableInitializer, SetsTheFlagAndCallsInitOnce)
{
    initCalls = 0;
    int done = 0;
    const qv::ErrorTableInitializer first(done, countCall);
    EXPECT_EQ(done, 1);
    EXPECT_EQ(initCalls, 1);
    const qv::ErrorTableInitializer second(done, countCall);
    EXPECT_EQ(done, 1);
    EXPECT_EQ(initCalls, 1);
}

int doneSeen = -1;
int flag = 0;

TEST(ErrorTableInitializer, SetsTheFlagBeforeItCallsInit)
{
    flag = 0;
    const qv::ErrorTableInitializer initializer(flag, [] { doneSeen = flag; });
    EXPECT_EQ(doneSeen, 1);
}

TEST(ErrorTables, RegistrationFailsWhenTheTableIsFull)
{
    static const qv_error_message_t messages[] = {{60001, "first"}, {60005, "second"}};
    static const qv_error_table_t table = {"TEST", messages, 2};
    EXPECT_EQ(qv_si_strerror(60001), nullptr);
    EXPECT_EQ(qv_si_error_table_add(nullptr), 22);

    // In a child process, since a table cannot be unregistered.
    EXPECT_EXIT(
        {
            bool isGood = qv_si_error_table_add(&table) == 0;
            isGood = isGood && std::string(qv_si_strerror(60001)) == "first";
            isGood = isGood && std::string(qv_si_strerror(60005)) == "second";
            isGood = isGood && qv_si_strerror(60003) == nullptr && qv_si_strerror(60006) == nullptr;
            int status = 0;
            for (int i = 0; i < 32 && status == 0; ++i) {
                status = qv_si_error_table_add(&table);
            }
            std::exit(isGood && status == 28 && std::string(qv_si_strerror(51459)).size() == 23 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(Init, SucceedsRepeatedlyOnAnyThread)
{
    EXPECT_EQ(qv_si_init_only_multithreaded(), 0);
    EXPECT_EQ(qv_si_init_only_multithreaded(), 0);
    qv_err_t there = -1;
    std::thread([&there] { there = qv_si_init_only_multithreaded(); }).join();
    EXPECT_EQ(there, 0);
    const qv::SystemInterfaceInitializer initializer("a/path", 1);
}

}
