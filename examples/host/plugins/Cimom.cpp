// An adapter with a logger of its own: if it is loaded, the stream name "CIMOM" in the log configuration
// means the file of that logger. The setting "file" is its path, relative to the setting "directory" unless
// it is absolute.

#include "PluginModule.hpp"
#include "Service.hpp"

#include <dalnim/nim.hpp>

#include <stdexcept>

namespace nimhost::cimom {

namespace nim = com::kor::dal::nim;
using nim::String;

namespace {

/** Name of the module by which a logger finds the one whose file "CIMOM" means. */
const char MODULE_NAME[] = "com_kor_dal_nim_log_module_CIMOM";

class CimomAdapter : public nim::mem::RefCntObject
{
public:
    explicit CimomAdapter(const nim::io::Properties& settings) : module(MODULE_NAME, logger)
    {
        const String& file = settings.getProperty("file");
        if (file.empty()) {
            throw std::invalid_argument("the adapter requires the setting file");
        }
        const String key = String(nim::log::NAMESPACE_NAME) + '.' + nim::log::Control::CLASS_NAME + '.';
        nim::io::Properties logSettings;
        logSettings.setProperty(key + nim::log::Control::TAG_OUTPUT_FILE,
                                file.front() == '/' ? file : settings.getProperty("directory") + "/" + file);
        logSettings.setProperty(key + nim::log::Control::TAG_SEVERITY_ID, "INFO");
        // Opens the file now, so that no log statement of the host fails because it cannot be opened.
        logger.reconfigure(logSettings);
        PluginModule::logger().registerModule(module);
    }

protected:
    ~CimomAdapter() override
    {
        // The file is reference-counted: a logger that shares it keeps it open.
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
