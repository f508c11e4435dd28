// Runs a process that is linked with the library, and one that is linked only with the C++ library. The
// difference is the time to load the library.

#include <benchmark/benchmark.h>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

void runProgram(benchmark::State& state, const char* path)
{
    char* const arguments[] = {const_cast<char*>(path), nullptr};
    for (auto _ : state) {
        pid_t child = 0;
        int status = 0;
        if (posix_spawn(&child, path, nullptr, nullptr, arguments, environ) != 0
            || waitpid(child, &status, 0) != child || status != 0) {
            state.SkipWithError("the program failed");
        }
    }
}

void processWithLibrary(benchmark::State& state)
{
    runProgram(state, DALNIM_BENCH_WITH_LIBRARY);
}
BENCHMARK(processWithLibrary)->UseRealTime()->Unit(benchmark::kMicrosecond);

void processWithout(benchmark::State& state)
{
    runProgram(state, DALNIM_BENCH_WITHOUT);
}
BENCHMARK(processWithout)->UseRealTime()->Unit(benchmark::kMicrosecond);

}
