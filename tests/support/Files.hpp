#ifndef DALNIM_TESTS_SUPPORT_FILES_HPP
#define DALNIM_TESTS_SUPPORT_FILES_HPP

#include <string>

namespace support {

/** A temporary directory, which is removed with its content. */
class ScratchFolder
{
public:
    ScratchFolder();
    ~ScratchFolder();

    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::string& path() const
    {
        return directory;
    }
    std::string file(const std::string& name) const
    {
        return directory + '/' + name;
    }

private:
    std::string directory;
};

/** Returns the content of a file, or an empty string if it does not exist. */
std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& text);

}

#endif
