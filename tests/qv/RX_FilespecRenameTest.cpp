#include <qv/rtlapi/RX_Filespec.hpp>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <dlfcn.h>
#include <unistd.h>

#include "Scratch.hpp"

#include <qv/rtlapi/RX_ExWarning.hpp>

namespace {

using qvtest::AsNobody;
using qvtest::Scratch;

typedef qvtest::NeedsRoot RX_FilespecRenameAsRoot;

/** The path of the file that the next access check renames to "<path>.0"; empty for none. */
std::string renamedAtAccess;

/** Renames `path` between the two system calls of a check: stat() has found it, faccessat() will not. */
class RenameAtAccess
{
public:
    explicit RenameAtAccess(const std::string& path)
    {
        renamedAtAccess = path;
    }
    RenameAtAccess(const RenameAtAccess&) = delete;
    RenameAtAccess& operator=(const RenameAtAccess&) = delete;
    ~RenameAtAccess()
    {
        renamedAtAccess.clear();
    }

    /** Returns true if the file has been renamed. */
    static bool isDone()
    {
        return renamedAtAccess.empty();
    }
};

/** Undoes AsNobody for a scope. */
class AsRealUser
{
public:
    AsRealUser() : _effective(::geteuid())
    {
        become(::getuid());
    }
    AsRealUser(const AsRealUser&) = delete;
    AsRealUser& operator=(const AsRealUser&) = delete;
    ~AsRealUser()
    {
        become(_effective);
    }

private:
    static void become(uid_t user)
    {
        if (::seteuid(user) != 0) {
            std::abort();
        }
    }

    const uid_t _effective;
};

RX_Filespec create(const std::string& path)
{
    return RX_Filespec(RX_String(path.data(), path.size()), RX_Filespec::CREATE, RX_Filespec::CHECK_RIGHTS);
}

}

/** Replaces the function of the C library in this program: performs the rename, then calls it. */
extern "C" __attribute__((visibility("default"))) int faccessat(int directory, const char* path, int mode,
                                                                int flags) noexcept
{
    const auto next = reinterpret_cast<decltype(&::faccessat)>(::dlsym(RTLD_NEXT, "faccessat"));
    if (renamedAtAccess == path) {
        const AsRealUser allowed;
        if (std::rename(path, (renamedAtAccess + ".0").c_str()) != 0) {
            std::abort();
        }
        renamedAtAccess.clear();
    }
    return next(directory, path, mode, flags);
}

namespace {

TEST(RX_FilespecRename, CreateIsGrantedIfTheFileIsRenamedDuringTheCheck)
{
    const Scratch scratch;
    const std::string log = scratch.file("host.log");
    const RenameAtAccess rename(log);
    EXPECT_NO_THROW(create(log));
    EXPECT_TRUE(RenameAtAccess::isDone());
    EXPECT_FALSE(std::filesystem::exists(log));
    EXPECT_TRUE(std::filesystem::exists(log + ".0"));
}

TEST_F(RX_FilespecRenameAsRoot, CreateChecksTheDirectoryIfTheFileIsRenamedDuringTheCheck)
{
    const Scratch scratch;
    const std::string log = scratch.directory("closed", 0755) + "/host.log";
    scratch.file("closed/host.log", 0666);
    const RenameAtAccess rename(log);
    try {
        const AsNobody nobody;
        create(log);
        ADD_FAILURE() << "granted, although the directory cannot be written to";
    } catch (const RX_ExWarning& denied) {
        EXPECT_EQ(denied.getCode(), 13);
    }
}

}
