#include "layer/Expect.hpp"
#include "layer/Fault.hpp"
#include "layer/Walk.hpp"

#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

namespace {

using com::kor::dal::nim::log::Module;
using com::kor::dal::nim::log::Write;
using faults::String;

TEST(ModuleFault, ModuleIsRegisteredOrThrows)
{
    Write write;
    const String name = "a.module.with.a.name.that.needs.memory.of.its.own";
    EXPECT_GE(faults::walkAllocations(
                  [] { return std::unique_ptr<Module>(); },
                  [&](std::unique_ptr<Module>& module) { module.reset(new Module(name, write)); },
                  [&](std::unique_ptr<Module>& module, bool done) { EXPECT_EQ(done, module != nullptr); }),
              2u);
}

TEST(ModuleFault, InstanceIsRegisteredAndOwnedOrThrows)
{
    const String name = "a.module.with.a.name.that.needs.memory.of.its.own";
    EXPECT_GE(
        faults::walkAllocations([] { return std::make_unique<Write>(); },
                                [&](std::unique_ptr<Write>& write) { Module::getInstance(name, *write); },
                                [&](std::unique_ptr<Write>& write, bool done) {
                                    Write::StringColl dynamic;
                                    write->getModulesRegisteredDynamic(dynamic);
                                    EXPECT_EQ(done ? 1 : 0, std::count(dynamic.begin(), dynamic.end(), name));
                                    // After a failure, the next attempt succeeds.
                                    EXPECT_EQ(name, Module::getInstance(name, *write).getName());
                                }),
        3u);
}

}
