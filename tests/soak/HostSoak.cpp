// Runs nimhost for a number of seconds: it serves documents and sources while its plug-ins are replaced and
// loaded again and its configuration is reloaded by SIGHUP. Ends with 1 if a result is wrong or missing, if
// the host leaves memory, threads, descriptors or mappings behind, if a sanitizer reports anything or if it
// is stuck.

#include <support/ChildProcess.hpp>
#include <support/Files.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using support::ChildProcess;
typedef std::chrono::steady_clock Clock;

#ifdef DALNIM_SANITIZED
constexpr bool IS_SANITIZED = true;
#else
constexpr bool IS_SANITIZED = false;
#endif

/**
 * Number of documents per second that are sent to the host, at most. The thread sanitizer uses memory for
 * each library that was ever mapped: about 2 GiB for ten minutes at this rate.
 */
constexpr std::size_t DOCUMENTS_PER_SECOND = IS_SANITIZED ? 5 : 10;
/** Number of groups of requests in a document. Each group begins with a reload. */
constexpr int GROUPS = 3;
/** Longer than any step, also under a sanitizer. */
constexpr std::chrono::seconds STUCK(60);
constexpr std::chrono::milliseconds HANGUP_INTERVAL(150);

void require(bool holds, const std::string& what)
{
    if (!holds) {
        throw std::runtime_error(what);
    }
}

