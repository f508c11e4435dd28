// What becomes of libraries and symbols when the system refuses: this program stands in for a part of the
// system interface, and for the memory.

#include "DynPlugins.hpp"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <ostream>

#include <dlfcn.h>

#include <qv/pmx/library.h>

#include <log/Loggers.hpp>

namespace {

/** What the interface does in place of its own. */
struct Faults
{
    bool unloadFails = false;
    int unloadErrno = 0;
    qv_err_t listStatus = 0;
    qv_err_t loadStatus = 0;
    /** The detail of a load that fails; null for none. */
    const char* loadText = nullptr;
    /** How many allocations succeed before all fail; below 0 for all. */
    int allocations = -1;
};

Faults faults;
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
    if (faults.loadStatus != 0) {
        *error_text = faults.loadText != nullptr ? strdup(faults.loadText) : nullptr;
        *handle = nullptr;
        return faults.loadStatus;
    }
    const qv_err_t status = original(&qv_si_library_nload, "qv_si_library_nload")(path, error_text, handle);
    loads += status == 0 ? 1 : 0;
    return status;
}

qv_err_t qv_si_library_unload(qv_lhandle_t handle)
{
    const qv_err_t status = original(&qv_si_library_unload, "qv_si_library_unload")(handle);
    ++unloads;
    if (faults.unloadFails) {
        errno = faults.unloadErrno;
        return EINVAL;
    }
    return status;
}

