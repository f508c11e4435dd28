#include <qv/pmx/library.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include <dlfcn.h>
#include <link.h>

#include <qv/pmx/src/library_copy.hpp>

namespace {

struct Unload
{
    void operator()(void* module) const noexcept
    {
        dlclose(module);
    }
};

typedef std::unique_ptr<void, Unload> Module;

/** Appends the name of a module to the vector `names`. A status other than 0 ends the iteration. */
extern "C" qv_err_t appendName(dl_phdr_info* info, size_t, void* names)
{
    try {
        static_cast<std::vector<std::string>*>(names)->emplace_back(info->dlpi_name);
        return 0;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

/**
 * Returns the errno value that a message of the dynamic linker ends with, as ": " and the system's message.
 * Without one, the file was read but its content was rejected: returns ENOEXEC.
 */
qv_err_t errnoFromMessage(std::string_view text)
{
    constexpr qv_err_t MAX_ERRNO = 133;
    for (qv_err_t code = 1; code <= MAX_ERRNO; ++code) {
        char buffer[128];
        const std::string_view reason = strerror_r(code, buffer, sizeof buffer);
        if (text.size() > reason.size() + 2 && text.substr(text.size() - reason.size()) == reason
            && text.substr(text.size() - reason.size() - 2, 2) == ": ") {
            return code;
        }
    }
    return ENOEXEC;
}

/** Reports that the module at `path` contains a second copy of this library. Returns the status. */
qv_err_t rejectCopy(const char* path, char** error_text)
{
    constexpr char REASON[] = ": contains a second copy of dalnim; link plug-ins with dalnim::plugin";
    if (error_text != nullptr) {
        *error_text = nullptr;
        const std::size_t length = std::strlen(path);
        if (char* const text = static_cast<char*>(std::malloc(length + sizeof REASON))) {
            std::copy_n(path, length, text);
            std::memcpy(text + length, REASON, sizeof REASON);
            *error_text = text;
        }
    }
    return ENOEXEC;
}

/**
 * Rejects a library that contains a second copy of this one, before its initialisers run. Only files that are
 * named by a path can be checked.
 */
bool isRejected(const char* path)
{
    if (std::strchr(path, '/') == nullptr || !qv::fileHasLibraryCopy(path)) {
        return false;
    }
    // The file may be this library, which is loaded already.
    const Module loaded(dlopen(path, RTLD_LAZY | RTLD_LOCAL | RTLD_NOLOAD));
    return loaded == nullptr;
}

void* toNative(qv_lhandle_t handle)
{
    return handle;
}

/**
 * Passes a loaded module to the caller, unless it has brought a second copy of this library: with a
 * dependency, or under a name that the dynamic linker searches for. Such a module is never unloaded. The
 * static objects of the copy exist already, and destructors of its thread-specific keys would be unloaded
 * with it.
 */
qv_err_t accept(void* module, bool isProcess, char** error_text, qv_lhandle_t* handle)
{
    try {
        const std::string copy = isProcess ? std::string() : qv::findLibraryCopy(module);
        if (!copy.empty()) {
            return rejectCopy(copy.c_str(), error_text);
        }
    } catch (const std::bad_alloc&) {
        dlclose(module);
        return ENOMEM;
    }
    *handle = static_cast<qv_lhandle_t>(module);
    return 0;
}

}

struct qv_module_list
{
    std::vector<Module> modules;
};

qv_err_t qv_si_library_nload(const char* path, char** error_text, qv_lhandle_t* handle)
{
    if (error_text != nullptr) {
        *error_text = nullptr;
    }
    if (path == nullptr || handle == nullptr) {
        return EINVAL;
    }

    *handle = nullptr;
    if (isRejected(path)) {
        return rejectCopy(path, error_text);
    }
    void* const loaded = dlopen(*path != '\0' ? path : nullptr, RTLD_LAZY | RTLD_LOCAL);
    if (loaded != nullptr) {
        return accept(loaded, *path == '\0', error_text, handle);
    }
    const char* const text = dlerror(); // NOLINT(concurrency-mt-unsafe): each thread has its own
    if (text == nullptr) {
        return ENOEXEC;
    }
    if (error_text != nullptr) {
        *error_text = strdup(text);
    }
    return errnoFromMessage(text);
}

qv_err_t qv_si_library_unload(qv_lhandle_t handle)
{
    return handle != nullptr && dlclose(toNative(handle)) == 0 ? 0 : EINVAL;
}

qv_err_t qv_si_module_create_list(qv_module_list_t* list)
{
    if (list == nullptr) {
        return EINVAL;
    }
    *list = nullptr;
    try {
        // The iteration holds the dynamic linker's lock, so the modules are opened after it. RTLD_NOLOAD:
        // a module that has been unloaded in between is not loaded again.
        std::vector<std::string> names;
        if (const qv_err_t status = dl_iterate_phdr(appendName, &names)) {
            return status;
        }
        auto created = std::make_unique<qv_module_list>();
        created->modules.reserve(names.size());
        for (const std::string& name : names) {
            const char* const path = name.empty() ? nullptr : name.c_str();
            if (void* const module = dlopen(path, RTLD_LAZY | RTLD_LOCAL | RTLD_NOLOAD)) {
                created->modules.emplace_back(module);
            }
        }
        *list = created.release();
        return 0;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

void qv_si_module_destroy_list(qv_module_list_t list)
{
    delete list;
}

void* qv_si_lib_find_symbol(qv_lhandle_t handle, qv_module_list_t list, const char* name)
{
    if (name == nullptr) {
        return nullptr;
    }
    if (handle != nullptr) {
        if (void* const address = dlsym(toNative(handle), name)) {
            return address;
        }
    }
    if (list != nullptr) {
        for (const Module& module : list->modules) {
            if (void* const address = dlsym(module.get(), name)) {
                return address;
            }
        }
    }
    return nullptr;
}
