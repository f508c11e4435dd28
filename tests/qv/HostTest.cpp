#include <qv/pmx/host.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include <netdb.h>
#include <netinet/in.h>
#include <unistd.h>

namespace {

TEST(GetHostName, IsTheSystemsName)
{
    char expected[512] = {};
    ASSERT_EQ(gethostname(expected, sizeof expected), 0);
    char name[512];
    std::memset(name, 'x', sizeof name);
    EXPECT_EQ(qv_si_gethostname(name, sizeof name), 0);
    EXPECT_STREQ(name, expected);
}

TEST(GetHostName, FailsIfTheBufferIsTooSmall)
{
    char name[1] = {'x'};
    EXPECT_EQ(qv_si_gethostname(name, sizeof name), 36);
}

TEST(AddressLookUp, NumericAddressIsResolvedAndFormatted)
{
    addrinfo hints = {};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST;
    addrinfo* list = nullptr;
    ASSERT_EQ(qv_si_getaddrinfo("127.0.0.1", nullptr, &hints, &list), 0);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->ai_family, AF_INET);

    char host[1025];
    const auto nameOf = [&](socklen_t size) {
        return qv_si_getnameinfo(list->ai_addr, list->ai_addrlen, host, size, nullptr, 0, NI_NUMERICHOST);
    };
    EXPECT_EQ(nameOf(sizeof host), 0);
    EXPECT_STREQ(host, "127.0.0.1");
    EXPECT_EQ(nameOf(2), EAI_OVERFLOW);
    qv_si_freeaddrinfo(list);
}

TEST(AddressLookUp, FailureReturnsTheErrorOfTheResolver)
{
    addrinfo hints = {};
    hints.ai_flags = AI_NUMERICHOST;
    addrinfo* list = nullptr;
    EXPECT_EQ(qv_si_getaddrinfo("not an address", nullptr, &hints, &list), EAI_NONAME);
    EXPECT_EQ(list, nullptr);
}

TEST(AddressLookUp, FreeingNullHasNoEffect)
{
    qv_si_freeaddrinfo(nullptr);
}

}
