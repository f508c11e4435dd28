#include "Files.hpp"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace support {

ScratchFolder::ScratchFolder()
{
    folder = (std::filesystem::temp_directory_path() / "dalnim-test-XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) {
        throw std::runtime_error("mkdtemp " + folder);
    }
}

ScratchFolder::~ScratchFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
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
