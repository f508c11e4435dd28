#ifndef DALNIM_TOOLS_NIMLOG_RESOLVER_HPP
#define DALNIM_TOOLS_NIMLOG_RESOLVER_HPP

#include "RecordSplitter.hpp"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace nimlog {

/**
 * Passes records on. In reports of crashes and threads, demangles the names of classes, and appends the
 * function and the source line to each address of the backtrace. They are determined by addr2line or
 * eu-addr2line, from the modules of this system: only from those with the build ID that the report contains,
 * or from their separate debug files.
 */
class Resolver : public RecordSink
{
public:
    /** @param warnings called with messages for the user */
    Resolver(RecordSink& nextSink, std::function<void(const std::string&)> warnings);

    void consume(const Record& record) override;

private:
    /** A line of a backtrace. */
    struct Frame
    {
        /** The index of the line in the record. */
        std::size_t line;
        std::string module;
        std::string offset;
        /** The functions, or an empty string. */
        std::string location;
    };

    static bool readFrame(std::string_view line, Frame& frame);
    static std::string buildIdOf(const std::vector<std::string_view>& lines, const std::string& module);
    void resolve(std::vector<Frame>& frames, const std::vector<std::string_view>& lines);
    std::string fileOf(const std::string& module, const std::string& buildId);
    std::string runTool(const std::string& file, const std::vector<std::string>& offsets);
    void warnOnce(const std::string& message);

    RecordSink& next;
    const std::function<void(const std::string&)> warn;
    std::vector<std::string> warned;
    /** The current record, resolved. */
    std::string text;
};

}

#endif
