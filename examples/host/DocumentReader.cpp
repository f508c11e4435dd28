#include "DocumentReader.hpp"

#include "DocumentInput.hpp"
#include "ElementCounter.hpp"

#include <dalnim/nim.hpp>

#include <iostream>
#include <istream>
#include <memory>
#include <utility>

namespace nimhost {

namespace nim = com::kor::dal::nim;
using nim::String;

DocumentReader::DocumentReader(std::vector<std::string> paths, PluginTable& plugins, Results& results,
                               nim::mt::ThreadPool& workers, Counters& counters, const Stop& hostStop)
    : documents(std::move(paths)), pool(workers),
      stop(hostStop), desk{plugins, results, counters, nim::mem::ConstRefCntObjectRef(new Token)}
{
}

void DocumentReader::run()
{
    const nim::sys::StackTrack track("run()", "DocumentReader", "nimhost", __LINE__);
    const TokenScope scope(desk.token);
    for (const std::string& path : documents) {
        if (stop.now) {
            return;
        }
        serve(path);
    }
}

void DocumentReader::serve(const std::string& path)
{
    std::vector<DocumentRequest> requests;
    try {
        requests = parse(path);
    } catch (const std::exception& exc) {
        report(path, exc);
        return;
    }
    ++desk.counters.documentsRead;
    NIM_LOG(Severity_NOTICE) << path << " has " << requests.size() << " requests";
    submit(path, requests);
}

std::vector<DocumentRequest> DocumentReader::parse(const std::string& path) const
{
    DocumentInput input(path, stop);
    std::istream stream(&input);
    RequestConsumerRef requests(new RequestConsumer);
    nim::xml::AggregateConsumerRef all(new nim::xml::AggregateConsumer);
    all->push_back(requests);
    all->push_back(new ElementCounter(desk.counters));
    nim::xml::ConsumerRef consumer(all);
    try {
        nim::xml::Parser(consumer).parse(stream);
    } catch (const std::exception&) {
        // What was cut off is no mistake of the document.
        input.requireEnd();
        throw;
    }
    input.requireEnd();
    return requests->requests;
}

void DocumentReader::submit(const std::string& path, const std::vector<DocumentRequest>& requests)
{
    for (std::size_t i = 0; i < requests.size() && !stop.now; ++i) {
        const DocumentRequest& request = requests[i];
        const String begin = "<result document=\"" + escaped(path) + "\" number=\"" + std::to_string(i + 1)
                             + "\" plugin=\"" + escaped(request.plugin) + "\"";
        if (request.kind == DocumentRequest::RELOAD) {
            reload(begin, request.plugin);
        } else {
            auto task = std::make_unique<ServiceTask>(desk, request, begin);
            ++desk.counters.requestsWaiting;
            pool.add(task.get(), true);
            static_cast<void>(task.release());
        }
    }
}

void DocumentReader::reload(const String& begin, const String& plugin)
{
    // What was asked before is still answered by the old one.
    desk.results.waitForAll();
    const Results::Place place = desk.results.reserve();
    try {
        desk.plugins.reload(plugin);
        desk.results.fill(place, begin + " status=\"reloaded\"/>");
    } catch (const std::exception& exc) {
        ++desk.counters.tasksFailed;
        NIM_LOG_TRAPPED(Severity_WARNING, exc, plugin + " cannot be loaded again");
        desk.results.fill(place, begin + " status=\"failed\">" + escaped(exc.what()) + "</result>");
    }
}

void DocumentReader::report(const std::string& path, const std::exception& exc)
{
    ++desk.counters.documentsRefused;
    const Results::Place place = desk.results.reserve();
    desk.results.fill(place, "<document name=\"" + escaped(path) + "\" status=\"refused\">"
                                 + escaped(exc.what()) + "</document>");
    std::cerr << "nimhost: " << path << ": " << exc.what() << std::endl;
    NIM_LOG_TRAPPED(Severity_ERROR, exc, path + " is refused");
}

}
