#ifndef BENCHMARKS_LOG_FRESHFILE_HPP
#define BENCHMARKS_LOG_FRESHFILE_HPP

#include <cstdlib>
#include <filesystem>
#include <string>

/**
 * The path of a file that does not exist yet, in a new temporary directory that the destructor removes. Each
 * repetition uses its own: writing to a truncated file does not cost the same as writing to a new one.
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
        directory = name;
        path = directory + "/bench.log";
    }
    FreshFile(const FreshFile&) = delete;
    FreshFile& operator=(const FreshFile&) = delete;
    ~FreshFile()
    {
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
    }

    std::string directory;
    std::string path;
};

#endif
