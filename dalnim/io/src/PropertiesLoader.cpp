#include <dalnim/dalbase.hpp>

#include <dalnim/io/Properties.hpp>

#include <dalnim/io/src/PropertiesInserter.hpp>
#include <dalnim/io/src/PropertiesReader.hpp>
#include <dalnim/io/src/PropertiesText.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <qv/pmx/path.h>
#include <qv/rtlapi/RX_Filespec.hpp>
#include <qv/rtlapi/RX_String.hpp>

#include <climits>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <vector>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::io {

namespace {

/** Opens a file for reading. Returns null if that fails. */
std::unique_ptr<std::istream> openFile(const String& path)
{
    // The system would use the part of the name before a zero byte, and would open directories for reading.
    if (path.find('\0') != String::npos || qv_si_isdir(path.c_str()) == 0) {
        return nullptr;
    }
    auto file = std::make_unique<std::ifstream>(path);
    if (!file->is_open()) {
        return nullptr;
    }
    return file;
}

/** Returns the path of the file without links, "." and "..", or `path` if the file does not exist. */
String resolvedPath(const String& path)
{
    char resolved[PATH_MAX];
    if (path.find('\0') != String::npos || qv_si_getrealpath(path.c_str(), sizeof resolved, resolved) != 0) {
        return path;
    }
    return resolved;
}

/**
 * Inserts a file into the set of files of a load. Returns false if it was already in it, under this spelling
 * or another: a cycle through "sub/../" would otherwise never repeat a spelling.
 */
bool insertFile(std::map<String, bool>& files, const String& path)
{
    if (!files.emplace(path, true).second) {
        return false;
    }
    const String resolved = resolvedPath(path);
    return resolved == path || files.emplace(resolved, true).second;
}

}

/**
 * Fills a table from a file and, at the position of each pragma, from the files that it includes.
 *
 * The files that are being read are on the heap. A chain of includes therefore uses file descriptors and
 * memory, but not the stack of the thread.
 */
class __attribute__((visibility("hidden"))) Properties::Loader
{
public:
    Loader(Properties& table, std::ostringstream& warning_stream, bool keep_trailing_ws)
        : target(table), warnings(warning_stream), keep_ws(keep_trailing_ws), inserter(table.data)
    {
    }

    void read(std::istream& is, const String& filepath, Severity sev);

private:
    /** An open file. */
    struct File
    {
        File(std::istream& is, const String& filepath, Severity sev) : reader(is, filepath, sev) {}

        File(std::unique_ptr<std::istream> is, const String& filepath, Severity sev)
            : included(std::move(is)), reader(*included, filepath, sev)
        {
        }

        /** Null for the stream of the caller. */
        std::unique_ptr<std::istream> included;
        PropertiesReader reader;
    };

    void readFiles();
    void include(const PropertiesReader& includer);
    void insertProperty(std::string_view text, const PropertiesReader& reader);

    Properties& target;
    std::ostringstream& warnings;
    const bool keep_ws;
    /** The current file is at the back, after the files that include it. */
    std::vector<std::unique_ptr<File>> files;
    PropertiesInserter inserter;
};

void Properties::Loader::read(std::istream& is, const String& filepath, Severity sev)
{
    files.push_back(std::make_unique<File>(is, filepath, sev));
    try {
        readFiles();
    } catch (...) {
        // Properties before the failure remain in the table.
        inserter.flush();
        throw;
    }
    inserter.flush();
}

void Properties::Loader::readFiles()
{
    while (!files.empty()) {
        PropertiesReader& reader = files.back()->reader;
        if (!reader.good()) {
            files.pop_back();
            continue;
        }
        switch (reader.read()) {
        case PropertiesReader::PROPERTY:
            insertProperty(reader.text(keep_ws), reader);
            break;
        case PropertiesReader::INCLUDE:
            include(reader);
            break;
        case PropertiesReader::NOTHING:
            break;
        }
    }
}

void Properties::Loader::include(const PropertiesReader& includer)
{
    const String& path = includer.includePath();
    if (!insertFile(target.includes, path)) {
        return;
    }
    std::unique_ptr<std::istream> file = openFile(path);
    if (file == nullptr) {
        throw std::runtime_error("ERROR: " + includer.position() + ": failed to open include file: \"" + path
                                 + "\"");
    }
    files.push_back(std::make_unique<File>(std::move(file), path, includer.severity()));
}

/** Splits a decoded line and inserts the property. Its key may be empty. */
void Properties::Loader::insertProperty(std::string_view text, const PropertiesReader& reader)
{
    const auto is_separator = [](char c) { return c == '=' || c == ':'; };
    const auto skip_space = [text](std::size_t pos) {
        while (pos < text.size() && char_is_space(text[pos])) {
            ++pos;
        }
        return pos;
    };

    std::size_t key_end = 0;
    while (key_end < text.size() && !is_separator(text[key_end]) && !char_is_space(text[key_end])) {
        ++key_end;
    }
    std::size_t value_start = skip_space(key_end);
    if (value_start < text.size() && is_separator(text[value_start])) {
        value_start = skip_space(value_start + 1);
    }
    const std::string_view key = text.substr(0, key_end);
    const std::string_view value = text.substr(value_start);

    if (reader.severity() <= SEV_ERROR) {
        inserter.insertDeferred(key, value);
    } else if (inserter.insert(key, value)) {
        // One unformatted write, to which the format flags of the stream do not apply.
        const String warning =
            "WARNING: " + reader.position() + ": Overriding property \"" + String(key) + "\"\n";
        warnings.write(warning.data(), static_cast<std::streamsize>(warning.size()));
    }
}

std::istream& Properties::load(std::istream& is, bool keep_trailing_ws)
{
    const sys::StackTrack track("load()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    std::ostringstream warnings;
    std::ostringstream notes;
    return load(is, String(), warnings, notes, SEV_ERROR, keep_trailing_ws);
}

std::istream& Properties::load(std::istream& is, String filepath, std::ostringstream& warnings,
                               std::ostringstream& notes, Severity sev, bool keep_trailing_ws)
{
    const sys::StackTrack track("load()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    includes.clear();
    const RX_Filespec spec(RX_String(filepath.data(), filepath.size()), RX_Filespec::READ,
                           RX_Filespec::DEFER_CHECK);
    const RX_String whole = spec.filespec();
    insertFile(includes, String(whole.data(), whole.length()));
    load_r(is, std::move(filepath), warnings, notes, sev, keep_trailing_ws);
    includes.clear();
    return is;
}

std::istream& Properties::load_r(std::istream& is, String filepath, std::ostringstream& warnings,
                                 std::ostringstream&, Severity sev, bool keep_trailing_ws)
{
    const sys::StackTrack track("load_r()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    Loader(*this, warnings, keep_trailing_ws).read(is, filepath, sev);
    return is;
}

}
