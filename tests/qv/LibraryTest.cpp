#include <qv/pmx/library.h>

#include <gtest/gtest.h>
#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include <dlfcn.h>

#include "Scratch.hpp"

extern "C" {
extern __attribute__((visibility("default"))) int qv_test_symbol_of_the_program;
int qv_test_symbol_of_the_program = 5;
}

namespace {

using qvtest::Scratch;

/** Loads a library, and unloads it at the end of its scope. */
struct Load
{
    explicit Load(const std::string& path)
    {
        char* errorText = reinterpret_cast<char*>(this);
        status = qv_si_library_nload(path.c_str(), &errorText, &handle);
        if (errorText != nullptr) {
            text = errorText;
            std::free(errorText);
        }
    }
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;
    ~Load()
    {
        if (handle != nullptr) {
            EXPECT_EQ(qv_si_library_unload(handle), 0);
        }
    }

    qv_err_t status = -1;
    qv_lhandle_t handle = nullptr;
    std::string text;
};

TEST(Library, IsLoadedAndUnloaded)
{
    EXPECT_EQ(dlopen(QV_TEST_PLUGIN, RTLD_LAZY | RTLD_NOLOAD), nullptr);
    {
        const Load plugin(QV_TEST_PLUGIN);
        EXPECT_EQ(plugin.status, 0);
        ASSERT_NE(plugin.handle, nullptr);
        EXPECT_EQ(plugin.text, "");

        void* const value = qv_si_lib_find_symbol(plugin.handle, nullptr, "qv_test_plugin_value");
        ASSERT_NE(value, nullptr);
        EXPECT_EQ(*static_cast<int*>(value), 17);
        void* const function = qv_si_lib_find_symbol(plugin.handle, nullptr, "qv_test_plugin_function");
        ASSERT_NE(function, nullptr);
        EXPECT_EQ(reinterpret_cast<int (*)(int)>(function)(3), 20);
    }
    EXPECT_EQ(dlopen(QV_TEST_PLUGIN, RTLD_LAZY | RTLD_NOLOAD), nullptr);
}

TEST(Library, RemainsLoadedUntilTheLastUnload)
{
    const Load first(QV_TEST_PLUGIN);
    {
        const Load second(QV_TEST_PLUGIN);
        EXPECT_EQ(first.handle, second.handle);
    }
    EXPECT_NE(qv_si_lib_find_symbol(first.handle, nullptr, "qv_test_plugin_value"), nullptr);
}

TEST(Library, SymbolsAreNotVisibleToOtherModules)
{
    const Load plugin(QV_TEST_PLUGIN);
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "qv_test_plugin_value"), nullptr);
}

TEST(Library, FailureReturnsTheReasonAndItsNumber)
{
    const Load missing("/no/such/library.so");
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.handle, nullptr);
    EXPECT_EQ(missing.text, "/no/such/library.so: cannot open shared object file: No such file or directory");

    const Scratch scratch;
    const std::string path = scratch.path("garbage.so");
    std::ofstream(path) << std::string(4096, 'x');
    const Load garbage(path);
    EXPECT_EQ(garbage.status, 8);
    EXPECT_EQ(garbage.handle, nullptr);
    EXPECT_EQ(garbage.text, path + ": invalid ELF header");
}

TEST(Library, FailureReturnsTheNumberIfTheTextIsNotWanted)
{
    qv_lhandle_t handle = reinterpret_cast<qv_lhandle_t>(this);
    EXPECT_EQ(qv_si_library_nload("/no/such/library.so", nullptr, &handle), 2);
    EXPECT_EQ(handle, nullptr);
}

TEST(Library, EmptyNameLoadsTheProcessImage)
{
    const Load process("");
    EXPECT_EQ(process.status, 0);
    ASSERT_NE(process.handle, nullptr);
    EXPECT_EQ(qv_si_lib_find_symbol(process.handle, nullptr, "qv_test_symbol_of_the_program"),
              &qv_test_symbol_of_the_program);
    EXPECT_NE(qv_si_lib_find_symbol(process.handle, nullptr, "qv_si_strerror"), nullptr);
}

TEST(Library, FailsIfAnArgumentIsNull)
{
    qv_lhandle_t handle = nullptr;
    char* text = nullptr;
    EXPECT_EQ(qv_si_library_nload(nullptr, &text, &handle), 22);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(qv_si_library_nload("", &text, nullptr), 22);
    EXPECT_EQ(qv_si_library_unload(nullptr), 22);
}

TEST(FindSymbol, SearchesTheLibraryBeforeTheModules)
{
    const Load plugin(QV_TEST_PLUGIN);
    ASSERT_EQ(plugin.status, 0);
    // Defined neither by the library nor by its dependencies.
    EXPECT_EQ(qv_si_lib_find_symbol(plugin.handle, nullptr, "qv_test_symbol_of_the_program"), nullptr);

    qv_module_list_t list = nullptr;
    ASSERT_EQ(qv_si_module_create_list(&list), 0);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(qv_si_lib_find_symbol(plugin.handle, list, "qv_test_symbol_of_the_program"),
              &qv_test_symbol_of_the_program);
    EXPECT_EQ(qv_si_lib_find_symbol(plugin.handle, list, "qv_test_plugin_value"),
              qv_si_lib_find_symbol(plugin.handle, nullptr, "qv_test_plugin_value"));
    // The list includes modules that were loaded with RTLD_LOCAL.
    EXPECT_EQ(qv_si_lib_find_symbol(nullptr, list, "qv_test_plugin_value"),
              qv_si_lib_find_symbol(plugin.handle, nullptr, "qv_test_plugin_value"));
    EXPECT_EQ(qv_si_lib_find_symbol(plugin.handle, list, "qv_test_no_such_symbol"), nullptr);
    EXPECT_EQ(qv_si_lib_find_symbol(plugin.handle, list, nullptr), nullptr);
    EXPECT_EQ(qv_si_lib_find_symbol(nullptr, nullptr, "qv_test_plugin_value"), nullptr);
    qv_si_module_destroy_list(list);
}

TEST(ModuleList, ModulesRemainLoadedWhileTheListExists)
{
    qv_module_list_t list = nullptr;
    {
        const Load plugin(QV_TEST_PLUGIN);
        ASSERT_EQ(qv_si_module_create_list(&list), 0);
    }
    EXPECT_NE(qv_si_lib_find_symbol(nullptr, list, "qv_test_plugin_value"), nullptr);
    qv_si_module_destroy_list(list);
    EXPECT_EQ(dlopen(QV_TEST_PLUGIN, RTLD_LAZY | RTLD_NOLOAD), nullptr);
}

TEST(ModuleList, NullListIsAccepted)
{
    qv_si_module_destroy_list(nullptr);
    EXPECT_EQ(qv_si_module_create_list(nullptr), 22);
}

}
