#ifndef DALNIM_TOOLS_NIMPROPS_PROPERTIESFILE_HPP
#define DALNIM_TOOLS_NIMPROPS_PROPERTIESFILE_HPP

#include <dalnim/io/Properties.hpp>

#include <map>
#include <string>
#include <vector>

namespace nimprops {

namespace io = com::kor::dal::nim::io;

/** Something that the library has to say of a line. */
struct Message
{
    enum Severity { WARNING, ERROR };

    Severity severity;
    /** "file:12", the file as the user would open it, if that can be told. */
    std::string place;
    std::string text;
};

/** A properties file with what it includes, read by the library; "-" is standard input. */
class PropertiesFile
{
public:
    /**
     * Throws Failure when the file cannot be read, or if it includes a FIFO. An error in a line is none: see
     * messages().
     */
    explicit PropertiesFile(const std::string& path);

    /** The properties, up to the first error. */
    const io::Properties& table() const
    {
        return properties;
    }

    /** The warnings, and the error that ended the reading if there was one; in the order of reading. */
    const std::vector<Message>& messages() const
    {
        return found;
    }

    /** Throws Failure, of "file:12: text", for a file with an error. */
    void requireNoError() const;

    /**
     * The messages as they would be without the errors before them: reads on behind each error of the
     * file itself, as if its line were empty. An error of an included file is the last.
     */
    std::vector<Message> allMessages() const;

    /** Where the value of each key comes from; no key whose place the library does not tell. */
    std::map<std::string, std::string> places() const;

private:
    std::vector<Message> readText(io::Properties& into, const std::string& lines) const;
    void findIncludes();
    Message message(const std::string& line) const;
    std::string placeOf(const std::string& name, const std::string& line) const;

    const std::string path;
    const std::string text;
    /** The files that may be meant by the names in the messages: paths by their last part. */
    std::multimap<std::string, std::string> paths;
    io::Properties properties;
    std::vector<Message> found;
};

/** The lines that properties are written as, in the order of keys; a load reads each back as it is. */
std::vector<std::string> storedLines(const io::Properties& properties);

}

#endif
