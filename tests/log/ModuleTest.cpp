#include <dalnim/log/Module.hpp>

#include <dalnim/log/LibraryModule.hpp>

#include "Loggers.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>

namespace {

using namespace logtest;
using log::Header;
using log::Module;

static_assert(!std::is_copy_constructible_v<Module> && !std::is_copy_assignable_v<Module>);
static_assert(std::is_same_v<decltype(com_kor_dal_nim_log_module), Module&>);
static_assert(std::is_same_v<decltype(com_kor_dal_nim_log_control), log::Control&>);
static_assert(std::is_same_v<decltype(log::GET_NIM_LOG_LOGGER_VAR()), log::Log&>);

/** The arguments of a call of log(mod, rec, force). */
class RecordingLog : public PlainLog
{
public:
    void log(const Module& mod, const Header& rec, bool force) override
    {
        module = &mod;
        record = &rec;
        forced = force;
        ++calls;
    }
    using PlainLog::log;

    const Module* module = nullptr;
    const Header* record = nullptr;
    bool forced = true;
    int calls = 0;
};

TEST(ModuleNames, TheVariablesReferToTheModulesOfTheDefaultLogger)
{
    EXPECT_STREQ("global", Module::DEFAULT_NAME);
    EXPECT_EQ("global", Module::DEFAULT_INSTANCE.getName());
    EXPECT_EQ(&Module::DEFAULT_INSTANCE, &com_kor_dal_nim_log_module);
    EXPECT_EQ("com.kor.dal.nim", com::kor::dal::nim::com_kor_dal_nim_log_module.getName());
    EXPECT_EQ("com.kor.dal.nim.log.internal", log::INTERNAL_LOG_MODULE.getName());
    const log::Control* const control = &log::GET_NIM_LOG_LOGGER_VAR();
    EXPECT_EQ(control, &com_kor_dal_nim_log_control);
    EXPECT_EQ(control, &Module::DEFAULT_INSTANCE.control());
    EXPECT_EQ(control, &com::kor::dal::nim::com_kor_dal_nim_log_module.control());
    EXPECT_EQ(control, &log::INTERNAL_LOG_MODULE.control());
    EXPECT_EQ(&log::GET_NIM_LOG_LOGGER_VAR(), &log::GET_NIM_LOG_LOGGER_VAR());
    EXPECT_NE(nullptr, dynamic_cast<log::Write*>(&log::GET_NIM_LOG_LOGGER_VAR()));
}

TEST(ModuleNames, TheLibrarysModulesAreFoundByName)
{
    log::Log& logger = log::GET_NIM_LOG_LOGGER_VAR();
    EXPECT_EQ(&com::kor::dal::nim::com_kor_dal_nim_log_module,
              &Module::getInstance("com.kor.dal.nim", logger));
    EXPECT_EQ(&com_kor_dal_nim_log_module, &Module::getInstance("global", logger));
    EXPECT_EQ(&log::INTERNAL_LOG_MODULE, &Module::getInstance("com.kor.dal.nim.log.internal", logger));
}

TEST(Module, HasItsNameAndLogger)
{
    PlainLog logger;
    String name = "a.b";
    Module module(name, logger);
    name = "changed";
    EXPECT_EQ("a.b", module.getName());
    EXPECT_EQ(static_cast<log::Control*>(&logger), &module.control());
    EXPECT_EQ(&module, logger.registration.getModuleActual("a.b"));
}

TEST(Module, LookupFindsTheFirstOfTwoModulesWithOneName)
{
    PlainLog logger;
    Module first("a", logger);
    Module second("a", logger);
    EXPECT_EQ(&first, &Module::getInstance("a", logger));
    EXPECT_EQ(2u, logger.registration.getModulesActual().size());
}

TEST(Module, GetInstanceCreatesAModuleOnce)
{
    PlainLog logger;
    Module& made = Module::getInstance("a", logger);
    EXPECT_EQ("a", made.getName());
    EXPECT_EQ(&made, &Module::getInstance("a", logger));
    EXPECT_NE(&made, &Module::getInstance("A", logger));
    EXPECT_EQ(2u, logger.registration.getModulesActual().size());
}

TEST(Module, CallerOwnsAnUnregisteredDynamicModule)
{
    PlainLog logger;
    Module* const made = &Module::getInstance("a", logger);
    logger.registration.removeFromModulesActual(*made);
    EXPECT_NE(made, &Module::getInstance("a", logger));
    delete made;
}

TEST(ModuleGate, WithoutAFilterTheLoggerDecides)
{
    PlainLog logger;
    Module module("a", logger);
    logger.threshold = log::Severity_WARNING;
    EXPECT_FALSE(module.isSeveritySatisfied(log::Severity_TRACE));
    EXPECT_FALSE(module.isSeveritySatisfied(log::Severity_NOTICE));
    EXPECT_TRUE(module.isSeveritySatisfied(log::Severity_WARNING));
    EXPECT_TRUE(module.isSeveritySatisfied(log::Severity_ERROR));
    EXPECT_TRUE(module.isSeveritySatisfied(log::Severity_FATAL));
    logger.threshold = log::Severity_NONE;
    EXPECT_TRUE(module.isSeveritySatisfied(log::Severity_NONE));
    EXPECT_TRUE(module.isSeveritySatisfied(log::Severity_TRACE));
}

TEST(ModuleGate, TheFilterSilencesNothingAboveWarning)
{
    PlainLog logger;
    Module a("a.module", logger);
    Module b("b", logger);
    logger.registration.addModulesRequested("a.*");
    EXPECT_TRUE(a.isSeveritySatisfied(log::Severity_WARNING));
    EXPECT_FALSE(b.isSeveritySatisfied(log::Severity_NOTICE));
    EXPECT_FALSE(b.isSeveritySatisfied(log::Severity_WARNING));
    EXPECT_TRUE(b.isSeveritySatisfied(log::Severity_ERROR));
    EXPECT_TRUE(b.isSeveritySatisfied(log::Severity_FATAL));
}

TEST(ModuleGate, TheLoggersSeverityIsNotCached)
{
    PlainLog logger;
    Module module("a", logger);
    EXPECT_TRUE(module.isSeveritySatisfied(log::Severity_NOTICE));
    logger.threshold = log::Severity_FATAL;
    EXPECT_FALSE(module.isSeveritySatisfied(log::Severity_NOTICE));
    EXPECT_FALSE(module.isSeveritySatisfied(log::Severity_ERROR));
    EXPECT_EQ(3, logger.asked) << "once a statement";
}

TEST(ModuleGate, FollowsTheFilter)
{
    PlainLog logger;
    Module module("a", logger);
    EXPECT_TRUE(module.isSeveritySatisfied(log::Severity_NOTICE));
    logger.registration.addModulesRequested("b");
    EXPECT_FALSE(module.isSeveritySatisfied(log::Severity_NOTICE));
    logger.registration.addModulesRequested("a");
    EXPECT_TRUE(module.isSeveritySatisfied(log::Severity_NOTICE));
    logger.registration.removeModulesRequested("a");
    EXPECT_FALSE(module.isSeveritySatisfied(log::Severity_NOTICE));
    logger.registration.removeModulesRequested("");
    EXPECT_TRUE(module.isSeveritySatisfied(log::Severity_NOTICE));
}

TEST(ModuleGate, ModuleConstructedAfterTheFilterIsFiltered)
{
    PlainLog logger;
    logger.registration.addModulesRequested("b");
    EXPECT_FALSE(Module::getInstance("a", logger).isSeveritySatisfied(log::Severity_NOTICE));
    EXPECT_TRUE(Module::getInstance("b", logger).isSeveritySatisfied(log::Severity_NOTICE));
}

TEST(ModuleGate, DisabledStatementDoesNotUpdateTheCache)
{
    PlainLog logger;
    Module module("a", logger);
    EXPECT_TRUE(module.isSeveritySatisfied(log::Severity_NOTICE));
    logger.registration.addModulesRequested("b");
    EXPECT_FALSE(module.isSeveritySatisfied(log::Severity_INFO));
    EXPECT_TRUE(module.isSeveritySatisfied(log::Severity_ERROR));
    logger.registration.addModulesRequested("a");
    EXPECT_TRUE(module.isSeveritySatisfied(log::Severity_NOTICE)) << "computed now, not before";
}

TEST(ModuleGate, TheGenerationsOfTheFilterMayWrap)
{
    PlainLog logger;
    Module module("a", logger);
    logger.registration.addModulesRequested("a");
    EXPECT_TRUE(module.isSeveritySatisfied(log::Severity_NOTICE));
    const unsigned int generation = logger.registration.getUpdate();
    logger.registration.addModulesRequested("b");
    logger.registration.removeModulesRequested("a");
    EXPECT_EQ(generation + 2, logger.registration.getUpdate());
    EXPECT_FALSE(module.isSeveritySatisfied(log::Severity_NOTICE));
}

TEST(ModuleRecord, IsPassedToTheLogger)
{
    RecordingLog logger;
    Module module("a", logger);
    Header header(log::Severity_TRACE, "x", 1);
    EXPECT_EQ(&module, &(module += header.os()));
    EXPECT_EQ(1, logger.calls);
    EXPECT_EQ(&module, logger.module);
    EXPECT_EQ(&header, logger.record);
    EXPECT_FALSE(logger.forced);
}

TEST(ModuleRecord, StreamThatIsNotAHeaderThrows)
{
    RecordingLog logger;
    Module module("a", logger);
    std::ostringstream stream;
    EXPECT_EQ("Supplied std::ostream is not an NIM Log Header.",
              textOf<std::invalid_argument>([&] { module += stream; }));
    EXPECT_EQ(0, logger.calls);
}

TEST(ModuleRecord, ExceptionsOfTheLoggerPropagate)
{
    struct FailingLog : PlainLog
    {
        void log(const Module&, const Header&, bool) override
        {
            throw std::runtime_error("full");
        }
    } logger;
    Module module("a", logger);
    Header header(log::Severity_ERROR, "x", 1);
    EXPECT_EQ("full", textOf<std::runtime_error>([&] { module += header; }));
}

TEST(ModuleGate, CallsTheOverrideOfASubclass)
{
    struct Stubborn : log::Write
    {
        bool isSeveritySatisfied(log::Severity sev) const override
        {
            return sev == log::Severity_TRACE;
        }
    } logger;
    Module module("a", logger);
    EXPECT_TRUE(module.isSeveritySatisfied(log::Severity_TRACE));
    EXPECT_FALSE(module.isSeveritySatisfied(log::Severity_FATAL));
}

/** A base class that constructs a module before the logger has its final type. */
struct ModuleMaker
{
    explicit ModuleMaker(log::Log& logger) : module("a", logger) {}

