// Properties files: the first byte of the input chooses the options, the rest is the file. The loader
// is compared with a plain model of the format, and what it loads must survive storing.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>

#include <dalnim/io/Properties.hpp>
#include <tests/io/PropertiesModel.hpp>

namespace {

using com::kor::dal::nim::io::Properties;

typedef std::map<std::string, std::string> Table;

// No such folder: includes are parsed, and then there is nothing to open.
const char FOLDER[] = "/nowhere-to-include-from/";
const char NAME[] = "x.conf";

void require(bool condition)
{
    if (!condition) {
        std::abort();
    }
}

Table tableOf(const Properties& properties)
{
    return Table(properties.begin(), properties.end());
}

bool isSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool survivesStoring(const std::string& key, const std::string& value)
{
    return !key.empty() && std::string("#!%").find(key[0]) == std::string::npos &&
           key.find_first_of(" \t\n\v\f\r=:") == std::string::npos && (value.empty() || !isSpace(value[0]));
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
    const bool keep = (data[0] & 1) != 0;
    const bool report = (data[0] & 2) != 0;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    const propertiestest::Model model(text, FOLDER, NAME, report, keep);

    Properties properties;
    std::istringstream stream(text);
    std::ostringstream warnings;
    std::ostringstream notes;
    std::string error;
    try {
        properties.load(stream, std::string(FOLDER) + NAME, warnings, notes,
                        report ? Properties::SEV_NOTE : Properties::SEV_ERROR, keep);
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
    checkStoring(properties);
    return 0;
}
