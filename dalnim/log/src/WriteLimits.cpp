#include <dalnim/dalbase.hpp>

#include <dalnim/log/Write.hpp>

#include <dalnim/log/Header.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/src/CoarseClock.hpp>
#include <dalnim/log/src/LoggerState.hpp>
#include <dalnim/log/src/SettingsText.hpp>
#include <qv/pmx/src/perturb.hpp>

namespace com::kor::dal::nim::log {

ModuleLimits& Write::moduleLimits() const noexcept
{
    return state().limits;
}

bool Write::isAdmitted(const Module& mod, Severity sev)
{
    const std::int64_t now = coarseTime();
    qv::perturb();
    ModuleLimits::Reports reports;
    std::size_t written = 0;
    try {
        StateHolder holder(stateSync.acquire());
        const bool isAdmitted = moduleLimits().admit(mod.getName(), sev, now, reports);
        if (!isAdmitted) {
            state().counters.countHeldBack(sev);
        }
        holder.release(true);
        for (; written < reports.size(); ++written) {
            reportLimit(reports[written]);
        }
        return isAdmitted;
    } catch (...) {
        const StateHolder holder(stateSync.acquire());
        for (; written < reports.size(); ++written) {
            moduleLimits().undo(reports[written], now);
        }
        throw;
    }
}

void Write::reportLimit(const LimitReport& report)
{
    Statement statement(INTERNAL_LOG_MODULE, Severity_WARNING);
    Header& record = statement.header(REPORT_SOURCE, __LINE__);
    report.write(record.os());
    record.throwIfTruncated();
    log(INTERNAL_LOG_MODULE, record, true);
}

}
