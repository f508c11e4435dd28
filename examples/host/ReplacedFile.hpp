#ifndef NIMHOST_REPLACEDFILE_HPP
#define NIMHOST_REPLACEDFILE_HPP

#include <string>

namespace nimhost {

/** A file whose content is replaced as a whole: readers see the old content or the new one. */
class ReplacedFile
{
public:
    /**
     * @param path the file, or a symbolic link to it. It need not exist.
     * @throws std::runtime_error if it exists and is not a regular file
     */
    explicit ReplacedFile(const std::string& path);

    /**
     * @throws std::runtime_error "cannot write PATH: REASON" if the write fails; the file is unchanged then
     */
    void write(const std::string& text) const;

private:
    const std::string file;
};

}

#endif
