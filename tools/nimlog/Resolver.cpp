#include "Resolver.hpp"

#include "BuildId.hpp"

#include <dalnim/sys/SysError.hpp>
#include <support/Descriptor.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <sys/wait.h>
#include <unistd.h>

namespace nimlog {

namespace {

constexpr std::string_view CRASH_REPORT = "Crash: ";
constexpr std::string_view THREAD_REPORT = "Threads of process ";
constexpr std::string_view FRAME_BEGIN = "    #";
constexpr std::string_view BUILD_ID_LABEL = " build-id ";
constexpr int STATUS_NOT_FOUND = 127;

std::vector<std::string_view> linesOf(std::string_view text)
{
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        lines.push_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

/** Returns a hexadecimal number, minus 1 unless it is 0, as "0x" and digits. */
std::string minusOne(const std::string& offset)
{
    std::uint64_t number = 0;
    std::from_chars(offset.data() + 2, offset.data() + offset.size(), number, 16);
    number -= number != 0 ? 1 : 0;
    std::array<char, 16> digits;
    const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), number, 16);
    static_cast<void>(error);
    return "0x" + std::string(digits.data(), end);
}

/** Starts a program whose standard output is a pipe; discards its standard error. */
pid_t start(const std::vector<std::string>& command, nimtools::Descriptor& output)
{
    std::array<int, 2> ends = {};
    if (pipe(ends.data()) != 0) {
        return -1;
    }
    output = nimtools::Descriptor(ends[0]);
    const nimtools::Descriptor input(ends[1]);
    std::vector<char*> arguments;
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        close(STDERR_FILENO);
        execvp(arguments[0], arguments.data());
        _exit(STATUS_NOT_FOUND);
    }
    return child;
}

/** Runs a program. Returns its output; `isFound` is false if there is no such program. */
std::string outputOf(const std::vector<std::string>& command, bool& isFound)
{
    constexpr std::size_t BUFFER_SIZE = 4096;
    nimtools::Descriptor output;
    const pid_t child = start(command, output);
    isFound = child != -1;
    if (!isFound) {
        return "";
    }
    std::string text;
    std::array<char, BUFFER_SIZE> buffer;
    for (ssize_t count; (count = read(output.get(), buffer.data(), buffer.size())) != 0;) {
        if (count > 0) {
            text.append(buffer.data(), static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            break;
        }
    }
    int status = 0;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    isFound = !WIFEXITED(status) || WEXITSTATUS(status) != STATUS_NOT_FOUND;
    return text;
}

/** Replaces the mangled names of a line: that of a task's class in parentheses, and that of a token's. */
std::string demangled(std::string_view line)
{
    constexpr std::string_view TASK = "\" (";
    constexpr std::string_view TOKEN = "    security token ";
    std::size_t begin = line.find(TASK);
    std::size_t end = line.find(')', begin);
    if (line.substr(0, TOKEN.size()) == TOKEN) {
        begin = TOKEN.size();
        end = line.size();
    } else if (begin == std::string_view::npos || end == std::string_view::npos) {
        return std::string(line);
    } else {
        begin += TASK.size();
    }
    const std::string name(line.substr(begin, end - begin));
    return std::string(line.substr(0, begin)) + com::kor::dal::nim::sys::demangle(name.c_str())
           + std::string(line.substr(end));
}

/**
 * Splits the output of a tool: for each address a line "0x...", then two lines for each function, its name
 * and its place; inlined functions first.
 */
std::vector<std::string> locationsIn(const std::string& output)
{
    std::vector<std::string> locations;
    std::string_view function;
    for (const std::string_view line : linesOf(output)) {
        if (line.substr(0, 2) == "0x") {
            locations.emplace_back();
            function = {};
        } else if (locations.empty()) {
            continue;
        } else if (function.empty()) {
            function = line;
        } else {
            if (function != "??") {
                std::string& location = locations.back();
                location += location.empty() ? " in " : ", inlined in ";
                location += function;
                if (line.substr(0, 1) != "?") {
                    location += " at ";
                    location += line.substr(0, line.find(" (discriminator"));
                }
            }
            function = {};
        }
    }
    return locations;
}

}

Resolver::Resolver(RecordSink& nextSink, std::function<void(const std::string&)> warnings)
    : next(nextSink), warn(std::move(warnings))
{
}