qv_err_t qv_si_module_create_list(qv_module_list_t* list)
{
    if (faults.listStatus != 0) {
        return faults.listStatus;
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

// Not to be inlined: g++ would take the pair for a mismatch.
__attribute__((noinline)) void* operator new(std::size_t size)
{
    void* memory = nullptr;
    if (faults.allocations != 0) {
        memory = std::malloc(size);
    }
    if (faults.allocations > 0) {
        --faults.allocations;
    }
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

__attribute__((noinline)) void operator delete(void* memory) noexcept
{
    std::free(memory);
}

__attribute__((noinline)) void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace {

using namespace dyntest;
using logtest::DefaultLogger;

class DynFault : public testing::Test
{
protected:
    DynFault()
    {
        faults = Faults();
        loads = 0;
        unloads = 0;
        lists = 0;
    }
    ~DynFault() override
    {
        faults = Faults();
    }
};

TEST_F(DynFault, AnUnloadThatIsRefusedIsAWarning)
{
    DefaultLogger logger;
    logger->setSeverity(logtest::log::Severity_TRACE);
    logger.taken();
    faults.unloadFails = true;
    faults.unloadErrno = 16;
    EXPECT_NO_THROW(DynLibrary::load(OTHER));
    EXPECT_EQ("com.kor.dal.nim WARNING DynLibrary : Unable to unload dynamic library \"" + OTHER
                  + "\": Device or resource busy\n",
              logger.taken());
    EXPECT_EQ(1, unloads);
    EXPECT_EQ(2u, DynLoaderMgr::manager()->refCount(true)) << "the object is gone all the same";

    logger->setSeverity(logtest::log::Severity_ERROR);
    logger.taken();
    DynLibrary::load(OTHER);
    EXPECT_EQ("", logger.taken());
}

/** A place for records that lets its own kind of failure out of the statement. */
class Refusal : private std::streambuf, public std::ostream
{
public:
    Refusal() : std::ostream(static_cast<std::streambuf*>(this))
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

TEST_F(DynFault, ALogThatTakesNoRecordEndsNothing)
{
    DefaultLogger logger;
    logger->setSeverity(logtest::log::Severity_INFO);
    ConstDynLibraryRef library = DynLibrary::load(OTHER);
    Refusal refusal;
    std::ios& output = refusal;
    logger->setStream(output);
    EXPECT_THROW(NIM_LOG(Severity_INFO) << "not taken", int);
    refusal.clear();
    library.clear();
    logger->setStream(static_cast<std::ios&>(logger.sink));
    EXPECT_EQ(1, unloads);
    EXPECT_FALSE(isMapped(OTHER));
    EXPECT_EQ(2u, DynLoaderMgr::manager()->refCount(true));
}

TEST_F(DynFault, ALibraryGoesWithoutMemory)
{
    ConstDynLibraryRef library = DynLibrary::load(OTHER);
    faults.allocations = 0;
    library.clear();
    faults.allocations = -1;
    EXPECT_EQ(1, unloads);
    EXPECT_FALSE(isMapped(OTHER));
    EXPECT_EQ(2u, DynLoaderMgr::manager()->refCount(true));
}

TEST_F(DynFault, AModuleListThatCannotBeHadIsAFailure)
{
    const ConstDynLibraryRef library = DynLibrary::load(OTHER);
    const DynSymbolRef symbol = library->symbol("dyn_other_value");
    faults.listStatus = 12;
    const Failure failure([&library] { library->symbol("dyn_test_loaded"); });
    EXPECT_EQ(12, failure.error);
    EXPECT_EQ("Cannot allocate memory", failure.text);
    EXPECT_EQ(StringVector{"com.kor.dal.nim.sys.DynLoaderMgr.symbol()"}, functionsOf(failure.trace));
    EXPECT_EQ(symbol, library->symbol("dyn_other_value")) << "a hit needs no list";
    faults.listStatus = 0;
    EXPECT_EQ("dyn_test_loaded", library->symbol("dyn_test_loaded")->name());
}

TEST_F(DynFault, AModuleListIsGivenBack)
{
    const ConstDynLibraryRef library = DynLibrary::load(OTHER);
    library->symbol("dyn_other_value");
    EXPECT_EQ(0, lists);
    EXPECT_THROW(library->symbol("dyn_no_such_symbol"), system_error);
    EXPECT_EQ(0, lists);
}

TEST_F(DynFault, AFailedLoadIsToldWithOrWithoutADetail)
{
    faults.loadStatus = 16;
    Failure failure([] { DynLibrary::load("x"); });
    EXPECT_EQ(16, failure.error);
    EXPECT_EQ("Unable to load \"x\": Device or resource busy", failure.text);

    faults.loadText = "";
    EXPECT_EQ("Unable to load \"x\": Device or resource busy", Failure([] { DynLibrary::load("x"); }).text);

    faults.loadText = "detail";
    EXPECT_EQ("Unable to load \"x\": Device or resource busy, detail)",
              Failure([] { DynLibrary::load("x"); }).text);
    EXPECT_EQ((StringVector{"com.kor.dal.nim.sys.DynLoaderMgr.image()",
                            "com.kor.dal.nim.sys.DynLibrary.loadProcess()"}),
              functionsOf(Failure([] { DynLibrary::loadProcess(); }).trace));
    EXPECT_EQ("Unable to load \"\": Device or resource busy, detail)",
              Failure([] { DynLibrary::loadProcess(); }).text);
}

TEST_F(DynFault, ANumberOfItsOwnKeepsItsText)
{
    faults.loadStatus = 99999;
    EXPECT_EQ("Unable to load \"x\": Unknown error 99999", Failure([] { DynLibrary::load("x"); }).text);
}

TEST_F(DynFault, MissingMemoryLeavesNothingLoaded)
{
    DynLoaderMgr::manager();
    const String name = OTHER;
    const String symbolName = "dyn_other_value";
    int failures = 0;
    for (int allowed = 0; allowed < 1000; ++allowed) {
        faults.allocations = allowed;
        try {
            DynLibrary::load(name)->symbol(symbolName);
            faults.allocations = -1;
            break;
        } catch (const std::bad_alloc&) {
            ++failures;
        } catch (const system_error& exc) {
            // The module list has a status of its own for it.
            EXPECT_EQ(12, exc.error());
            ++failures;
        }
        faults.allocations = -1;
        ASSERT_EQ(loads, unloads) << "at allocation " << allowed;
        ASSERT_EQ(0, lists) << "at allocation " << allowed;
        ASSERT_FALSE(isMapped(OTHER)) << "at allocation " << allowed;
        ASSERT_EQ(2u, DynLoaderMgr::manager()->refCount(true)) << "at allocation " << allowed;
    }
    EXPECT_GE(failures, 5);
    EXPECT_LT(failures, 1000);
    EXPECT_EQ(loads, unloads);
    EXPECT_EQ(5, valueOf(DynLibrary::load(OTHER)->symbol("dyn_other_value")));
}

TEST_F(DynFault, MissingMemoryForASymbolLeavesTheOthers)
{
    const ConstDynLibraryRef library = DynLibrary::load(PLAIN);
    const DynSymbolRef value = library->symbol("dyn_plain_value");
    const String symbolName = "dyn_plain_function";
    int failures = 0;
    for (int allowed = 0; allowed < 1000; ++allowed) {
        faults.allocations = allowed;
        try {
            library->symbol(symbolName);
            faults.allocations = -1;
            break;
        } catch (const std::bad_alloc&) {
            ++failures;
        } catch (const system_error& exc) {
            EXPECT_EQ(12, exc.error());
            ++failures;
        }
        faults.allocations = -1;
        ASSERT_EQ(3u, library->refCount(true)) << "at allocation " << allowed;
        ASSERT_EQ(2u, value->refCount(true)) << "at allocation " << allowed;
        ASSERT_EQ(value, library->symbol("dyn_plain_value")) << "at allocation " << allowed;
    }
    EXPECT_GE(failures, 3);
    EXPECT_LT(failures, 1000);
    EXPECT_EQ(0, lists);
}

TEST_F(DynFault, AHitTakesNoMemory)
{
    const ConstDynLibraryRef library = DynLibrary::load(PLAIN);
    const DynSymbolRef value = library->symbol("dyn_plain_value");
    const String symbolName = "dyn_plain_value";
    faults.allocations = 0;
    bool same = false;
    try {
        same = library->symbol(symbolName) == value && DynLibrary::load(PLAIN) == library;
    } catch (const std::bad_alloc&) {
    }
    faults.allocations = -1;
    EXPECT_TRUE(same);
}

}
