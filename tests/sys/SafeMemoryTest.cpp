#include <dalnim/sys/internal/src/SafeMemory.hpp>

#include <support/InChildProcess.hpp>
#include <support/Sanitizers.hpp>
#include <support/Valgrind.hpp>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

using com::kor::dal::nim::sys::internal::SafeMemory;

constexpr std::size_t PAGE = 4096;
constexpr std::size_t PAGES = 4;

/** Memory that ends in front of a page that is not mapped. */
class MappedMemory
{
public:
    MappedMemory()
        : memory(static_cast<char*>(
            ::mmap(nullptr, PAGES * PAGE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)))
    {
        for (std::size_t i = 0; i < size(); ++i) {
            memory[i] = static_cast<char>('a' + i / 100 % 26);
        }
        EXPECT_EQ(0, ::munmap(memory + size(), PAGE));
    }
    ~MappedMemory()
    {
        ::munmap(memory, size());
    }
    MappedMemory(const MappedMemory&) = delete;
    MappedMemory& operator=(const MappedMemory&) = delete;

    static std::size_t size()
    {
        return (PAGES - 1) * PAGE;
    }

    char* const memory;
};

/** Checks a read of mapped memory, and reads that reach past it. */
void expectReads()
{
    const MappedMemory source;
    std::string copy(MappedMemory::size(), '\0');
    errno = 7;
    EXPECT_TRUE(SafeMemory::read(copy.data(), source.memory, copy.size()));
    EXPECT_EQ(std::string(source.memory, copy.size()), copy);
    EXPECT_FALSE(SafeMemory::read(copy.data(), source.memory + PAGE, copy.size()));
    EXPECT_FALSE(SafeMemory::read(copy.data(), source.memory + copy.size(), 1));
    EXPECT_FALSE(SafeMemory::read(copy.data(), nullptr, 1));
    EXPECT_EQ(7, errno);
}

/** Has the kernel refuse system calls to this process. */
template <std::size_t N>
bool refuse(const long (&calls)[N])
{
    sock_filter program[2 * N + 2] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    std::size_t length = 1;
    for (const long call : calls) {
        program[length++] = BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned int>(call), 0, 1);
        program[length++] = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM);
    }
    program[length++] = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
    const sock_fprog filter = {static_cast<unsigned short>(length), program};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0
           && ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

constexpr int NO_FILTER = 77;

class SafeMemoryTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (support::isUnderValgrind()) {
            GTEST_SKIP() << "valgrind reports the reads that the kernel rejects";
        }
    }
};

/** Checks the reads in a child to which system calls are refused. */
template <std::size_t N>
void expectReadsWithout(const long (&calls)[N])
{
    const int status = support::inChildProcess([&calls] {
        if (!refuse(calls)) {
            ::_exit(NO_FILTER);
        }
        expectReads();
    });
    if (WIFEXITED(status) && WEXITSTATUS(status) == NO_FILTER) {
        GTEST_SKIP() << "the system has no filters of system calls";
    }
    EXPECT_EQ(0, status);
}

TEST_F(SafeMemoryTest, MemoryThatIsNotMappedIsNotRead)
{
    expectReads();
}

TEST_F(SafeMemoryTest, ReadsThroughProcIfTheSystemCallIsForbidden)
{
    expectReadsWithout({SYS_process_vm_readv});
}

TEST_F(SafeMemoryTest, ReadsThroughAPipeIfNoFileOfTheProcessCanBeOpened)
{
    if (support::UNDER_ADDRESS_SANITIZER || support::UNDER_THREAD_SANITIZER) {
        GTEST_SKIP() << "the sanitizer opens files itself";
    }
    expectReadsWithout({SYS_process_vm_readv, SYS_openat});
}

}
