// operation_counts: the names of the operations. operation_counts NAME TIMES: does one of them so many
// times. compare-counts has valgrind count the instructions of two runs, whose difference is the
// operation's own. operation_counts --machine: what the counts depend on besides the library.

/** Instead of the path at which this tree lies, so that records are as long everywhere. */
#define NIM_LOG_FILE "counts/Operations.cpp"

#include <dalnim/io/Base64.hpp>
#include <dalnim/io/Properties.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>
#include <dalnim/mem/RcoRef.hpp>
#include <dalnim/mt/CriticalSection.hpp>
#include <dalnim/mt/Queue.hpp>
#include <dalnim/mt/ReaderWriterLock.hpp>
#include <dalnim/mt/Task.hpp>
#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/sys/DynLibrary.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/CurrentContext.hpp>
#include <dalnim/xml/Consumer.hpp>
#include <dalnim/xml/Parser.hpp>
#include <dalnim/xml/nim_opbparse.h>

#include <qv/pmx/src/processor.hpp>

#include <cstdlib>
#include <exception>
#include <future>
#include <gnu/libc-version.h>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace com::kor::dal::nim;

void require(bool good)
{
    if (!good) {
        std::abort();
    }
}

/** Keeps the compiler from leaving out what made the value. */
template <class T>
void use(const T& value)
{
    __asm__ volatile("" : : "g"(&value) : "memory");
}

class Object : public mem::RefCntObject
{};

class Element : public mt::QueueElement
{};

void refuseStatements(unsigned int times)
{
    log::Write logger;
    log::Module& module = log::Module::getInstance("counts.refused", logger);
    for (unsigned int i = 0; i < times; ++i) {
        NIM_LOG_TO(module, Severity_DEBUG) << "not evaluated " << i;
    }
}

/** A file of its own, gone with the process. */
void writeRecords(unsigned int times)
{
    char path[] = "/tmp/operation_counts.XXXXXX";
    const int file = mkstemp(path);
    require(file >= 0);
    close(file);
    {
        log::Write logger;
        logger.setPath(path);
        log::Module& module = log::Module::getInstance("counts.record", logger);
        const std::string text(56, 'x'); // 160 bytes in all, without the names of host and process
        for (unsigned int i = 0; i < times; ++i) {
            NIM_LOG_TO(module, Severity_WARNING) << text;
        }
    }
    unlink(path);
}

void copyReferences(unsigned int times)
{
    const mem::RcoRef<Object> ref(new Object);
    for (unsigned int i = 0; i < times; ++i) {
        const mem::RcoRef<Object> copy(ref);
        use(copy);
    }
}

void makeObjects(unsigned int times)
{
    for (unsigned int i = 0; i < times; ++i) {
        const mem::RcoRef<Object> ref(new Object);
        use(ref);
    }
}

void acquireForRead(unsigned int times)
{
    const mt::ReaderWriterLock lock;
    for (unsigned int i = 0; i < times; ++i) {
        lock.acquireForRead();
        lock.release();
    }
}

void acquireSections(unsigned int times)
{
    const mt::CriticalSection section;
    for (unsigned int i = 0; i < times; ++i) {
        section.acquire();
        section.release();
    }
}

void enterTracks(unsigned int times)
{
    const sys::StackTrack outer("outer()", __LINE__);
    for (unsigned int i = 0; i < times; ++i) {
        const sys::StackTrack track("enterTracks()", "Counts", "com.kor.dal.nim", __LINE__);
        use(track);
    }
}

void throwErrors(unsigned int times, int tracks = 5)
{
    const sys::StackTrack track("throwErrors()", "Counts", "com.kor.dal.nim", __LINE__);
    if (tracks > 1) {
        throwErrors(times, tracks - 1);
        return;
    }
    for (unsigned int i = 0; i < times; ++i) {
        try {
            throw sys::system_error(22, "Attempt to dereference null reference.");
        } catch (const sys::system_error& error) {
            use(error);
        }
    }
}

