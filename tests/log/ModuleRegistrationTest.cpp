#include <dalnim/log/ModuleRegistration.hpp>

#include "Loggers.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <ctime>
#include <list>
#include <malloc.h>
#include <memory>
#include <random>
#include <thread>

namespace {

using namespace logtest;
using log::Module;
using log::ModuleRegistration;

typedef std::list<String> Names;

/** A registration with these filter entries. */
struct Filter : ModuleRegistration
{
    Filter(std::initializer_list<const char*> entries)
    {
        for (const char* const entry : entries) {
            addModulesRequested(entry);
        }
    }
};

TEST(ModuleRegistration, StartsWithoutAFilterInGenerationOne)
{
    const ModuleRegistration registration;
    EXPECT_EQ(1u, registration.getUpdate());
    EXPECT_TRUE(registration.getModulesRequested().empty());
    EXPECT_TRUE(registration.getModulesActual().empty());
    EXPECT_FALSE(registration.isModuleRequested("a"));
    EXPECT_FALSE(registration.isModuleRequested(""));
    EXPECT_TRUE(registration.isModuleSelected("a"));
    EXPECT_TRUE(registration.isModuleSelected(""));
}

TEST(ModuleRegistration, FilterNeverMatchesAnEmptyName)
{
    const Filter filter({"*"});
    EXPECT_FALSE(filter.isModuleRequested(""));
    EXPECT_FALSE(filter.isModuleSelected(""));
}

TEST(ModuleRegistration, MatchesTheExactName)
{
    const Filter filter({"com.kor"});
    EXPECT_TRUE(filter.isModuleRequested("com.kor"));
    EXPECT_TRUE(filter.isModuleSelected("com.kor"));
    for (const char* const other : {"com.ko", "com.kor.dal", "Com.kor", "x.com.kor", "com.kor "}) {
        EXPECT_FALSE(filter.isModuleRequested(other)) << other;
        EXPECT_FALSE(filter.isModuleSelected(other)) << other;
    }
}

TEST(ModuleRegistration, AStarAloneMatchesEveryName)
{
    const Filter filter({"*"});
    EXPECT_TRUE(filter.isModuleRequested("a"));
    EXPECT_TRUE(filter.isModuleRequested("com.kor.dal.nim"));
    EXPECT_TRUE(filter.isModuleRequested("*"));
}

TEST(ModuleRegistration, AStarAtTheEndMatchesTheRest)
{
    const Filter filter({"com.kor.*"});
    EXPECT_TRUE(filter.isModuleRequested("com.kor.dal.nim"));
    EXPECT_TRUE(filter.isModuleRequested("com.kor."));
    EXPECT_TRUE(filter.isModuleRequested("com.kor.*"));
    EXPECT_FALSE(filter.isModuleRequested("com.kor"));
    EXPECT_FALSE(filter.isModuleRequested("com.korx.dal"));
    EXPECT_FALSE(filter.isModuleRequested("COM.KOR.DAL"));
    EXPECT_FALSE(filter.isModuleRequested("c"));
}

TEST(ModuleRegistration, AStarElsewhereIsAnOrdinaryCharacter)
{
    const Filter inside({"a*b"});
    EXPECT_TRUE(inside.isModuleRequested("a*b"));
    EXPECT_FALSE(inside.isModuleRequested("axb"));
    const Filter front({"*a"});
    EXPECT_TRUE(front.isModuleRequested("*a"));
    EXPECT_FALSE(front.isModuleRequested("ba"));
    const Filter two({"**"});
    EXPECT_TRUE(two.isModuleRequested("*"));
    EXPECT_TRUE(two.isModuleRequested("*x"));
    EXPECT_FALSE(two.isModuleRequested("x"));
    const Filter both({"a*b*"});
    EXPECT_TRUE(both.isModuleRequested("a*bc"));
    EXPECT_FALSE(both.isModuleRequested("axbc"));
    const Filter question({"a?", "[a]"});
    EXPECT_FALSE(question.isModuleRequested("ab"));
    EXPECT_FALSE(question.isModuleRequested("a"));
}

TEST(ModuleRegistration, AnyEntryMayMatch)
{
    const Filter filter({"x", "a.*", "b"});
    EXPECT_TRUE(filter.isModuleRequested("b"));
    EXPECT_TRUE(filter.isModuleRequested("a.c"));
    EXPECT_FALSE(filter.isModuleRequested("c"));
}

TEST(ModuleRegistration, AddingAppendsAndIncrementsTheGeneration)
{
    ModuleRegistration registration;
    registration.addModulesRequested("b");
    registration.addModulesRequested("a.*");
    registration.addModulesRequested("c");
    EXPECT_EQ((Names{"b", "a.*", "c"}), registration.getModulesRequested());
    EXPECT_EQ(4u, registration.getUpdate());
}

TEST(ModuleRegistration, AddingADuplicateChangesNothing)
{
    Filter filter({"*", "a"});
    const unsigned int generation = filter.getUpdate();
    filter.addModulesRequested("a");
    filter.addModulesRequested("*");
    EXPECT_EQ((Names{"*", "a"}), filter.getModulesRequested());
    EXPECT_EQ(generation, filter.getUpdate());
    filter.addModulesRequested("A");
    EXPECT_EQ((Names{"*", "a", "A"}), filter.getModulesRequested());
    EXPECT_EQ(generation + 1, filter.getUpdate());
}

TEST(ModuleRegistration, RemovesTheFirstMatchingEntry)
{
    Filter filter({"*", "a"});
    const unsigned int generation = filter.getUpdate();
    filter.removeModulesRequested("a");
    EXPECT_EQ((Names{"a"}), filter.getModulesRequested());
    EXPECT_EQ(generation + 1, filter.getUpdate());

    Filter patterns({"x", "a.*", "a.b"});
    patterns.removeModulesRequested("a.b");
    EXPECT_EQ((Names{"x", "a.b"}), patterns.getModulesRequested());
    patterns.removeModulesRequested("a.b");
    EXPECT_EQ((Names{"x"}), patterns.getModulesRequested());
}

TEST(ModuleRegistration, RemovesOneEntryPerCall)
{
    Filter filter({"a.b", "a.*", "a*", "z"});
    filter.removeModulesRequested("a.b");
    EXPECT_EQ((Names{"a.*", "a*", "z"}), filter.getModulesRequested());
}

TEST(ModuleRegistration, RemovingAPatternRemovesAnEqualOrMatchingEntry)
{
    Filter filter({"a.*", "b"});
    filter.removeModulesRequested("a.*");
    EXPECT_EQ((Names{"b"}), filter.getModulesRequested());
    Filter wider({"a*", "a.*"});
    wider.removeModulesRequested("a.*");
    EXPECT_EQ((Names{"a.*"}), wider.getModulesRequested());
}

TEST(ModuleRegistration, RemovingWithoutAMatchChangesNothing)
{
    Filter filter({"a.*", "b"});
    const unsigned int generation = filter.getUpdate();
    filter.removeModulesRequested("c");
    filter.removeModulesRequested("*");
    EXPECT_EQ((Names{"a.*", "b"}), filter.getModulesRequested());
    EXPECT_EQ(generation, filter.getUpdate());
}

TEST(ModuleRegistration, RemovingTheEmptyNameClearsTheFilter)
{
    Filter filter({"a.*", "b"});
    const unsigned int generation = filter.getUpdate();
    filter.removeModulesRequested("");
    EXPECT_TRUE(filter.getModulesRequested().empty());
    EXPECT_EQ(generation + 1, filter.getUpdate());
    EXPECT_TRUE(filter.isModuleSelected("z"));
}

TEST(ModuleRegistration, RemovingFromAnEmptyFilterIncrementsTheGeneration)
{
    ModuleRegistration registration;
    registration.removeModulesRequested("");
    EXPECT_EQ(2u, registration.getUpdate());
    registration.removeModulesRequested("a");
    EXPECT_EQ(3u, registration.getUpdate());
    EXPECT_TRUE(registration.getModulesRequested().empty());
}

TEST(ModuleRegistration, ReplacingTheFilterIncrementsTheGenerationOnce)
{
    Filter filter({"a.*", "b"});
    const unsigned int generation = filter.getUpdate();
    filter.setModulesRequested({"c", "a.*"});
    EXPECT_EQ((Names{"c", "a.*"}), filter.getModulesRequested());
    EXPECT_TRUE(filter.isModuleSelected("c"));
    EXPECT_FALSE(filter.isModuleSelected("b"));
    EXPECT_EQ(generation + 1, filter.getUpdate());
    filter.setModulesRequested({"c", "a.*"});
    EXPECT_EQ(generation + 1, filter.getUpdate()) << "the same entries are no change";
}

TEST(ModuleRegistration, SetUpdateIncrementsTheGeneration)
{
    ModuleRegistration registration;
    registration.setUpdate();
    EXPECT_EQ(2u, registration.getUpdate());
}

TEST(ModuleRegistration, ModulesAreListedInTheOrderOfRegistration)
{
    PlainLog logger;
    const Module b("b", logger);
    const Module a("a", logger);
    const Module secondB("b", logger);
    EXPECT_EQ(
        (std::list<Module*>{const_cast<Module*>(&b), const_cast<Module*>(&a), const_cast<Module*>(&secondB)}),
        logger.registration.getModulesActual());
    EXPECT_EQ(&b, logger.registration.getModuleActual("b"));
    EXPECT_EQ(&a, logger.registration.getModuleActual("a"));
    EXPECT_EQ(nullptr, logger.registration.getModuleActual("A"));
    EXPECT_EQ(nullptr, logger.registration.getModuleActual(""));
    EXPECT_EQ(1u, logger.registration.getUpdate()) << "the filter has not changed";
}

TEST(ModuleRegistration, UnregisteringAModuleRemovesEveryEntryOfIt)
{
    PlainLog logger;
    const Module a("a", logger);
    const Module b("b", logger);
    logger.registration.addModulesActual(a);
    EXPECT_EQ(3u, logger.registration.getModulesActual().size());
    logger.registration.removeFromModulesActual(a);
    EXPECT_EQ((std::list<Module*>{const_cast<Module*>(&b)}), logger.registration.getModulesActual());
    EXPECT_EQ("a", a.getName());
    EXPECT_EQ(1u, logger.registration.getUpdate());
}

TEST(ModuleRegistration, LookupFindsTheFirstRemainingModule)
{
    PlainLog logger;
    ModuleRegistration& registration = logger.registration;
    const Module first("a", logger);
    const Module second("a", logger);
    const Module third("a", logger);
    registration.addModulesActual(first);
    EXPECT_EQ(&first, registration.getModuleActual("a"));
    registration.removeFromModulesActual(second);
    EXPECT_EQ(&first, registration.getModuleActual("a"));
    registration.removeFromModulesActual(first);
    EXPECT_EQ(&third, registration.getModuleActual("a"));
    registration.addModulesActual(first);
    EXPECT_EQ(&third, registration.getModuleActual("a"));
    registration.removeFromModulesActual(third);
    EXPECT_EQ(&first, registration.getModuleActual("a"));
    registration.removeFromModulesActual(first);
    EXPECT_EQ(nullptr, registration.getModuleActual("a"));
    registration.removeFromModulesActual(first);
    EXPECT_EQ(nullptr, registration.getModuleActual("a"));
}

TEST(ModuleRegistration, DeletesOnlyDynamicModules)
{
    PlainLog logger;
    Module fixed("a", logger);
    Module* const fixedBefore = &fixed;
    Module* pointer = &fixed;
    logger.registration.removeModulesActual(pointer);
    EXPECT_EQ(fixedBefore, pointer);

    Module* nothing = nullptr;
    logger.registration.removeModulesActual(nothing);
    EXPECT_EQ(nullptr, nothing);

    Module* dynamic = &Module::getInstance("b", logger);
    logger.registration.removeModulesActual(dynamic);
    EXPECT_EQ(nullptr, dynamic);
    EXPECT_EQ(2u, logger.registration.getModulesActual().size()) << "the list is not touched";
}

/** Returns the number of bytes that this process has allocated and not freed. */
std::size_t allocatedBytes()
{
    const struct mallinfo2 info = ::mallinfo2();
    return info.uordblks + info.hblkhd;
}

// A leak fails the address sanitizer, too.
TEST(ModuleRegistration, DeletesADynamicModuleThatWasRegisteredAgain)
{
    constexpr std::size_t NAME_LENGTH = 4096;
    constexpr std::size_t ROUNDS = 1000;
    const auto registerAgain = [] {
        PlainLog logger;
        Module& module = Module::getInstance(String(NAME_LENGTH, 'a'), logger);
        logger.registration.removeFromModulesActual(module);
        EXPECT_EQ(nullptr, logger.registration.getModuleActual(module.getName()));
        logger.registration.addModulesActual(module);
        EXPECT_EQ(&module, &Module::getInstance(module.getName(), logger));
    };
    registerAgain();
    const std::size_t before = allocatedBytes();
    for (std::size_t i = 0; i < ROUNDS; ++i) {
        registerAgain();
    }
    EXPECT_LT(allocatedBytes(), before + ROUNDS * NAME_LENGTH / 2);
}

TEST(ModuleRegistration, DeletesADynamicModuleOnceIfItIsRegisteredTwice)
{
    PlainLog logger;
    Module& module = Module::getInstance("a", logger);
    logger.registration.addModulesActual(module);
    EXPECT_EQ(2u, logger.registration.getModulesActual().size());
    // A second deletion would end the process here, or under the address sanitizer at the latest.
}

TEST(ModuleRegistration, DoesNotDeleteADynamicModuleOfAnotherLogger)
{
    PlainLog owner;
    Module& module = Module::getInstance("a", owner);
    {
        PlainLog other;
        other.registration.addModulesActual(module);
        EXPECT_EQ(&module, other.registration.getModuleActual("a"));
    }
    EXPECT_EQ("a", module.getName());
    EXPECT_EQ(&module, owner.registration.getModuleActual("a"));
}

TEST(ModuleRegistration, NamesAreInTheOrderOfRegistration)
{
    PlainLog logger;
    const Module b("b", logger);
    const Module a("a", logger);
    const Module secondB("b", logger);
    const Module c("c", logger);
    logger.registration.removeFromModulesActual(b);
    logger.registration.addModulesActual(b);
    EXPECT_EQ((std::vector<String>{"a", "b", "c", "b"}), logger.registration.getNamesActual());
}

/** Returns the processor time of this thread, in seconds. */
double threadCpuSeconds()
{
    timespec time = {};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// A search through all modules for each module would take minutes.
TEST(ModuleRegistration, RegistersManyModulesInLessThanQuadraticTime)
{
    constexpr std::size_t NUMBER = 100000;
    PlainLog logger;
    std::vector<std::unique_ptr<Module>> modules;
    const double before = threadCpuSeconds();
    for (std::size_t i = 0; i < NUMBER; ++i) {
        modules.push_back(std::make_unique<Module>("module." + std::to_string(i % (NUMBER / 2)), logger));
    }
    EXPECT_EQ(NUMBER, logger.registration.getModulesActual().size());
    std::mt19937 random(1);
    std::shuffle(modules.begin(), modules.end(), random);
    for (const auto& module : modules) {
        logger.registration.removeFromModulesActual(*module);
        if (threadCpuSeconds() - before > 20) {
            FAIL() << "removed only " << &module - modules.data();
        }
    }
    EXPECT_TRUE(logger.registration.getModulesActual().empty());
}

TEST(ModuleRegistration, ModuleMayBeDestroyedBeforeItsLogger)
{
    PlainLog logger;
    Module::getInstance("dynamic", logger);
    {
        const Module shortLived("a name that is too long to be kept within the string", logger);
    }
    // The logger is destroyed here, with an entry for a destroyed module. A sanitizer would report an access.
}

TEST(ModuleRegistration, ModuleMayBeDestroyedAfterItsLogger)
{
    auto logger = std::make_unique<PlainLog>();
    const auto module =
        std::make_unique<Module>("a name that is too long to be kept within the string", *logger);
    logger.reset();
}

TEST(ModuleRegistration, FilterMayChangeWhileThreadsReadIt)
{
    Filter filter({"kept.*"});
    std::atomic<bool> stop(false);
    std::atomic<int> ready(0);
    std::atomic<bool> wrong(false);
    std::vector<std::thread> readers;
    for (int i = 0; i < 4; ++i) {
        readers.emplace_back([&] {
            ++ready;
            do {
                if (!filter.isModuleRequested("kept.module") || filter.isModuleRequested("never")) {
                    wrong = true;
                }
                filter.getUpdate();
            } while (!stop);
        });
    }
    while (ready != 4) {
        std::this_thread::yield();
    }
    const unsigned int before = filter.getUpdate();
    for (int i = 0; i < 2000; ++i) {
        filter.addModulesRequested("an.entry.that.comes.and.goes." + std::to_string(i % 7));
        filter.removeModulesRequested("an.entry.that.comes.and.goes." + std::to_string(i % 7));
    }
    stop = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_FALSE(wrong);
    EXPECT_EQ(before + 4000, filter.getUpdate());
    EXPECT_EQ((Names{"kept.*"}), filter.getModulesRequested());
}

}
