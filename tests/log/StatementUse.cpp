// Every use of a log statement that a program may make, for the compiler to judge: the build takes
// this file in each language standard, with all warnings as errors.

#include <dalnim/log/Module.hpp>
#include <dalnim/log/Statement.hpp>

#include <exception>
#include <map>
#include <string>

using namespace com::kor::dal::nim;

namespace statementuse {

struct Component
{
    void run() const
    {
        NIM_LOG(severity) << "held by an object";
        const auto later = [this] { NIM_LOG(severity) << "of a lambda"; };
        later();
        const auto copied = [this, held = severity] { NIM_LOG(held) << "of a copy"; };
        copied();
    }
    static log::Severity choose(int level)
    {
        return level > 3 ? log::Severity_ERROR : log::Severity_DEBUG;
    }
    log::Module& com_kor_dal_nim_log_module;
    log::Severity severity;
};

template <class Table>
void logTable(const Table& table)
{
    for (const auto& [severity, text] : table)
        NIM_LOG(severity) << text;
}

void useAll(int level, log::Module& module, const std::exception& exception);

void useAll(int level, log::Module& module, const std::exception& exception)
{
    // Names that the macros could clash with.
    const log::Severity severity = log::Severity_INFO;
    const bool open = level != 0;
    const log::Severity log_severity = severity;

    if (open)
        NIM_LOG(Severity_TRACE) << "if";
    else if (level == 1)
        NIM_LOG_TO(module, Severity_DEBUG) << "else if";
    else
        NIM_LOG_TRAPPED(Severity_FATAL, exception, "else");

    for (int i = 0; i < level; ++i)
        NIM_LOG(log_severity) << i;

    do
        NIM_LOG(Severity_NONE) << "do";
    while (--level > 0);

    switch (level) {
    case 0:
        NIM_LOG(Severity_NOTICE) << "case";
        break;
    default:
        NIM_LOG(Severity_WARNING) << "default";
    }

    NIM_LOG(open ? Severity_ERROR : Severity_INFO) << 1.5 << 'c' << true << nullptr;
    NIM_LOG(Component::choose(level)) << std::string("text") << std::hex << 255U << 1L;
    NIM_LOG(Severity_ERROR) << "outer " << [&module] {
        NIM_LOG_TO(module, Severity_ERROR) << "inner";
        return 0;
    }();
    NIM_LOG_TRAPPED(severity, exception, std::string("message")) << "more";
    if (open)
        NIM_LOG_EVERY_N(severity, 10) << "n";
    else if (level == 1)
        NIM_LOG_FIRST_N(Severity_ERROR, level) << "first " << [&module] {
            NIM_LOG_EVERY_MS_TO(module, Severity_ERROR, 1000) << "inner";
            return 0;
        }();
    else
        NIM_LOG_EVERY_MS(Severity_ERROR, 1000U) << "ms";
    NIM_LOG_EVERY_N_TO(module, open ? Severity_ERROR : Severity_INFO, level + 1) << "n";
    NIM_LOG_FIRST_N_TO(module, Severity_NOTICE, 5L);
    logTable(std::map<log::Severity, std::string>{{severity, "text"}});
    Component{module, severity}.run();
}

}
