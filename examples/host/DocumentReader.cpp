#include "DocumentReader.hpp"

#include "DocumentInput.hpp"
#include "ElementCounter.hpp"
#include "Failure.hpp"

#include <dalnim/nim.hpp>

#include <iostream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <utility>

namespace nimhost {

namespace nim = com::kor::dal::nim;
using nim::String;

namespace {

/** Requests of a document that were counted as open and not handed on: the rest of them is dropped. */
class Rest
{
public:
    Rest(Counters& hostCounters, std::size_t requests)
        : counters(hostCounters), left(static_cast<std::int64_t>(requests))
    {
        counters.requestsOpen += left;
    }
    ~Rest()
    {
        counters.requestsDropped += static_cast<std::uint64_t>(left);
        counters.requestsOpen -= left;
    }

    Rest(const Rest&) = delete;
    Rest& operator=(const Rest&) = delete;

    /** One was handed on, which accounts for it. */
    void handOn()
    {
        --left;
    }

private:
    Counters& counters;
    std::int64_t left;
};

/** Throws system_error if the document cannot be read to its end, for example because the run ends. */
std::string readDocument(const std::string& path, const Stop& stop)
{
    DocumentInput input(path, stop);
    std::string text{std::istreambuf_iterator<char>(&input), std::istreambuf_iterator<char>()};
    input.requireEnd();
    return text;
}

/** The parser takes a zero byte for the end of the text: requests that follow it would be lost silently. */
void requireNoZeroByte(const std::string& document)
{
    const std::size_t zero = document.find('\0');
    if (zero != std::string::npos) {
        throw std::runtime_error("A zero byte; what follows it is not read -- near offset "
                                 + std::to_string(zero));
    }
}

}

DocumentReader::DocumentReader(std::vector<std::string> paths, PluginTable& plugins, Results& results,
                               nim::mt::ThreadPool& workers, Counters& counters, const Stop& hostStop)
    : documents(std::move(paths)), pool(workers),
      stop(hostStop), desk{plugins, results, counters, stop, nim::mem::ConstRefCntObjectRef(new Token)}
{
}

void DocumentReader::run()
{
    const nim::sys::StackTrack track("run()", "DocumentReader", "nimhost", __LINE__);
    const TokenScope scope(desk.token);
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
    } catch (const std::exception& exc) {
        refuse(path, exc);
        return;
    } catch (...) {
        refuse(path, std::runtime_error(currentFailure()));
        return;
    }
    ++desk.counters.documentsRead;
    NIM_LOG(Severity_NOTICE) << path << " has " << requests.size() << " requests";
    submit(path, requests);
}

std::vector<DocumentRequest> DocumentReader::parse(const std::string& path) const
{
    const std::string document = readDocument(path, stop);
    RequestConsumerRef requests(new RequestConsumer);
    nim::xml::AggregateConsumerRef all(new nim::xml::AggregateConsumer);
    all->push_back(requests);
    all->push_back(new ElementCounter(desk.counters));
    nim::xml::ConsumerRef consumer(all);
    nim::xml::Parser(consumer).parse(document);
    requireNoZeroByte(document);
    return requests->requests;
}

void DocumentReader::submit(const std::string& path, const std::vector<DocumentRequest>& requests)
{
    Rest rest(desk.counters, requests.size());
    for (std::size_t i = 0; i < requests.size(); ++i) {
        const DocumentRequest& request = requests[i];
        const Results::Place place =
            desk.results.reserve("<result document=\"" + escaped(path) + "\" number=\""
                                 + std::to_string(i + 1) + "\" plugin=\"" + escaped(request.plugin) + "\"");
        if (stop.now) {
            desk.results.drop(place);
        } else if (request.kind == DocumentRequest::RELOAD) {
            reload(place, request.plugin);
            rest.handOn();
            --desk.counters.requestsOpen;
        } else {
            auto task = std::make_unique<ServiceTask>(desk, request, place);
            rest.handOn();
            pool.add(task.get(), true);
            static_cast<void>(task.release());
        }
    }
}

void DocumentReader::reload(Results::Place place, const String& plugin)
{
    try {
        desk.plugins.reload(plugin);
        ++desk.counters.pluginsLoadedAgain;
        desk.results.fill(place, " status=\"reloaded\"/>");
    } catch (const std::exception& exc) {
        failReload(place, plugin, exc);
    } catch (...) {
        failReload(place, plugin, std::runtime_error(currentFailure()));
    }
}

void DocumentReader::failReload(Results::Place place, const String& plugin, const std::exception& exc)
{
    ++desk.counters.tasksFailed;
    NIM_LOG_TRAPPED(Severity_WARNING, exc, plugin + " cannot be loaded again");
    desk.results.fill(place, " status=\"failed\">" + escaped(exc.what()) + "</result>");
}

void DocumentReader::refuse(const std::string& path, const std::exception& exc)
{
    ++desk.counters.documentsRefused;
    const Results::Place place = desk.results.reserve("<document name=\"" + escaped(path) + "\"");
    desk.results.fill(place, " status=\"refused\">" + escaped(exc.what()) + "</document>");
    std::cerr << "nimhost: " << path << ": " << exc.what() << std::endl;
    NIM_LOG_TRAPPED(Severity_ERROR, exc, path + " is refused");
}

void DocumentReader::drop(const std::string& path)
{
    ++desk.counters.documentsDropped;
    desk.results.drop(desk.results.reserve("<document name=\"" + escaped(path) + "\""));
    NIM_LOG(Severity_WARNING) << path << " is dropped: the run ended before it was read";
}

}
