// Libraries and symbols when the system calls fail or memory runs out. This program replaces a part of the
// system interface.

#include "DynPlugins.hpp"

#include <cerrno>
#include <cstring>
#include <new>
#include <ostream>

#include <dlfcn.h>

#include <qv/pmx/library.h>

#include <faults/layer/Fault.hpp>
#include <log/Loggers.hpp>

namespace {

/** The results that the replaced interface returns; 0 calls the original. */
struct Answers
{
    qv_err_t listStatus = 0;
    qv_err_t loadStatus = 0;
    /** The error message of a failed load; null for none. */
    const char* loadText = nullptr;
};

Answers answers;
int loads = 0;
int unloads = 0;
int lists = 0;

template <class Function>
Function original(Function, const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}

qv_err_t qv_si_library_nload(const char* path, char** error_text, qv_lhandle_t* handle)
{
    if (answers.loadStatus != 0) {
        *error_text = answers.loadText != nullptr ? strdup(answers.loadText) : nullptr;
        *handle = nullptr;
        return answers.loadStatus;
    }
    const qv_err_t status = original(&qv_si_library_nload, "qv_si_library_nload")(path, error_text, handle);
    loads += status == 0 ? 1 : 0;
    return status;
}

qv_err_t qv_si_library_unload(qv_lhandle_t handle)
{
    const qv_err_t status = original(&qv_si_library_unload, "qv_si_library_unload")(handle);
    ++unloads;
    return status;
}

qv_err_t qv_si_module_create_list(qv_module_list_t* list)
{
    if (answers.listStatus != 0) {
        return answers.listStatus;
    }
    const qv_err_t status = original(&qv_si_module_create_list, "qv_si_module_create_list")(list);
    lists += *list != nullptr ? 1 : 0;
    return status;
}

void qv_si_module_destroy_list(qv_module_list_t list)
{
    lists -= list != nullptr ? 1 : 0;
    original(&qv_si_module_destroy_list, "qv_si_module_destroy_list")(list);
}

namespace {

using namespace dyntest;
using faults::Call;
using faults::Fault;
using logtest::DefaultLogger;

class DynFault : public testing::Test
{
protected:
    DynFault()
    {
        answers = Answers();
        loads = 0;
        unloads = 0;
        lists = 0;
    }
    ~DynFault() override
    {
        answers = Answers();
    }
};

TEST_F(DynFault, FailedUnloadIsLoggedAsAWarning)
{
    DefaultLogger logger;
    logger->setSeverity(logtest::log::Severity_TRACE);
    logger.taken();
    const auto before = DynLoaderMgr::statistics();
    {
        const Fault fault(Call::DLCLOSE, 16);
        EXPECT_NO_THROW(DynLibrary::load(OTHER));
    }
    EXPECT_EQ(before.failedUnloads + 1, DynLoaderMgr::statistics().failedUnloads);
    EXPECT_EQ(before.unloaded, DynLoaderMgr::statistics().unloaded);
    EXPECT_EQ("com.kor.dal.nim WARNING DynLibrary : Unable to unload dynamic library \"" + OTHER
                  + "\": Device or resource busy\n",
              logger.taken());
    EXPECT_EQ(1, unloads);
    EXPECT_EQ(2u, DynLoaderMgr::manager()->refCount(true)) << "the object has been destroyed nevertheless";

    logger->setSeverity(logtest::log::Severity_ERROR);
    logger.taken();
    const Fault fault(Call::DLCLOSE, 16);
    DynLibrary::load(OTHER);
    EXPECT_EQ("", logger.taken());
}

/** A stream from which an exception that is not a std::exception leaves the statement. */
class ThrowingStream : private std::streambuf, public std::ostream
{
public:
    ThrowingStream() : std::ostream(static_cast<std::streambuf*>(this))
    {
        exceptions(std::ios_base::badbit);
    }

private:
    std::streambuf::int_type overflow(std::streambuf::int_type) override
    {
        throw 5;
    }
    std::streamsize xsputn(const char*, std::streamsize) override
    {
        throw 5;
    }
};

TEST_F(DynFault, FailingLogDoesNotDisturbTheUnload)
{
    DefaultLogger logger;
    logger->setSeverity(logtest::log::Severity_INFO);
    ConstDynLibraryRef library = DynLibrary::load(OTHER);
    ThrowingStream stream;
    std::ios& output = stream;
    logger->setStream(output);
    EXPECT_THROW(NIM_LOG(Severity_INFO) << "rejected", int);
    stream.clear();
    library.clear();
    logger->setStream(static_cast<std::ios&>(logger.sink));
    EXPECT_EQ(1, unloads);
    EXPECT_FALSE(isMapped(OTHER));
    EXPECT_EQ(2u, DynLoaderMgr::manager()->refCount(true));
}

TEST_F(DynFault, LibraryIsUnloadedIfMemoryRunsOut)
{
    ConstDynLibraryRef library = DynLibrary::load(OTHER);
    {
        const Fault noMemory(Call::NEW, ENOMEM);
        library.clear();
    }
    EXPECT_EQ(1, unloads);
    EXPECT_FALSE(isMapped(OTHER));
    EXPECT_EQ(2u, DynLoaderMgr::manager()->refCount(true));
}

TEST_F(DynFault, FailureToListTheModulesIsThrown)
{
    const ConstDynLibraryRef library = DynLibrary::load(OTHER);
    const DynSymbolRef symbol = library->symbol("dyn_other_value");
    answers.listStatus = 12;
    const Failure failure([&library] { library->symbol("dyn_test_loaded"); });
    EXPECT_EQ(12, failure.error);
    EXPECT_EQ("Cannot allocate memory", failure.text);
    EXPECT_EQ(StringVector{"com.kor.dal.nim.sys.DynLoaderMgr.symbol()"}, functionsOf(failure.trace));
    EXPECT_EQ(symbol, library->symbol("dyn_other_value")) << "a cached symbol needs no module list";
    answers.listStatus = 0;
    EXPECT_EQ("dyn_test_loaded", library->symbol("dyn_test_loaded")->name());
}

TEST_F(DynFault, ModuleListIsFreed)
{
    const ConstDynLibraryRef library = DynLibrary::load(OTHER);
    library->symbol("dyn_other_value");
    EXPECT_EQ(0, lists);
    EXPECT_THROW(library->symbol("dyn_no_such_symbol"), system_error);
    EXPECT_EQ(0, lists);
}

TEST_F(DynFault, FailedLoadThrowsWithOrWithoutADetail)
{
    answers.loadStatus = 16;
    Failure failure([] { DynLibrary::load("x"); });
    EXPECT_EQ(16, failure.error);
    EXPECT_EQ("Unable to load \"x\": Device or resource busy", failure.text);

    answers.loadText = "";
    EXPECT_EQ("Unable to load \"x\": Device or resource busy", Failure([] { DynLibrary::load("x"); }).text);

    answers.loadText = "detail";
    EXPECT_EQ("Unable to load \"x\": Device or resource busy, detail)",
              Failure([] { DynLibrary::load("x"); }).text);
    EXPECT_EQ((StringVector{"com.kor.dal.nim.sys.DynLoaderMgr.image()",
                            "com.kor.dal.nim.sys.DynLibrary.loadProcess()"}),
              functionsOf(Failure([] { DynLibrary::loadProcess(); }).trace));
    EXPECT_EQ("Unable to load \"\": Device or resource busy, detail)",
              Failure([] { DynLibrary::loadProcess(); }).text);
}

TEST_F(DynFault, ErrorNumberOfTheRuntimeLayerKeepsItsMessage)
{
    answers.loadStatus = 99999;
    EXPECT_EQ("Unable to load \"x\": Unknown error 99999", Failure([] { DynLibrary::load("x"); }).text);
}

TEST_F(DynFault, LoadThatRunsOutOfMemoryLeavesNothingLoaded)
{
    DynLoaderMgr::manager();
    const auto before = DynLoaderMgr::statistics();
    const String name = OTHER;
    const String symbolName = "dyn_other_value";
    int failures = 0;
    for (unsigned int n = 1; n < 1000; ++n) {
        Fault noMemory(Call::NEW, ENOMEM, n);
        try {
            DynLibrary::load(name)->symbol(symbolName);
            noMemory.disarm();
            break;
        } catch (const std::bad_alloc&) {
            ++failures;
        } catch (const system_error& exc) {
            // The module list reports it by its own error number.
            EXPECT_EQ(12, exc.error());
            ++failures;
        }
        noMemory.disarm();
        ASSERT_EQ(loads, unloads) << "at allocation " << n;
        ASSERT_EQ(0, lists) << "at allocation " << n;
        ASSERT_FALSE(isMapped(OTHER)) << "at allocation " << n;
        ASSERT_EQ(2u, DynLoaderMgr::manager()->refCount(true)) << "at allocation " << n;
    }
    EXPECT_GE(failures, 5);
    EXPECT_LT(failures, 1000);
    EXPECT_EQ(loads, unloads);
    const auto after = DynLoaderMgr::statistics();
    EXPECT_EQ(after.loaded - before.loaded, after.unloaded - before.unloaded);
    EXPECT_EQ(5, valueOf(DynLibrary::load(OTHER)->symbol("dyn_other_value")));
}

TEST_F(DynFault, LookupThatRunsOutOfMemoryKeepsTheOtherSymbols)
{
    const ConstDynLibraryRef library = DynLibrary::load(PLAIN);
    const DynSymbolRef value = library->symbol("dyn_plain_value");
    const String symbolName = "dyn_plain_function";
    int failures = 0;
    for (unsigned int n = 1; n < 1000; ++n) {
        Fault noMemory(Call::NEW, ENOMEM, n);
        try {
            library->symbol(symbolName);
            noMemory.disarm();
            break;
        } catch (const std::bad_alloc&) {
            ++failures;
        } catch (const system_error& exc) {
            EXPECT_EQ(12, exc.error());
            ++failures;
        }
        noMemory.disarm();
        ASSERT_EQ(3u, library->refCount(true)) << "at allocation " << n;
        ASSERT_EQ(2u, value->refCount(true)) << "at allocation " << n;
        ASSERT_EQ(value, library->symbol("dyn_plain_value")) << "at allocation " << n;
    }
    EXPECT_GE(failures, 3);
    EXPECT_LT(failures, 1000);
    EXPECT_EQ(0, lists);
}

TEST_F(DynFault, CacheHitAllocatesNothing)
{
    const ConstDynLibraryRef library = DynLibrary::load(PLAIN);
    const DynSymbolRef value = library->symbol("dyn_plain_value");
    const String symbolName = "dyn_plain_value";
    Fault noMemory(Call::NEW, ENOMEM);
    bool same = false;
    try {
        same = library->symbol(symbolName) == value && DynLibrary::load(PLAIN) == library;
    } catch (const std::bad_alloc&) {
    }
    noMemory.disarm();
    EXPECT_TRUE(same);
}

}
