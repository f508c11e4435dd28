#ifndef TESTS_PROCESS_HANDLES_HPP
#define TESTS_PROCESS_HANDLES_HPP

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include <dlfcn.h>

namespace processtest {

/** The libraries that a program has opened by `dlopen`, by path. */
class Handles
{
public:
    void open(const std::string& path)
    {
        void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (handle == nullptr) {
            std::fprintf(stderr, "%s\n", dlerror());
            std::abort();
        }
        handles[path] = handle;
    }
    void close(const std::string& path)
    {
        if (dlclose(handles.at(path)) != 0) {
            std::fprintf(stderr, "%s\n", dlerror());
            std::abort();
        }
        handles.erase(path);
    }

    template <class Function>
    Function* find(const std::string& path, const char* name) const
    {
        void* const symbol = dlsym(handles.at(path), name);
        if (symbol == nullptr) {
            std::fprintf(stderr, "%s\n", dlerror());
            std::abort();
        }
        return reinterpret_cast<Function*>(symbol);
    }

private:
    std::map<std::string, void*> handles;
};

}

#endif