template <class Predicate>
void await(Predicate holds, const std::string& what)
{
    const Clock::time_point end = Clock::now() + STUCK;
    while (!holds()) {
        require(Clock::now() < end, what);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

std::size_t count(const std::string& text, const std::string& part)
{
    std::size_t number = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
        ++number;
    }
    return number;
}

/** The resources that the host uses at one moment. */
struct Usage
{
    long kibibytes = 0;
    long threads = 0;
    std::size_t descriptors = 0;
    std::size_t mappedPlugins = 0;
};

/** A configuration, the documents and the plug-ins of a host, and the host. */
class Run
{
public:
    Run(std::size_t documents, const std::string& host, const std::string& plugins,
        const std::array<std::string, 2>& variants)
        : documentCount(documents), variantFiles(variants)
    {
        std::filesystem::create_directory(scratch.file("plugins"));
        for (const char* name : {"encoder", "calculator"}) {
            std::filesystem::copy_file(plugins + "/" + name + ".so", plugin(name));
        }
        replacePlugin("variant", variantFiles[0]);
        configure();
        require(mkfifo(pipe().c_str(), 0600) == 0, "mkfifo");
        std::vector<std::string> words = {
            host, "--config", scratch.file("soak.properties"), "--threads", "3", "--seconds", "1000000"};
        words.insert(words.end(), documents, pipe());
        process = std::make_unique<ChildProcess>(words, scratch.path());
    }

    std::string plugin(const std::string& name) const
    {
        return scratch.file("plugins/" + name + ".so");
    }

    /** Replaces the library of a plug-in by a copy of another one, by a rename. */
    void replacePlugin(const std::string& name, const std::string& library)
    {
        const std::string fresh = plugin(name) + ".new";
        std::filesystem::copy_file(library, fresh);
        std::filesystem::rename(fresh, plugin(name));
        ++swaps;
    }

    /** Writes the next of several configurations, atomically. */
    void configure()
    {
        const int round = configurations++;
        static const char* const severities[] = {"NOTICE", "INFO", "DEBUG"};
        const std::string log = "com.kor.dal.nim.log.Control.";
        const std::string file = scratch.file("soak.properties");
        std::ofstream(file + ".new")
            << log << "directory = log\n"
            << log << "file = " << (round % 4 == 3 ? "other.log" : "host.log") << "\n"
            << log << "severity.id = " << severities[round % 3] << "\n"
            << log << "output.mask = DATETIME THREADID MODULENAME SEVERITY\n"
            << log << "maxFileSize = " << 50000 + 10000 * (round % 5) << "\n"
            << log << "maxNumberOfFiles = 3\n"
            << (round % 2 == 0 ? log + "modules = nimhost* com* global\n" : std::string())
            << "host/plugins = encoder calculator variant\nhost/plugin.directory = plugins\n"
            << "host/adapters =\nhost/end.seconds = 60\nencoder/width = 0\ncalculator/types =\n"
            << "variant/colour = " << round % 7 << "\npool/threads = 3\npool/pending = 16\n"
            << "/source/rate = " << 100 + 50 * (round % 3)
            << "\n/source/queue = 8\n/source/block = " << (round % 2 == 0 ? "true" : "false")
            << "\n/source/debug.every = 2\n"
            << "/source/fail.every = 50\n/source/break.after = 0\n";
        std::filesystem::rename(file + ".new", file);
    }

    /** Writes a document when the host opens the pipe for it. */
    void send(const std::string& text)
    {
        int descriptor = -1;
        await([&] { return (descriptor = open(pipe().c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) != -1; },
              "the host opens no document");
        fcntl(descriptor, F_SETFL, 0);
        const ssize_t written = write(descriptor, text.data(), text.size());
        close(descriptor);
        require(written == static_cast<ssize_t>(text.size()), "a document is not taken");
    }

    /** Waits for the results of a document. Returns them. */
    std::string receive(std::size_t elements)
    {
        std::string text;
        std::string line;
        std::size_t lines = 0;
        await(
            [&] {
                // The host creates the file.
                if (!results.is_open()) {
                    results.open(scratch.file("stdout"));
                }
                for (std::string piece; lines < elements && std::getline(results, piece);) {
                    line += piece;
                    if (results.eof()) {
                        break; // the newline is not there yet
                    }
                    if (line != "<results>") {
                        text += line + "\n";
                        ++lines;
                    }
                    line.clear();
                }
                results.clear();
                // Otherwise libc++ does not read what the host has written since.
                results.seekg(results.tellg());
                return lines == elements;
            },
            "the results do not come: " + text);
        return text;
    }

    Usage usage() const
    {
        const std::string proc = "/proc/" + std::to_string(process->process());
        Usage usage;
        std::ifstream status(proc + "/status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("VmRSS:", 0) == 0) {
                usage.kibibytes = std::atol(line.c_str() + 6);
            } else if (line.rfind("Threads:", 0) == 0) {
                usage.threads = std::atol(line.c_str() + 8);
            }
        }
        const std::filesystem::directory_iterator descriptors(proc + "/fd");
        usage.descriptors = static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
        usage.mappedPlugins = count(support::readFile(proc + "/maps"), scratch.file("plugins/"));
        return usage;
    }

    std::string pipe() const
    {
        return scratch.file("d");
    }

    const support::ScratchFolder scratch;
    const std::size_t documentCount;
    const std::array<std::string, 2> variantFiles;
    std::unique_ptr<ChildProcess> process;
    std::ifstream results;
    std::atomic<int> configurations{0};
    std::size_t swaps = 0;
};

/** Reloads the configuration repeatedly until it is destroyed. */
class Hangups
{
public:
    explicit Hangups(Run& soak) : run(soak), thread([this] { send(); }) {}
    ~Hangups()
    {
        end();
    }

    Hangups(const Hangups&) = delete;
    Hangups& operator=(const Hangups&) = delete;

    void end()
    {
        ended = true;
        if (thread.joinable()) {
            thread.join();
        }
    }

private:
    void send()
    {
        while (!ended) {
            run.configure();
            run.process->signal(SIGHUP);
            std::this_thread::sleep_for(HANGUP_INTERVAL);
        }
    }

    Run& run;
    std::atomic<bool> ended{false};
    std::thread thread;
};

std::string request(const std::string& plugin, const std::string& rest)
{
    return "<request plugin='" + plugin + "' " + rest + "</request>";
}

/** The document of a round and its expected results. */
struct Document
{
    Document(const std::string& document, int variant)
    {
        const auto add = [&](const std::string& plugin, const std::string& asked, const std::string& answer) {
            text += asked;
            expected += "  <result document=\"" + document + "\" number=\"" + std::to_string(++requests)
                        + "\" plugin=\"" + plugin + "\" status=" + answer + "\n";
        };
        text = "<requests>";
        for (int group = 0; group < GROUPS; ++group) {
            // These run while the variant is reloaded.
            for (int i = 0; i < 6; ++i) {
                const std::string number = std::to_string(100 * group + i);
                add("calculator",
                    request("calculator",
                            "operation='add' type='int'><number>" + number + "</number><number>1</number>"),
                    "\"ok\">" + std::to_string(100 * group + i + 1) + "</result>");
                add("encoder", request("encoder", "operation='base64'><text>x</text>"),
                    "\"ok\">eA==</result>");
            }
            add("variant", "<reload plugin='variant'/>", "\"reloaded\"/>");
            for (int i = 0; i < 3; ++i) {
                add("variant", request("variant", "operation='variant'>"),
                    "\"ok\">" + std::to_string(variant + 1) + "</result>");
                add("variant", request("variant", "operation='context'>"), "\"ok\">token</result>");
                add("variant", request("variant", "operation='fail'>"),
                    "\"failed\">failed as asked</result>");
            }
            add(group % 2 == 0 ? "encoder" : "calculator",
                std::string("<reload plugin='") + (group % 2 == 0 ? "encoder" : "calculator") + "'/>",
                "\"reloaded\"/>");
        }
        text += "</requests>";
    }

    static constexpr std::size_t FAILURES = 3 * GROUPS;
    static constexpr std::size_t RELOADS = 2 * GROUPS;

    std::string text;
    std::string expected;
    std::size_t requests = 0;
};

void requireEqual(const std::string& got, const std::string& expected)
{
    std::istringstream gotLines(got);
    std::istringstream expectedLines(expected);
    for (std::string line, wanted; std::getline(expectedLines, wanted);) {
        require(!!std::getline(gotLines, line) && line == wanted,
                "a wrong result: " + line + "\ninstead of: " + wanted);
    }
}

/** Returns the number in a row of the host's table. */
std::size_t row(const std::string& table, const std::string& label)
{
    const std::size_t at = table.find("  " + label + ' ');
    require(at != std::string::npos, "the table has no row: " + label);
    return std::stoul(table.substr(at + label.size() + 2));
}

/** Waits for the end of the process, until it counts as stuck. */
int waitForEnd(ChildProcess& host)
{
    const std::string stat = "/proc/" + std::to_string(host.process()) + "/stat";
    await(
        [&] {
            const std::string text = support::readFile(stat);
            const std::size_t name = text.rfind(") ");
            return name == std::string::npos || text[name + 2] == 'Z';
        },
        "the host does not end: a thread is stuck");
    return host.wait();
}

/** Returns true if the last third of the run used less than 1 MiB more than the second. */
bool isFlat(const std::vector<long>& samples)
{
    constexpr std::size_t ENOUGH = 90;
    constexpr long TOLERANCE = 1024;
    if (IS_SANITIZED || samples.size() < ENOUGH) {
        std::puts("the memory is not checked");
        return true;
    }
    const auto third = static_cast<std::ptrdiff_t>(samples.size() / 3);
    const long second = *std::max_element(samples.begin() + third, samples.begin() + 2 * third);
    const long last = *std::max_element(samples.begin() + 2 * third, samples.end());
    std::printf("memory: %ld KiB at most in the second third, %ld KiB in the last\n", second, last);
    return last - second < TOLERANCE;
}

std::string describe(const Usage& usage)
{
    return std::to_string(usage.threads) + " threads, " + std::to_string(usage.descriptors) + " descriptors, "
           + std::to_string(usage.mappedPlugins) + " mappings of plug-ins";
}

void soak(Run& run, std::size_t seconds)
{
    const Clock::time_point start = Clock::now();
    const Clock::time_point end = start + std::chrono::seconds(seconds);
    std::vector<long> memory;
    Usage first;
    std::size_t served = 0;
    std::size_t requests = 0;
    std::size_t reloads = 0;
    std::size_t failures = 0;
    {
        std::optional<Hangups> hangups;
        for (std::size_t i = 0; i < run.documentCount; ++i) {
            // After the end of the run the documents are small, so that a slow host ends by itself.
            if (Clock::now() >= end) {
                run.send("<requests>" + request("encoder", "operation='base64'><text>x</text>")
                         + "</requests>");
                run.receive(1);
                ++requests;
                continue;
            }
            // Signed: the time may have passed.
            std::this_thread::sleep_until(
                start
                + std::chrono::milliseconds(static_cast<std::int64_t>(i * 1000 / DOCUMENTS_PER_SECOND)));
            const int variant = static_cast<int>(i % 2);
            run.replacePlugin("variant", run.variantFiles[static_cast<std::size_t>(variant)]);
            const Document document(run.pipe(), variant);
            run.send(document.text);
            const std::string got = run.receive(document.requests);
            requireEqual(got, document.expected);
            // Before it runs, a host may still have the default action of the signal.
            if (!hangups) {
                hangups.emplace(run);
            }
            ++served;
            requests += document.requests;
            reloads += Document::RELOADS;
            failures += Document::FAILURES;
            const Usage usage = run.usage();
            memory.push_back(usage.kibibytes);
            if (i == DOCUMENTS_PER_SECOND) {
                first = usage;
            }
            if (i % (60 * DOCUMENTS_PER_SECOND) == 60 * DOCUMENTS_PER_SECOND - 1) {
                std::printf(
                    "%5lld s %8ld KiB %s, %zu documents\n",
                    static_cast<long long>(
                        std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start).count()),
                    usage.kibibytes, describe(usage).c_str(), served);
                std::fflush(stdout);
            }
        }
    }
    require(served > DOCUMENTS_PER_SECOND, "the host is too slow to be judged");
    // Without the thread of the reader, which has ended.
    const Usage last = run.usage();
    require(last.threads <= first.threads && last.mappedPlugins == first.mappedPlugins
                && last.descriptors <= first.descriptors + 1,
            "left over: " + describe(last) + ", at first " + describe(first));

    // The sources continue until the signal.
    run.process->signal(SIGTERM);
    const int status = waitForEnd(*run.process);
    const std::string table = run.process->errors();
    const std::size_t reports = count(table, "Sanitizer") + count(table, "runtime error:");
    require(reports == 0, "reports:\n" + table);
    // The plug-in failed as requested.
    require(status == 1, "the host ended with " + std::to_string(status) + ":\n" + table);
    require(row(table, "tasks with the wrong token") == 0, "a context did not travel:\n" + table);
    require(row(table, "requests dropped") == 0 && row(table, "documents dropped") == 0
                && row(table, "documents rejected") == 0 && row(table, "results not written") == 0,
            "lost:\n" + table);
    require(row(table, "documents read") == run.documentCount, "documents are missing:\n" + table);
    require(row(table, "plug-ins reloaded") == reloads, "reloads are missing:\n" + table);
    require(row(table, "tasks that failed") >= failures, "failures are missing:\n" + table);
    require(row(table, "configurations rejected") == 0, "a configuration was refused:\n" + table);
    const std::size_t configurations = row(table, "configurations reloaded");
    require(configurations > seconds / 2, "the configuration was hardly read again:\n" + table);
    require(isFlat(memory), "the memory grows");
    std::printf("%zu s: %zu documents, %zu requests and %zu of sources served, %zu swaps, %zu reloads, "
                "%zu configurations, 0 lost, 0 reports, 0 stuck\n",
                seconds, served, requests, row(table, "tasks run") - (requests - reloads), run.swaps, reloads,
                configurations);
}

}

int main(int argc, char** argv)
{
    const int seconds = argc == 6 ? std::atoi(argv[1]) : 0;
    if (seconds <= 0) {
        std::fprintf(stderr, "usage: %s SECONDS NIMHOST PLUGINS VARIANT VARIANT\n", argv[0]);
        return 2;
    }
    // A sanitizer ends the host at its first report, and names both locks of an inconsistent order.
    setenv("TSAN_OPTIONS", "halt_on_error=1:second_deadlock_stack=1", 0);
    std::unique_ptr<Run> run;
    try {
        const auto length = static_cast<std::size_t>(seconds);
        run = std::make_unique<Run>(length * DOCUMENTS_PER_SECOND, argv[2], argv[3],
                                    std::array<std::string, 2>{argv[4], argv[5]});
        soak(*run, length);
        return EXIT_SUCCESS;
    } catch (const std::exception& exc) {
        std::fprintf(stderr, "failed: %s\n", exc.what());
        if (run && run->process) {
            std::fprintf(stderr, "standard error of the host:\n%s\n", run->process->errors().c_str());
        }
        return EXIT_FAILURE;
    }
}
