#include "Files.hpp"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace support {

ScratchFolder::ScratchFolder()
{
    directory = (std::filesystem::temp_directory_path() / "dalnim-test-XXXXXX").string();
    if (mkdtemp(directory.data()) == nullptr) {
        throw std::runtime_error("mkdtemp " + directory);
    }
}

ScratchFolder::~ScratchFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
}

std::string readFile(const std::string& path)
{
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

void writeFile(const std::string& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

}
