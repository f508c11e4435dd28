#include "MetricsFile.hpp"

#include <dalnim/nim.hpp>

#include <cstdint>
#include <exception>
#include <sstream>

namespace nimhost {

namespace nim = com::kor::dal::nim;

namespace {

constexpr double INTERVAL = 2;

void addHost(nim::io::MetricsText& metrics, const Counters& counters)
{
    const struct
    {
        const char* name;
        const char* description;
        std::uint64_t value;
    } totals[] = {
        {"nimhost_tasks_total", "Tasks that workers have run.", counters.tasksRun},
        {"nimhost_failed_tasks_total", "Tasks that failed.", counters.tasksFailed},
        {"nimhost_rejected_tasks_total", "Requests rejected because the pool was full.",
         counters.tasksRejected},
        {"nimhost_dropped_requests_total", "Requests that were read but not answered.",
         counters.requestsDropped},
        {"nimhost_documents_total", "Documents that were read.", counters.documentsRead},
        {"nimhost_rejected_documents_total", "Documents that were rejected.", counters.documentsRejected},
        {"nimhost_plugin_reloads_total", "Plug-ins reloaded by a request.", counters.pluginsReloaded},
        {"nimhost_configuration_reloads_total", "Configurations reloaded on SIGHUP.",
         counters.configurationsReloaded},
        {"nimhost_rejected_configurations_total", "Configurations rejected on SIGHUP.",
         counters.configurationsRejected},
    };
    for (const auto& total : totals) {
        metrics.addCounter(total.name, total.description, {}, total.value);
    }
    metrics.addGauge("nimhost_requests_waiting", "Requests that no worker has started.", {},
                     static_cast<double>(counters.requestsWaiting));
    metrics.addGauge("nimhost_requests_open", "Requests that were read and are not answered yet.", {},
                     static_cast<double>(counters.requestsOpen));
}

}

MetricsFile::MetricsFile(const std::string& path, const Counters& hostCounters,
                         const nim::mt::ThreadPool& hostPool)
    : counters(hostCounters), pool(hostPool), file(path), next(INTERVAL)
{
    write();
}

void MetricsFile::update(double seconds)
{
    if (seconds < next) {
        return;
    }
    next = seconds + INTERVAL;
    try {
        write();
        failed = false;
    } catch (const std::exception& exc) {
        if (!failed) {
            NIM_LOG_TRAPPED(Severity_WARNING, exc, "the metrics are out of date");
        }
        failed = true;
    }
}

void MetricsFile::write() const
{
    nim::io::MetricsText metrics;
    metrics.add(::com_kor_dal_nim_log_control.getStatistics(), "default");
    metrics.add(nim::sys::DynLoaderMgr::statistics());
    metrics.add(nim::type::ContainerContext::statistics());
    metrics.add(pool.statistics(), pool.name());
    addHost(metrics, counters);
    std::ostringstream text;
    metrics.write(text);
    file.write(text.str());
}

}
