#ifndef NIMHOST_DOCUMENTREADER_HPP
#define NIMHOST_DOCUMENTREADER_HPP

#include "ServiceTask.hpp"

#include <dalnim/mt/Runnable.hpp>
#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/xml/AggregateConsumer.hpp>

#include <string>
#include <vector>

namespace nimhost {

/**
 * Reads documents of requests in order, and submits their requests to the pool with a security token of its
 * own. An invalid document is reported, and none of its requests is answered. Requests and documents that
 * remain at the end of the run are dropped, and have a result with that status.
 */
class DocumentReader : public com::kor::dal::nim::mt::Runnable
{
public:
    /** @param paths paths of documents; "-" means standard input */
    DocumentReader(std::vector<std::string> paths, PluginTable& plugins, Results& results,
                   com::kor::dal::nim::mt::ThreadPool& pool, Counters& counters, const Stop& stop);

    /** Returns when all documents have been read, or the run ends. Runs on its own thread. */
    void run() override;

private:
    void serve(const std::string& path);
    std::vector<DocumentRequest> parse(const std::string& path) const;
    void submit(const std::string& path, const std::vector<DocumentRequest>& requests);
    void reload(Results::Position position, const com::kor::dal::nim::String& plugin);
    void reject(const std::string& path, const std::exception& exc);
    void reportFailedReload(Results::Position position, const com::kor::dal::nim::String& plugin,
                            const std::exception& exc);
    void drop(const std::string& path);

    const std::vector<std::string> documents;
    com::kor::dal::nim::mt::ThreadPool& pool;
    const Stop& stop;
    RequestEnvironment environment;
};

}

#endif
