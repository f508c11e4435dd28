/**
 * A program that loads the library only by `dlopen`. Each pair of arguments is a step:
 *
 *     dlopen PATH, dlclose PATH
 *     say PATH        logs by the plug-in of that path, under its module
 *     at-end PATH     uses the library through that plug-in after all its static objects have been destroyed
 *     see-end PATH    a thread uses the plug-in, which is closed before the thread ends
 *     count what      prints a number: "keys" that the process could make, "threads", "modules"
 */

#include "Handles.hpp"
#include "Patience.hpp"

#include <algorithm>
#include <filesystem>
#include <future>
#include <thread>

#include <climits>
#include <pthread.h>
#include <unistd.h>

namespace {

/** Constructed before the libraries that this program opens, so destroyed after their static objects. */
struct Last
{
    ~Last()
    {
        if (use != nullptr) {
            use("program ends");
        }
    }
    void (*use)(const char*) = nullptr;
};

Last last;
processtest::Handles handles;

void seeThreadEnd(const std::string& path)
{
    std::promise<void> used;
    std::promise<void> closed;
    std::thread thread([&] {
        handles.find<void()>(path, "process_see_thread_end")();
        used.set_value();
        closed.get_future().wait();
    });
    used.get_future().wait();
    handles.close(path);
    closed.set_value();
    thread.join();
}

long countKeys()
{
    pthread_key_t keys[PTHREAD_KEYS_MAX];
    long count = 0;
    while (count < PTHREAD_KEYS_MAX && pthread_key_create(&keys[count], nullptr) == 0) {
        ++count;
    }
    std::for_each(keys, keys + count, pthread_key_delete);
    return count;
}

long countThreads()
{
    const std::filesystem::directory_iterator threads("/proc/self/task");
    return std::distance(begin(threads), end(threads));
}

bool step(const std::string& what, const std::string& which)
{
    if (what == "dlopen") {
        handles.open(which);
    } else if (what == "dlclose") {
        handles.close(which);
    } else if (what == "say") {
        handles.find<void(const char*)>(which, "process_say")("spoken");
    } else if (what == "at-end") {
        last.use = handles.find<void(const char*)>(which, "process_use");
    } else if (what == "see-end") {
        seeThreadEnd(which);
    } else if (what == "count") {
        std::printf("%s %ld\n", which.c_str(), which == "keys" ? countKeys() : countThreads());
    } else {
        return false;
    }
    return true;
}

}

int main(int argc, char** argv)
{
    alarm(processtest::PATIENCE_S);
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!step(argv[i], argv[i + 1])) {
            return 2;
        }
    }
    return 0;
}
