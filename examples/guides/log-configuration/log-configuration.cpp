#include <dalnim/nim.hpp>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>

using namespace com::kor::dal::nim;

namespace {

void configureLog(const char* path)
{
    std::ifstream file(path);
    std::ostringstream warnings;
    std::ostringstream notes;
    io::Properties settings;
    settings.load(file, path, warnings, notes, io::Properties::SEV_WARNING);
    sys::System::setConfiguration(settings);
    std::cerr << warnings.str();
}

log::Module& moduleNamed(const char* name)
{
    return log::Module::getInstance(name, log::GET_NIM_LOG_LOGGER_VAR());
}

}

int main()
{
    try {
        configureLog("log.properties");
    } catch (const std::exception& failure) {
        std::cerr << "log.properties: " << failure.what() << '\n';
        return 1;
    }

    NIM_LOG_TO(moduleNamed("shop.till"), Severity_INFO) << "a bar of soap";
    NIM_LOG_TO(moduleNamed("mail"), Severity_WARNING) << "the filter does not name this module";
    NIM_LOG_TO(moduleNamed("mail"), Severity_ERROR) << "but errors pass";

    // A small limit, so that the file rotates.
    com_kor_dal_nim_log_control.setMaxFileSize(200);
    for (int customer = 1; customer <= 5; ++customer) {
        NIM_LOG_TO(moduleNamed("shop.till"), Severity_NOTICE) << "customer " << customer << " leaves";
    }

    std::set<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator("log")) {
        files.insert(entry.path());
    }
    for (const std::filesystem::path& file : files) {
        std::cerr << "--- " << file.string() << '\n' << std::ifstream(file).rdbuf();
    }
}
