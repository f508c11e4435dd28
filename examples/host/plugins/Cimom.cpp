// The adapter to an object manager that brings a logger of its own: with it, the stream name "CIMOM" of
// the log's configuration means that logger's file. The setting "file" is its path,
// which begins at "directory" unless it is absolute.

#include "PluginModule.hpp"
#include "Service.hpp"

#include <dalnim/nim.hpp>

#include <stdexcept>

namespace nimhost::cimom {

namespace nim = com::kor::dal::nim;
using nim::String;

namespace {

/** The name under which a logger looks for the one whose file "CIMOM" means. */
const char MODULE_NAME[] = "com_kor_dal_nim_log_module_CIMOM";

class CimomAdapter : public nim::mem::RefCntObject
{
public:
    explicit CimomAdapter(const nim::io::Properties& settings) : module(MODULE_NAME, logger)
    {
        const String& file = settings.getProperty("file");
        if (file.empty()) {
            throw std::invalid_argument("the adapter needs a file");
        }
        const String key = String(nim::log::NAMESPACE_NAME) + '.' + nim::log::Control::CLASS_NAME + '.';
        nim::io::Properties logSettings;
        logSettings.setProperty(key + nim::log::Control::TAG_OUTPUT_FILE,
                                file.front() == '/' ? file : settings.getProperty("directory") + "/" + file);
        logSettings.setProperty(key + nim::log::Control::TAG_SEVERITY_ID, "INFO");
        // Opens the file, so that no statement of the host fails because it cannot be opened.
        logger.reconfigure(logSettings);
        PluginModule::logger().registerModule(module);
    }

protected:
    ~CimomAdapter() override
    {
        // The file itself is counted: a logger that shares it keeps it.
        PluginModule::logger().unregisterModule(module);
        logger.unregisterModule(module);
    }

private:
    nim::log::Write logger;
    nim::log::Module module;
};

}

NIMHOST_PLUGIN(settings)
{
    return new CimomAdapter(settings);
}

}