void passElements(unsigned int times)
{
    mt::Queue queue(16);
    Element element;
    for (unsigned int i = 0; i < times; ++i) {
        require(queue.insert(&element) && queue.next() == &element);
    }
}

class EmptyTask : public mt::Task
{
public:
    EmptyTask() : Task("empty") {}
    void run() override {}
};

/** Occupies its worker until it is released. */
class Gate : public mt::Task
{
public:
    Gate() : Task("gate") {}
    void run() override
    {
        entered.set_value();
        open.get_future().wait();
    }

    std::promise<void> entered;
    std::promise<void> open;
};

/**
 * All are submitted before the first one runs, and the one worker runs them in a row: the threads
 * take turns twice, however they are scheduled.
 */
void runTasks(unsigned int times)
{
    Gate gate;
    std::vector<EmptyTask> tasks(times);
    mt::ThreadPool pool("counts", 1, 0, 0, 0, 0, times + 1);
    pool.add(gate);
    gate.entered.get_future().wait();
    for (EmptyTask& task : tasks) {
        pool.add(task);
    }
    gate.open.set_value();
    pool.shutdown(true);
}

/** As above, with tasks that are created for the pool, which deletes them. */
void runManagedTasks(unsigned int times)
{
    Gate gate;
    mt::ThreadPool pool("counts", 1, 0, 0, 0, 0, times + 1);
    pool.add(gate);
    gate.entered.get_future().wait();
    for (unsigned int i = 0; i < times; ++i) {
        pool.add(new EmptyTask, true);
    }
    gate.open.set_value();
    pool.shutdown(true);
}

const char DOCUMENT[] =
    "<?xml version=\"1.0\"?>\n<request id=\"4711\" operation=\"getInstance\">\n"
    "  <object>root/system:Disk.4711</object>\n  <option name=\"timeout\">30</option>\n"
    "  <option name=\"user\">op &amp; admin</option>\n  <!-- not settable -->\n"
    "  <note><![CDATA[<raw> & unread]]></note>\n  <flags deep=\"true\" origin='false'/>\n</request>\n";

int takeEvent(PDS_PARSE_H, pds_parse_cb_type_e, void*, void*, char*, char*, char*, size_t, char**)
{
    return 0;
}

void parseDocuments(unsigned int times)
{
    PDS_PARSE_H parser = nullptr;
    require(nim_pdsParseInit(0, nullptr, nullptr, nullptr, nullptr, takeEvent, nullptr, &parser) == 0);
    std::string text = DOCUMENT;
    for (unsigned int i = 0; i < times; ++i) {
        require(nim_pdsParseBuffer(text.data(), PDS_PARSE_F_LAST, parser) == 0
                && nim_pdsParseReset(0, nullptr, parser) == 0);
    }
    nim_pdsParseDestroy(&parser);
}

/** As above, with the class Parser, and a consumer that does nothing. */
void consumeDocuments(unsigned int times)
{
    class Reader : public xml::Consumer
    {
        bool elementBegin(const String&, const String&, const xml::Attributes&) override
        {
            return true;
        }
        bool elementEnd(const String&, const String&) override
        {
            return true;
        }
        bool elementProcessData(const String&, const String&, const String&, bool) override
        {
            return true;
        }
    };
    xml::ConsumerRef reader(new Reader);
    xml::Parser parser(reader);
    const String text = DOCUMENT;
    for (unsigned int i = 0; i < times; ++i) {
        parser.parse(text);
    }
}

void encodeAndDecode(unsigned int times)
{
    const io::Base64 base64;
    const String data(1024, 'd');
    for (unsigned int i = 0; i < times; ++i) {
        require(base64.decode(base64.encode(data)).size() == data.size());
    }
}

