#ifndef DALNIM_TESTS_HOST_NIMHOSTPLUGINFIXTURE_HPP
#define DALNIM_TESTS_HOST_NIMHOSTPLUGINFIXTURE_HPP

#include "NimhostFixture.hpp"

#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>

/** Runs the example host with the plug-in "odd", which waits, loops or throws on request. */
class NimhostPluginFixture : public NimhostFixture
{
protected:
    void SetUp() override
    {
        std::filesystem::create_directory(scratch.file("plugins"));
        std::filesystem::copy_file(NIMHOST_ODD_PLUGIN, scratch.file("plugins/odd.so"));
    }

    /** Writes a configuration with one worker, whose log is in the temporary directory. Returns its path. */
    std::string configureOdd(const std::string& more = "") const
    {
        return configure(fileSettings(LOG + "output.mask = MODULENAME SEVERITY\n"),
                         "pool/threads = 1\nhost/plugins = odd\nhost/plugin.directory = plugins\n" + more);
    }

    /** Writes a document of requests for the plug-in. Returns its path. */
    std::string document(const std::string& name, const std::string& requests) const
    {
        support::writeFile(scratch.file(name), "<requests>" + requests + "</requests>");
        return scratch.file(name);
    }

    static std::string request(const std::string& operation)
    {
        return "<request plugin='odd' operation='" + operation + "'/>";
    }

    /** Returns a request that creates the file "running" when it starts, and waits for the file "end". */
    std::string waitingRequest() const
    {
        return "<request plugin='odd' operation='wait'><running>" + scratch.file("running")
               + "</running><end>" + scratch.file("end") + "</end></request>";
    }

    bool waitingRequestRuns() const
    {
        return waitFor([&] { return std::filesystem::exists(scratch.file("running")); });
    }

    void endWaitingRequest() const
    {
        support::writeFile(scratch.file("end"), "");
    }

    /** Returns the results of a document as the host writes them, one element for each status. */
    std::string results(const std::string& name, const std::vector<std::string>& statuses) const
    {
        std::string text;
        for (std::size_t i = 0; i < statuses.size(); ++i) {
            text += "  <result document=\"" + scratch.file(name) + "\" number=\"" + std::to_string(i + 1)
                    + "\" plugin=\"odd\" status=" + statuses[i] + "\n";
        }
        return text;
    }
};

#endif
