#ifndef TESTS_QV_SCRATCH_HPP
#define TESTS_QV_SCRATCH_HPP

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include <sys/stat.h>
#include <unistd.h>

namespace qvtest {

/** A temporary directory that all users can search. The destructor removes it with its content. */
class Scratch
{
public:
    Scratch()
    {
        char name[] = "/tmp/dalnim-qv-XXXXXX";
        if (::mkdtemp(name) == nullptr || ::chmod(name, 0755) != 0) {
            std::abort();
        }
        _path = name;
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch()
    {
        std::error_code ignored;
        std::filesystem::remove_all(_path, ignored);
    }

    const std::string& path() const
    {
        return _path;
    }

    std::string path(const std::string& name) const
    {
        return _path + "/" + name;
    }

    std::string file(const std::string& name, mode_t mode = 0644) const
    {
        std::ofstream(path(name)) << "text";
        return withMode(name, mode);
    }

    std::string directory(const std::string& name, mode_t mode = 0755) const
    {
        std::filesystem::create_directory(path(name));
        return withMode(name, mode);
    }

    std::string link(const std::string& name, const std::string& target) const
    {
        std::filesystem::create_symlink(target, path(name));
        return path(name);
    }

private:
    std::string withMode(const std::string& name, mode_t mode) const
    {
        if (::chmod(path(name).c_str(), mode) != 0) {
            std::abort();
        }
        return path(name);
    }

    std::string _path;
};

/** Changes the effective user from root to one without rights for a scope. */
class AsNobody
{
public:
    AsNobody()
    {
        become(65534);
    }
    AsNobody(const AsNobody&) = delete;
    AsNobody& operator=(const AsNobody&) = delete;
    ~AsNobody()
    {
        become(0);
    }

private:
    static void become(uid_t user)
    {
        if (::seteuid(user) != 0) {
            std::abort();
        }
    }
};

/** Fixture of tests that need root, to deny access to files by changing the effective user. */
class NeedsRoot : public testing::Test
{
protected:
    void SetUp() override
    {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs to be run as root";
        }
    }
};

}

#endif
