#ifndef TESTS_LOG_LOGFILEFIXTURE_HPP
#define TESTS_LOG_LOGFILEFIXTURE_HPP

#include <dalnim/log/LogFile.hpp>

#include "support/Files.hpp"
#include "support/InChildProcess.hpp"
#include "support/StandardErrorTo.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace logfiletest {

using com::kor::dal::nim::String;
using com::kor::dal::nim::log::LogFile;
using com::kor::dal::nim::log::LogFileRef;
using support::inChildProcess;

/** A scratch directory that every user can enter. */
class Folder : public support::ScratchFolder
{
public:
    Folder()
    {
        std::filesystem::permissions(path(), std::filesystem::perms(0755));
    }

    String operator/(const String& name) const
    {
        return file(name);
    }
};

/** Standard error as a text. A second one takes over from the first until its end. */
class CapturedCerr
{
public:
    /** What came since the last call, each diagnostic's line number shown as "#". */
    String take()
    {
        String text = buffer.str();
        buffer.str("");
        static const String SOURCE = "LogFile:";
        std::size_t from = text.compare(0, SOURCE.size(), SOURCE) == 0 ? 0 : text.find('\n' + SOURCE);
        while (from != String::npos) {
            from = text.find(':', from) + 1;
            const std::size_t digits = text.find_first_not_of("0123456789", from) - from;
            if (digits != 0) {
                text.replace(from, digits, "#");
            }
            from = text.find('\n' + SOURCE, from);
        }
        return text;
    }

private:
    std::ostringstream buffer;
    const support::StandardErrorTo captured{buffer.rdbuf()};
};

/** Drops root's effective user to one without rights, and back at the end of its scope. */
class AsNobody
{
public:
    AsNobody() : user(::geteuid())
    {
        become(user == 0 ? 65534 : user);
    }
    AsNobody(const AsNobody&) = delete;
    AsNobody& operator=(const AsNobody&) = delete;
    ~AsNobody()
    {
        become(user);
    }

private:
    static void become(uid_t id)
    {
        if (::seteuid(id) != 0) {
            std::abort();
        }
    }

    const uid_t user;
};

/** A soft limit of this process that ends with the scope. */
class Limit
{
public:
    Limit(__rlimit_resource which, rlim_t value) : resource(which)
    {
        if (::getrlimit(resource, &before) != 0) {
            std::abort();
        }
        rlimit lowered = before;
        lowered.rlim_cur = value;
        set(lowered);
    }
    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;
    ~Limit()
    {
        set(before);
    }

private:
    void set(const rlimit& value)
    {
        if (::setrlimit(resource, &value) != 0) {
            std::abort();
        }
    }

    const __rlimit_resource resource;
    rlimit before;
};

/** What precedes a record on standard error that its own stream would not take. */
inline const String WRITE_ERROR_MESSAGE = "ERROR: Unable to write to log output stream.\n";

inline bool exists(const String& path)
{
    return std::filesystem::exists(std::filesystem::symlink_status(path));
}

/** All bytes of a file that is there. */
inline String contentOf(const String& path)
{
    EXPECT_TRUE(exists(path)) << path;
    return support::readFile(path);
}

inline void create(const String& path, const String& content)
{
    std::ofstream file(path, std::ios_base::binary);
    file << content;
    ASSERT_TRUE(file.flush().good()) << path;
}

/** A link to the device that is always full. A logger that rotates by mistake renames the link alone. */
inline void createFullFile(const String& path)
{
    std::filesystem::create_symlink("/dev/full", path);
}

/** A directory that neither remove() nor a rename() onto it can do away with. */
inline void createFullDirectory(const String& path)
{
    std::filesystem::create_directory(path);
    create(path + "/inside", "");
}

/** Returns the names in a directory, in order. */
inline std::vector<String> namesIn(const String& folder)
{
    std::vector<String> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

/** A log file in a directory, with standard error captured. */
class LogFileFixture : public testing::Test
{
protected:
    LogFileFixture() : path(folder / "server.log"), file(new LogFile) {}

    /** Sets the path, and discards the traces of the files that are counted. */
    void open(std::size_t maxFileSize = 0, std::size_t maxFiles = 0)
    {
        file->setPath(path);
        file->setMaxFileSize(maxFileSize);
        file->setMaxNumberOfFiles(maxFiles);
        err.take();
    }

    String displayName(bool deep = false) const
    {
        String name = "untouched";
        file->getCurrentPath(name, deep);
        return name;
    }

    String old(std::size_t number) const
    {
        return path + '.' + std::to_string(number);
    }

    /** Back on standard error, without a path. */
    void expectStandardError()
    {
        EXPECT_EQ("", file->getPath());
        EXPECT_EQ(&std::cerr, file->getStream());
        EXPECT_EQ("STDERR", displayName());
        EXPECT_TRUE(file->is_reserved());
    }

    Folder folder;
    const String path;
    CapturedCerr err;
    LogFileRef file;
};

}

#endif
