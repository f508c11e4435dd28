#ifndef DALNIM_TOOLS_NIMPROPS_PROPERTIESFILE_HPP
#define DALNIM_TOOLS_NIMPROPS_PROPERTIESFILE_HPP

#include <dalnim/io/Properties.hpp>

#include <map>
#include <string>
#include <vector>

namespace nimprops {

namespace io = com::kor::dal::nim::io;

/** An error or a warning of the library about a line. */
struct Message
{
    enum Severity { WARNING, ERROR };

    Severity severity;
    /** File and line, as in "file:12"; the file with its path if that is unambiguous. */
    std::string location;
    std::string text;
};

/** A properties file and the files that it includes, read by the library. */
class PropertiesFile
{
public:
    /**
     * Reads a file. Errors in its content do not throw, see messages().
     * @param path the path, or "-" for standard input
     * @throws Failure if the file cannot be read, or includes a FIFO
     */
    explicit PropertiesFile(const std::string& path);

    /** Returns the properties, up to the first error. */
    const io::Properties& table() const
    {
        return properties;
    }

    /** Returns the warnings in file order, followed by the error that ended the load, if any. */
    const std::vector<Message>& messages() const
    {
        return loadMessages;
    }

    /** @throws Failure "file:12: text" if the file has an error */
    void requireNoError() const;

    /**
     * Returns all errors, at most 100, then the warnings. Continues after each error of the file itself as if
     * its line were empty, and stops at an error of an included file.
     */
    std::vector<Message> allMessages() const;

    /** Returns the location that the value of each key comes from. Keys of unknown location are omitted. */
    std::map<std::string, std::string> locations() const;

private:
    std::vector<Message> readText(io::Properties& into, const std::string& lines) const;
    void findIncludes();
    Message message(const std::string& line) const;
    std::string locationOf(const std::string& name, const std::string& line) const;

    const std::string path;
    const std::string text;
    /** Paths of the file and its includes, by file name: the library's messages contain only file names. */
    std::multimap<std::string, std::string> paths;
    io::Properties properties;
    std::vector<Message> loadMessages;
};

/** Returns the properties as lines of a properties file, sorted by key. A load restores them exactly. */
std::vector<std::string> storedLines(const io::Properties& properties);

}

#endif
