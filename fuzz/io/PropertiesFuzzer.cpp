// Properties files: the first byte of the input chooses the options, the rest is the file, and behind
// bytes 28 (a file separator) the files that it may include. The loader is compared with a plain model
// of the format, in one piece and in small ones, and what it loads must survive storing.

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

/** A folder with the files that an input may include, deep enough that no ".." leads out of it. */
class Folder
{
public:
    static constexpr std::size_t DEPTH = 8;

    Folder()
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

    ~Folder()
    {
        std::filesystem::remove_all(root);
    }

    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    /** The folder has these, and no other ones, which are named in this order. */
    void hold(const std::vector<std::string>& texts)
    {
        static const char* const NAMES[COUNT] = {"b.conf", "sub/c.conf", "d.conf"};
        for (std::size_t i = 0; i < COUNT; ++i) {
            const bool is_wanted = i < texts.size();
            if (is_wanted && (!is_there[i] || held[i] != texts[i])) {
                std::ofstream(path + NAMES[i], std::ios_base::binary) << texts[i];
                held[i] = texts[i];
            } else if (!is_wanted && is_there[i]) {
                std::filesystem::remove(path + NAMES[i]);
            }
            is_there[i] = is_wanted;
        }
    }

    static constexpr std::size_t COUNT = 3;
    /** Of the innermost one, with its slash. */
    std::string path;

private:
    std::string root;
    /** What has been written: most inputs have the same files as the one before. */
    std::string held[COUNT];
    bool is_there[COUNT] = {};
};

/** Cuts the text of the file from the texts of those that it may include. */
std::vector<std::string> takeIncluded(std::string& text)
{
    std::vector<std::string> included;
    std::size_t end = text.find(FILE_SEPARATOR);
    const std::string rest = end == std::string::npos ? "" : text.substr(end);
    text.resize(std::min(end, text.size()));
    for (std::size_t start = 0; start < rest.size() && included.size() < Folder::COUNT; start = end) {
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

/** As many as it takes to have the loader sort what it reads before it enters it. */
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
    // A message ends for its reader where the file has a zero byte.
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
    static Folder folder;
    const bool keep = (data[0] & 1) != 0;
    const bool report = (data[0] & 2) != 0;
    const std::size_t piece = data[0] >> 2 & 15;
    const bool large = data[0] >> 4 == 15;
    std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (countOf("..", text) > Folder::DEPTH) {
        return 0;
    }
    folder.hold(takeIncluded(text));

    const Properties nothing;
    const Properties& before = large ? largeTable() : nothing;
    const Model model(text, folder.path, NAME, report, keep, tableOf(before));
    if (model.gaveUp) {
        return 0;
    }
    Properties properties(before, false);
    std::istringstream stream(text);
    checkLoading(model, properties, stream, folder.path + NAME, report, keep);
    if (large) {
        return 0;
    }

    Properties again;
    PieceBuffer pieces(text, piece);
    std::istream piece_stream(&pieces);
    checkLoading(model, again, piece_stream, folder.path + NAME, report, keep);
    checkStoring(properties);
    return 0;
}
