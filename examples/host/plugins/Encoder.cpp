// Encodes a text or a file. Operations: "base64", "base64-decode" and "hexdump". The setting "width" is the
// number of characters in a line of Base64, and of bytes in a line of a dump; 0 means the default of the
// encoding.

#include "PluginModule.hpp"
#include "Service.hpp"

#include <dalnim/nim.hpp>

#include <fstream>
#include <sstream>

namespace nimhost::encoder {

namespace nim = com::kor::dal::nim;
using nim::String;

namespace {

PluginModule pluginModule("nimhost.plugin.encoder");
nim::log::Module& com_kor_dal_nim_log_module = pluginModule;

class EncoderService : public Service
{
public:
    explicit EncoderService(const nim::io::Properties& settings)
    {
        const String& text = settings.getProperty("width");
        nim::type::NumberOps::parse(width, text);
        NIM_LOG(Severity_INFO) << "encoder in rows of " << static_cast<unsigned int>(width);
    }

    String perform(const ServiceCall& call) const override
    {
        const nim::sys::StackTrack track("perform()", "EncoderService", "nimhost.encoder", __LINE__);
        std::ostringstream result;
        if (const String* const path = ServiceCall::find(call.arguments, "file")) {
            std::ifstream file(*path, std::ios::binary);
            if (!file) {
                throw nim::sys::system_error(nim::sys::sys_err_num(),
                                             "cannot read " + *path + ": " + nim::sys::sys_err_string());
            }
            convert(call.operation, result, file);
        } else {
            std::istringstream text(call.argument("text"));
            convert(call.operation, result, text);
        }
        NIM_LOG(Severity_DEBUG) << call.operation << " gave " << result.str().size() << " bytes";
        return result.str();
    }

private:
    void convert(const String& operation, std::ostream& to, std::istream& from) const
    {
        if (operation == "base64") {
            nim::io::Base64().encode(to, from,
                                     width == 0 ? 0U : nim::io::EncodingBase::ENC_LINE_BREAKS | width);
        } else if (operation == "base64-decode") {
            nim::io::Base64().decode(to, from);
        } else if (operation == "hexdump") {
            nim::io::HexDump().encode(to, from, width);
        } else {
            throw std::invalid_argument("unknown operation \"" + operation + "\" of the encoder");
        }
    }

    unsigned char width = 0;
};

}

NIMHOST_PLUGIN(settings)
{
    return new EncoderService(settings);
}

}
