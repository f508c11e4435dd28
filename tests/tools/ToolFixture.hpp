#ifndef DALNIM_TESTS_TOOLS_TOOLFIXTURE_HPP
#define DALNIM_TESTS_TOOLS_TOOLFIXTURE_HPP

#include <support/ChildProcess.hpp>
#include <support/Files.hpp>

#include <gtest/gtest.h>

#include <string>

/** Runs a tool in a temporary directory. */
class ToolFixture : public testing::Test
{
protected:
    struct Result
    {
        int status;
        std::string output;
        std::string errors;
    };

    /** Runs a shell command. Its outputs are stored in another directory than the one that it runs in. */
    Result shell(const std::string& line) const
    {
        support::ChildProcess child({"/bin/bash", "-c", "cd '" + directory.path() + "' && " + line},
                                    outputs.path());
        const int status = child.wait();
        return {status, child.output(), child.errors()};
    }

    void write(const std::string& name, const std::string& text) const
    {
        support::writeFile(directory.file(name), text);
    }

    static void expectResult(const Result& result, int status, const std::string& output,
                             const std::string& errors)
    {
        EXPECT_EQ(result.output, output);
        EXPECT_EQ(result.errors, errors);
        EXPECT_EQ(result.status, status);
    }

    support::ScratchFolder directory;
    support::ScratchFolder outputs;
};

#endif
