#include "DocumentReader.hpp"

#include "DocumentInput.hpp"
#include "ElementCounter.hpp"
#include "Failure.hpp"

#include <dalnim/nim.hpp>

#include <iterator>
#include <memory>
#include <stdexcept>
#include <utility>

namespace nimhost {

namespace nim = com::kor::dal::nim;
using nim::String;

namespace {

/**
 * Counts the requests of a document as open. Those that are not submitted are counted as dropped at the end.
 */
class OpenRequests
{
public:
    OpenRequests(Counters& hostCounters, std::size_t requests)
        : counters(hostCounters), remaining(static_cast<std::int64_t>(requests))
    {
        counters.requestsOpen += remaining;
    }
    ~OpenRequests()
    {
        counters.requestsDropped += static_cast<std::uint64_t>(remaining);
        counters.requestsOpen -= remaining;
    }

    OpenRequests(const OpenRequests&) = delete;
    OpenRequests& operator=(const OpenRequests&) = delete;

    /** Excludes a request that was submitted: its task counts it from here on. */
    void markSubmitted()
    {
        --remaining;
    }

private:
    Counters& counters;
    std::int64_t remaining;
};

/** @throws system_error if the document cannot be read to its end, for example because the run ends */
std::string readDocument(const std::string& path, const Stop& stop)
{
    DocumentInput input(path, stop);
    std::string text{std::istreambuf_iterator<char>(&input), std::istreambuf_iterator<char>()};
    input.requireEnd();
    return text;
}

/** The parser stops at a NUL, so that the requests after it would be ignored without a diagnostic. */
void requireNoNul(const std::string& document)
{
    const std::size_t nul = document.find('\0');
    if (nul != std::string::npos) {
        throw std::runtime_error("NUL byte in the document; the parser ignores the rest -- near offset "
                                 + std::to_string(nul));
    }
}

}

DocumentReader::DocumentReader(std::vector<std::string> paths, PluginTable& plugins, Results& results,
                               nim::mt::ThreadPool& workers, Counters& counters, const Stop& hostStop)
    : documents(std::move(paths)), pool(workers),
      stop(hostStop), environment{plugins, results, counters, stop, nim::mem::ConstRefCntObjectRef(new Token)}
{
}

void DocumentReader::run()
{
    const nim::sys::StackTrack track("run()", "DocumentReader", "nimhost", __LINE__);
    const TokenScope scope(environment.token);
    for (const std::string& path : documents) {
        if (stop.now) {
            drop(path);
        } else {
            serve(path);
        }
    }
}

void DocumentReader::serve(const std::string& path)
{
    std::vector<DocumentRequest> requests;
    try {
        requests = parse(path);
    } catch (...) {
        withCurrentException([&](const std::exception& exc) { reject(path, exc); });
        return;
    }
    ++environment.counters.documentsRead;
    NIM_LOG(Severity_NOTICE) << path << " has " << requests.size() << " requests";
    submit(path, requests);
}

std::vector<DocumentRequest> DocumentReader::parse(const std::string& path) const
{
    const std::string document = readDocument(path, stop);
    RequestConsumerRef requests(new RequestConsumer);
    nim::xml::AggregateConsumerRef all(new nim::xml::AggregateConsumer);
    all->push_back(requests);
    all->push_back(new ElementCounter(environment.counters));
    nim::xml::ConsumerRef consumer(all);
    nim::xml::Parser(consumer).parse(document);
    requireNoNul(document);
    return requests->requests;
}

void DocumentReader::submit(const std::string& path, const std::vector<DocumentRequest>& requests)
{
    OpenRequests openRequests(environment.counters, requests.size());
    for (std::size_t i = 0; i < requests.size(); ++i) {
        const DocumentRequest& request = requests[i];
        const Results::Position position = environment.results.reserve(
            "<result document=\"" + escaped(path) + "\" number=\"" + std::to_string(i + 1) + "\" plugin=\""
            + escaped(request.plugin) + "\"");
        if (stop.now) {
            environment.results.drop(position);
        } else if (request.kind == DocumentRequest::RELOAD) {
            reload(position, request.plugin);
            openRequests.markSubmitted();
            --environment.counters.requestsOpen;
        } else {
            auto task = std::make_unique<ServiceTask>(environment, request, position);
            openRequests.markSubmitted();
            pool.add(task.get(), true);
            static_cast<void>(task.release());
        }
    }
}

void DocumentReader::reload(Results::Position position, const String& plugin)
{
    try {
        environment.plugins.reload(plugin);
        ++environment.counters.pluginsReloaded;
        environment.results.fill(position, " status=\"reloaded\"/>");
    } catch (...) {
        withCurrentException([&](const std::exception& exc) { reportFailedReload(position, plugin, exc); });
    }
}

void DocumentReader::reportFailedReload(Results::Position position, const String& plugin,
                                        const std::exception& exc)
{
    ++environment.counters.tasksFailed;
    ++environment.counters.documentRequestsFailed;
    NIM_LOG_TRAPPED(Severity_WARNING, exc, plugin + " cannot be reloaded");
    environment.results.fill(position, " status=\"failed\">" + escaped(exc.what()) + "</result>");
}

void DocumentReader::reject(const std::string& path, const std::exception& exc)
{
    ++environment.counters.documentsRejected;
    const Results::Position position =
        environment.results.reserve("<document name=\"" + escaped(path) + "\"");
    environment.results.fill(position, " status=\"refused\">" + escaped(exc.what()) + "</document>");
    writeError({path, ": ", exc.what()});
    NIM_LOG_TRAPPED(Severity_ERROR, exc, path + " was rejected");
}

void DocumentReader::drop(const std::string& path)
{
    ++environment.counters.documentsDropped;
    environment.results.drop(environment.results.reserve("<document name=\"" + escaped(path) + "\""));
    NIM_LOG(Severity_WARNING) << path << " was dropped: the run ended before it was read";
}

}