void loadProperties(unsigned int times)
{
    std::string text = "# settings\n\n";
    for (int i = 0; i < 100; ++i) {
        text += "server." + std::to_string(i * 37 % 100) + ".setting = a value of this setting\n";
    }
    for (unsigned int i = 0; i < times; ++i) {
        std::istringstream stream(text);
        require(io::Properties(stream).size() == 100);
    }
}

void lookUpProperties(unsigned int times)
{
    io::Properties properties;
    for (int i = 0; i < 1000; ++i) {
        properties.setProperty("server." + std::to_string(i * 37 % 1000) + ".setting", "value");
    }
    const String key = "server.471.setting";
    for (unsigned int i = 0; i < times; ++i) {
        use(properties.getProperty(key));
    }
}

/** Without entries. */
void copyContexts(unsigned int times)
{
    typedef sys::internal::CurrentContext Context;
    const mem::RcoRef<Context> source(new Context);
    for (unsigned int i = 0; i < times; ++i) {
        const mem::RcoRef<Context> copy(new Context(*source));
        use(copy);
    }
}

void findSymbols(unsigned int times)
{
    const sys::ConstDynLibraryRef process = sys::DynLibrary::loadProcess();
    const String name = "malloc";
    const sys::DynSymbolRef held = process->symbol(name);
    for (unsigned int i = 0; i < times; ++i) {
        require(process->symbol(name)->data() == held->data());
    }
}

struct Operation
{
    const char* name;
    void (*run)(unsigned int times);
    /** So many that what varies from one run to the next is far below what the comparison allows. */
    unsigned int usualTimes;
};

const Operation OPERATIONS[] = {
    {"refused-statement", refuseStatements, 20000},
    {"record-to-file", writeRecords, 500},
    {"reference-copied-and-dropped", copyReferences, 20000},
    {"object-made-and-dropped", makeObjects, 20000},
    {"critical-section-acquired-and-released", acquireSections, 20000},
    {"read-lock-acquired-and-released", acquireForRead, 20000},
    {"track-entered-and-left", enterTracks, 20000},
    {"error-thrown-and-caught", [](unsigned int times) { throwErrors(times); }, 500},
    {"queue-put-and-get", passElements, 5000},
    {"pool-task", runTasks, 1000},
    {"pool-task-managed", runManagedTasks, 1000},
    {"document-parsed", parseDocuments, 1000},
    {"document-consumed", consumeDocuments, 1000},
    {"base64-encoded-and-decoded", encodeAndDecode, 1000},
    {"properties-loaded", loadProperties, 50},
    {"property-looked-up", lookUpProperties, 5000},
    {"context-copied", copyContexts, 5000},
    {"symbol-in-cache", findSymbols, 5000},
};

/** Vector units decide which forms of a function run, here and in the C library. */
const char* vectorUnit()
{
#if QV_IS_X86_64
    return __builtin_cpu_supports("avx512bw") ? "avx512"
           : __builtin_cpu_supports("avx2")   ? "avx2"
           : __builtin_cpu_supports("ssse3")  ? "ssse3"
                                              : "sse2";
#else
    return "other";
#endif
}

}

int main(int argc, char** argv)
try {
    const std::string name = argc > 1 ? argv[1] : "";
    if (argc == 1) {
        for (const Operation& operation : OPERATIONS) {
            std::cout << operation.name << ' ' << operation.usualTimes << '\n';
        }
        return 0;
    }
    if (name == "--machine") {
        std::cout << "compiler " << __VERSION__ << ", libc " << gnu_get_libc_version() << ", " << vectorUnit()
                  << '\n';
        return 0;
    }
    for (const Operation& operation : OPERATIONS) {
        if (argc == 3 && name == operation.name) {
            operation.run(static_cast<unsigned int>(std::stoul(argv[2])));
            return 0;
        }
    }
    std::cerr << "usage: " << argv[0] << " [--machine | NAME TIMES]\n";
    return 2;
} catch (const std::exception& error) {
    std::cerr << argv[0] << ": " << error.what() << '\n';
    return 1;
}