void Resolver::consume(const Record& record)
{
    const auto begins = [&record](std::string_view title) {
        return record.text().substr(0, title.size()) == title;
    };
    if (!record.hasPrefix || (!begins(CRASH_REPORT) && !begins(THREAD_REPORT))) {
        next.consume(record);
        return;
    }
    const std::vector<std::string_view> lines = linesOf(record.whole);
    std::vector<Frame> frames;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        Frame frame;
        if (readFrame(lines[i], frame)) {
            frame.line = i;
            frames.push_back(frame);
        }
    }
    resolve(frames, lines);

    text.clear();
    auto frame = frames.begin();
    for (std::size_t i = 0; i < lines.size(); ++i) {
        text += i == 0 ? "" : "\n";
        text += i == 0 ? std::string(lines[i]) : demangled(lines[i]);
        if (frame != frames.end() && frame->line == i) {
            text += frame->location;
            ++frame;
        }
    }
    // The prefix, to which the fields refer, is in the first line, which is unchanged.
    Record resolved = record;
    resolved.whole = text;
    forEachView(resolved.fields, [&](std::string_view& view) {
        const auto begin = static_cast<std::size_t>(view.data() - record.whole.data());
        view = std::string_view(text).substr(begin, view.size());
    });
    next.consume(resolved);
}

/** Reads a line such as "    #1 0x7f344e2e2487 /usr/lib/libdalnim.so.1+0x7d487". */
bool Resolver::readFrame(std::string_view line, Frame& frame)
{
    if (line.substr(0, FRAME_BEGIN.size()) != FRAME_BEGIN) {
        return false;
    }
    const bool isFirst = line.substr(FRAME_BEGIN.size(), 2) == "0 ";
    const std::size_t path = line.find(" /");
    const std::size_t plus = line.rfind("+0x");
    if (path == std::string_view::npos || plus == std::string_view::npos || plus < path
        || line.find_first_not_of("0123456789abcdef", plus + 3) != std::string_view::npos) {
        return false;
    }
    frame.module = line.substr(path + 1, plus - path - 1);
    frame.offset = line.substr(plus + 1);
    if (!isFirst) {
        // A return address: the call is before it, perhaps in another line or function.
        frame.offset = minusOne(frame.offset);
    }
    return true;
}

/** Returns the build ID that a report contains for a module, or an empty string. */
std::string Resolver::buildIdOf(const std::vector<std::string_view>& lines, const std::string& module)
{
    const std::string begin = ' ' + module + std::string(BUILD_ID_LABEL);
    for (const std::string_view line : lines) {
        const std::size_t at = line.find(begin);
        if (at != std::string_view::npos) {
            return std::string(line.substr(at + begin.size()));
        }
    }
    return "";
}

void Resolver::resolve(std::vector<Frame>& frames, const std::vector<std::string_view>& lines)
{
    std::vector<std::string> modules;
    for (const Frame& frame : frames) {
        if (std::find(modules.begin(), modules.end(), frame.module) == modules.end()) {
            modules.push_back(frame.module);
        }
    }
    for (const std::string& module : modules) {
        const std::string file = fileOf(module, buildIdOf(lines, module));
        if (file.empty()) {
            continue;
        }
        std::vector<std::string> offsets;
        for (const Frame& frame : frames) {
            if (frame.module == module) {
                offsets.push_back(frame.offset);
            }
        }
        const std::vector<std::string> locations = locationsIn(runTool(file, offsets));
        auto location = locations.begin();
        for (Frame& frame : frames) {
            if (frame.module == module && location != locations.end()) {
                frame.location = *location++;
            }
        }
    }
}

/** Returns the file that describes a module of this build, or an empty string, with a warning. */
std::string Resolver::fileOf(const std::string& module, const std::string& buildId)
{
    if (buildId.empty() || buildIdOfFile(module) == buildId) {
        return module;
    }
    const std::string debugFile = "/usr/lib/debug/.build-id/" + buildId.substr(0, 2) + '/'
                                  + buildId.substr(std::min<std::size_t>(2, buildId.size())) + ".debug";
    if (buildIdOfFile(debugFile) == buildId) {
        return debugFile;
    }
    warnOnce(module + ": not the build that crashed, whose build ID is " + buildId);
    return "";
}

std::string Resolver::runTool(const std::string& file, const std::vector<std::string>& offsets)
{
    for (const char* const tool : {"addr2line", "eu-addr2line"}) {
        std::vector<std::string> command = {tool, "-a", "-i", "-f", "-C", "-e", file};
        command.insert(command.end(), offsets.begin(), offsets.end());
        bool isFound = false;
        const std::string output = outputOf(command, isFound);
        if (isFound) {
            return output;
        }
    }
    warnOnce("--resolve needs addr2line, of the package binutils, or eu-addr2line, of elfutils");
    return "";
}

void Resolver::warnOnce(const std::string& message)
{
    if (std::find(warned.begin(), warned.end(), message) == warned.end()) {
        warned.push_back(message);
        warn(message);
    }
}

}
