#include "ReplacedFile.hpp"

#include <dalnim/nim.hpp>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

namespace nimhost {

namespace nim = com::kor::dal::nim;

namespace {

/** Returns the path that a symbolic link refers to, even if it does not exist. */
std::string followed(const std::filesystem::path& path)
{
    constexpr int MAX_LINKS = 40; // as in the kernel
    std::filesystem::path end = path;
    for (int links = 0; links < MAX_LINKS && std::filesystem::is_symlink(end); ++links) {
        end = end.parent_path() / std::filesystem::read_symlink(end);
    }
    return end;
}

[[noreturn]] void fail(const std::string& file, int error)
{
    throw std::runtime_error("cannot write " + file + ": " + nim::sys::sys_err_string(error));
}

}

ReplacedFile::ReplacedFile(const std::string& path) : file(followed(path))
{
    // The file is replaced, so it must not be a pipe or a device.
    if (std::filesystem::exists(file) && !std::filesystem::is_regular_file(file)) {
        fail(path, std::filesystem::is_directory(file) ? EISDIR : EINVAL);
    }
}

void ReplacedFile::write(const std::string& text) const
{
    const std::string fresh = file + ".new";
    // Removes the file of a host that was killed, or a link that would redirect the new file.
    static_cast<void>(std::remove(fresh.c_str()));
    std::FILE* const out = std::fopen(fresh.c_str(), "wxe");
    if (out == nullptr) {
        fail(file, errno);
    }
    int error = std::fwrite(text.data(), 1, text.size(), out) == text.size() ? 0 : errno;
    if (std::fclose(out) != 0 && error == 0) {
        error = errno;
    }
    if (error == 0 && std::rename(fresh.c_str(), file.c_str()) != 0) {
        error = errno;
    }
    if (error != 0) {
        static_cast<void>(std::remove(fresh.c_str()));
        fail(file, error);
    }
}

}
