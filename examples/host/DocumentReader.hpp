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
 * Reads documents of requests, one after the other, and submits what is in them to the pool, under a
 * token of its own. A document is taken as a whole: one that is broken is reported, none of its
 * requests is answered, and the next one is read. What the end of the run leaves is dropped, with a result
 * that says so.
 */
class DocumentReader : public com::kor::dal::nim::mt::Runnable
{
public:
    /** @param paths "-" is standard input */
    DocumentReader(std::vector<std::string> paths, PluginTable& plugins, Results& results,
                   com::kor::dal::nim::mt::ThreadPool& pool, Counters& counters, const Stop& stop);

    /** Runs on a thread of its own, until all documents are read or the run ends. */
    void run() override;

private:
    void serve(const std::string& path);
    std::vector<DocumentRequest> parse(const std::string& path) const;
    void submit(const std::string& path, const std::vector<DocumentRequest>& requests);
    void reload(Results::Place place, const com::kor::dal::nim::String& plugin);
    void refuse(const std::string& path, const std::exception& exc);
    void failReload(Results::Place place, const com::kor::dal::nim::String& plugin,
                    const std::exception& exc);
    void drop(const std::string& path);

    const std::vector<std::string> documents;
    com::kor::dal::nim::mt::ThreadPool& pool;
    const Stop& stop;
    Desk desk;
};

}

#endif
