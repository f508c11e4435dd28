// Properties files: the first byte of the input selects the options, the rest is the file, followed by the
// files that it may include, separated by bytes 28 (file separator). The loader is compared with a simple
// model of the format, in one chunk and in small chunks, and loaded properties must survive storing.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <istream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <dalnim/io/Properties.hpp>
#include <fuzz/support/Require.hpp>
#include <tests/io/PieceBuffer.hpp>
#include <tests/io/PropertiesModel.hpp>

namespace {

using com::kor::dal::nim::io::Properties;
using propertiestest::Model;

constexpr char FILE_SEPARATOR = 28;
const char NAME[] = "x.conf";

/** A directory with the files that an input may include, so deep that ".." does not lead out of it. */
class IncludeDirectory
{
public:
    static constexpr std::size_t DEPTH = 8;

    IncludeDirectory()
    {
        std::string name = std::filesystem::temp_directory_path() / "dalnim-fuzz-XXXXXX";
        require(mkdtemp(name.data()) != nullptr);
        root = path = name;
        for (std::size_t i = 0; i < DEPTH; ++i) {
            path += "/deep";
        }
        path += "/";
        std::filesystem::create_directories(path + "sub");
    }

    ~IncludeDirectory()
    {
        std::filesystem::remove_all(root);
    }

    IncludeDirectory(const IncludeDirectory&) = delete;
    IncludeDirectory& operator=(const IncludeDirectory&) = delete;

    /** Makes these the only files in the directory. Their names are assigned in a fixed order. */
    void setFiles(const std::vector<std::string>& texts)
    {
        static const char* const NAMES[COUNT] = {"b.conf", "sub/c.conf", "d.conf"};
        for (std::size_t i = 0; i < COUNT; ++i) {
            const bool is_wanted = i < texts.size();
            if (is_wanted && (!exists[i] || contents[i] != texts[i])) {
                std::ofstream(path + NAMES[i], std::ios_base::binary) << texts[i];
                contents[i] = texts[i];
            } else if (!is_wanted && exists[i]) {
                std::filesystem::remove(path + NAMES[i]);
            }
            exists[i] = is_wanted;
        }
    }

    static constexpr std::size_t COUNT = 3;
    /** Path of the innermost directory, with a trailing slash. */
    std::string path;

private:
    std::string root;
    /** The content of the files. Most inputs have the same files as the previous one. */
    std::string contents[COUNT];
    bool exists[COUNT] = {};
};

/** Removes the files that `text` may include from it, and returns them. */
std::vector<std::string> extractIncluded(std::string& text)
{
    std::vector<std::string> included;
    std::size_t end = text.find(FILE_SEPARATOR);
    const std::string rest = end == std::string::npos ? "" : text.substr(end);
    text.resize(std::min(end, text.size()));
    for (std::size_t start = 0; start < rest.size() && included.size() < IncludeDirectory::COUNT;
         start = end) {
        end = std::min(rest.find(FILE_SEPARATOR, start + 1), rest.size());
        included.push_back(rest.substr(start + 1, end - start - 1));
    }
    return included;
}

std::size_t countOf(const std::string& part, const std::string& text)
{
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) {
        ++count;
    }
    return count;
}

Model::Table tableOf(const Properties& properties)
{
    return Model::Table(properties.begin(), properties.end());
}

/** Returns a table that is large enough for the loader to sort properties before it inserts them. */
const Properties& largeTable()
{
    static Properties table;
    for (int i = 0; table.size() < 1030; ++i) {
        table.setProperty("k" + std::to_string(i), "before");
    }
    return table;
}

void checkLoading(const Model& model, Properties& properties, std::istream& stream, const std::string& path,
                  bool report, bool keep)
{
    std::ostringstream warnings;
    std::ostringstream notes;
    std::string error;
    try {
        properties.load(stream, path, warnings, notes, report ? Properties::SEV_NOTE : Properties::SEV_ERROR,
                        keep);
    } catch (const std::invalid_argument& e) {
        error = e.what();
    } catch (const std::runtime_error& e) {
        error = e.what();
        require(error.find(": failed to open include file: \"") != std::string::npos);
    }
    require(tableOf(properties) == model.table);
    require(warnings.str() == model.warnings && notes.str().empty());
    // The message ends at a zero byte of the file, since what() is a C string.
    require(error == model.error.c_str());
}

bool isSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool survivesStoring(const std::string& key, const std::string& value)
{
    return !key.empty() && std::string("#!%").find(key[0]) == std::string::npos
           && key.find_first_of(" \t\n\v\f\r=:") == std::string::npos
           && (value.empty() || !isSpace(value[0]));
}

void checkStoring(const Properties& properties)
{
    Properties survivors;
    for (const auto& [key, value] : properties) {
        if (survivesStoring(key, value)) {
            survivors.setProperty(key, value);
        }
    }
    std::stringstream stream;
    survivors.store(stream, "");
    const Properties read(stream, true);
    require(tableOf(read) == tableOf(survivors));
}

}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    static IncludeDirectory directory;
    const bool keep = (data[0] & 1) != 0;
    const bool report = (data[0] & 2) != 0;
    const std::size_t piece = data[0] >> 2 & 15;
    const bool large = data[0] >> 4 == 15;
    std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (countOf("..", text) > IncludeDirectory::DEPTH) {
        return 0;
    }
    directory.setFiles(extractIncluded(text));

    const Properties nothing;
    const Properties& before = large ? largeTable() : nothing;
    const Model model(text, directory.path, NAME, report, keep, tableOf(before));
    if (model.gaveUp) {
        return 0;
    }
    Properties properties(before, false);
    std::istringstream stream(text);
    checkLoading(model, properties, stream, directory.path + NAME, report, keep);
    if (large) {
        return 0;
    }

    Properties again;
    PieceBuffer pieces(text, piece);
    std::istream piece_stream(&pieces);
    checkLoading(model, again, piece_stream, directory.path + NAME, report, keep);
    checkStoring(properties);
    return 0;
}
