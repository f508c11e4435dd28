#include "Includes.hpp"

#include "Errors.hpp"

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <istream>
#include <set>
#include <sstream>
#include <system_error>
#include <utility>

namespace nimtools {

namespace {

/** A line that looks like an include directive. */
struct Include
{
    std::string path;
    std::size_t line;
};

/** A file whose includes are being visited. */
struct Includer
{
    std::string path;
    std::vector<Include> includes;
    std::size_t next = 0;
};

std::string directoryOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

Includer readIncluder(const std::string& path, std::istream& lines)
{
    Includer result = {path, {}, 0};
    std::size_t number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        std::istringstream words(line);
        std::string pragma, include, argument;
        words >> pragma >> include >> argument;
        if (pragma == "%pragma" && include == "include" && argument.size() > 2) {
            result.includes.push_back({directoryOf(path) + argument.substr(1, argument.size() - 2), number});
        }
    }
    return result;
}

/** Adds a file. Returns false if it was added before, under this path or another. */
bool insertPath(std::set<std::string>& visited, const std::string& path)
{
    if (!visited.insert(path).second) {
        return false;
    }
    std::error_code failure;
    const std::string resolved = std::filesystem::canonical(path, failure);
    return failure || resolved == path || visited.insert(resolved).second;
}

}

std::vector<std::string> includedFiles(const std::string& path, const std::string& text)
{
    std::vector<std::string> result;
    std::set<std::string> visited;
    insertPath(visited, path);
    std::istringstream own(text);
    std::vector<Includer> includers;
    includers.push_back(readIncluder(path, own));
    while (!includers.empty()) {
        Includer& includer = includers.back();
        if (includer.next == includer.includes.size()) {
            includers.pop_back();
            continue;
        }
        const Include include = includer.includes[includer.next++];
        if (!insertPath(visited, include.path)) {
            continue;
        }
        std::error_code failure;
        if (std::filesystem::is_fifo(include.path, failure)) {
            throw Failure(includer.path + ":" + std::to_string(include.line) + ": the included file "
                          + include.path + " is a FIFO, which is not supported");
        }
        result.push_back(include.path);
        std::ifstream file(include.path);
        includers.push_back(readIncluder(include.path, file));
    }
    return result;
}

}