    Module module;
};

// While its base classes are constructed, the dynamic type of a Late is Write.
TEST(ModuleGate, CallsTheOverrideIfTheBaseConstructedTheModule)
{
    struct Late : log::Write, ModuleMaker
    {
        Late() : ModuleMaker(static_cast<log::Log&>(*this)) {}

        bool isSeveritySatisfied(log::Severity sev) const override
        {
            return sev == log::Severity_TRACE;
        }
    } logger;
    EXPECT_TRUE(logger.module.isSeveritySatisfied(log::Severity_TRACE));
    EXPECT_FALSE(logger.module.isSeveritySatisfied(log::Severity_FATAL));
}

TEST(ModuleGate, FirstCheckAppliesTheLoggersThreshold)
{
    OwnLogger logger;
    Module module("a", logger.write);
    EXPECT_FALSE(module.isSeveritySatisfied(log::Severity_INFO));
    Module other("b", logger.write);
    EXPECT_TRUE(other.isSeveritySatisfied(log::Severity_NOTICE));
}

/** Names a private member, which is allowed in an explicit instantiation. */
template <std::atomic<unsigned int> log::ModuleRegistration::*Generation>
struct GenerationAccess
{
    friend void setGeneration(log::ModuleRegistration& registration, unsigned int generation)
    {
        registration.*Generation = generation;
    }
};
void setGeneration(log::ModuleRegistration& registration, unsigned int generation);
template struct GenerationAccess<&log::ModuleRegistration::_update>;

TEST(ModuleGate, NewModuleIsFilteredInGenerationZero)
{
    PlainLog logger;
    // One step before the generation wraps. 4,294,967,295 changes of the filter would take a minute.
    setGeneration(logger.registration, 0xFFFFFFFF);
    logger.registration.setUpdate();
    ASSERT_EQ(0u, logger.registration.getUpdate());
    Module module("a", logger);
    EXPECT_TRUE(module.isSeveritySatisfied(log::Severity_NOTICE));
}

}
