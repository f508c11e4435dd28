#ifndef BENCHMARKS_LOG_FRESHFILE_HPP
#define BENCHMARKS_LOG_FRESHFILE_HPP

#include <cstdlib>
#include <filesystem>
#include <string>

/**
 * The path of a file that does not exist yet, in a folder of its own below the one for temporary
 * files, which goes with this object. Each repetition has its own: a file that is truncated and
 * written anew costs other than a new one.
 */
class FreshFile
{
public:
    FreshFile()
    {
        std::string name = (std::filesystem::temp_directory_path() / "dalnim-bench-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            std::abort();
        }
        folder = name;
        path = folder + "/bench.log";
    }
    FreshFile(const FreshFile&) = delete;
    FreshFile& operator=(const FreshFile&) = delete;
    ~FreshFile()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    std::string folder;
    std::string path;
};

#endif
