// A plug-in with two variants. The operation "variant" returns the number of this variant, "context" whether
// the request is served under a security token, and "fail" throws an exception whose code is in this library.

#include <host/plugins/PluginModule.hpp>
#include <host/plugins/Service.hpp>

#include <dalnim/log/Statement.hpp>
#include <dalnim/type/SecurityContext.hpp>

#include <exception>

// std::to_string() has a symbol that is unique in the process, which would prevent this library from being
// unloaded.

namespace nimhost::variant {

namespace nim = com::kor::dal::nim;
using nim::String;

namespace {

nimhost::PluginModule pluginModule("nimhost.plugin.variant");
nim::log::Module& com_kor_dal_nim_log_module = pluginModule;

class OwnError : public std::exception
{
public:
    ~OwnError() override = default;

    const char* what() const noexcept override
    {
        return "failed as asked";
    }
};

class VariantService : public nimhost::Service
{
public:
    String perform(const nimhost::ServiceCall& call) const override
    {
        NIM_LOG(Severity_DEBUG) << call.operation << " of variant " << VARIANT;
        if (call.operation == "fail") {
            throw OwnError();
        }
        if (call.operation == "context") {
            const nim::type::SecurityContextRef security = nim::type::SecurityContext::current();
            return security && security->token() ? "token" : "none";
        }
        return VARIANT;
    }
};

}

NIMHOST_PLUGIN(settings)
{
    NIM_LOG(Severity_INFO) << "variant " << VARIANT << " with " << settings.getProperty("colour");
    return new VariantService;
}

}
