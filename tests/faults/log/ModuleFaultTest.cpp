#include "layer/Expect.hpp"
#include "layer/Fault.hpp"
#include "layer/Walk.hpp"

#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>

#include <gtest/gtest.h>

#include <memory>

namespace {

using com::kor::dal::nim::log::Module;
using com::kor::dal::nim::log::Write;
using faults::String;

TEST(ModuleFault, AModuleIsRegisteredOrNot)
{
    Write write;
    const String name = "a.module.with.a.name.that.needs.memory.of.its.own";
    EXPECT_GE(faults::walkAllocations(
                  [] { return std::unique_ptr<Module>(); },
                  [&](std::unique_ptr<Module>& module) { module.reset(new Module(name, write)); },
                  [&](std::unique_ptr<Module>& module, bool done) { EXPECT_EQ(done, module != nullptr); }),
              2u);
}

}
