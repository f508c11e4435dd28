#ifndef DALNIM_TESTS_SUPPORT_FILES_HPP
#define DALNIM_TESTS_SUPPORT_FILES_HPP

#include <string>

namespace support {

/** A folder of one test's own, removed with all that is in it. */
class ScratchFolder
{
public:
    ScratchFolder();
    ~ScratchFolder();

    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::string& path() const
    {
        return folder;
    }
    std::string file(const std::string& name) const
    {
        return folder + '/' + name;
    }

private:
    std::string folder;
};

/** All bytes of a file; empty when there is none. */
std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& text);

}

#endif
