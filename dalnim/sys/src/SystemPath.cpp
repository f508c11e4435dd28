#include <dalnim/dalbase.hpp>

#include <dalnim/sys/System.hpp>

#include <dalnim/io/FsOps.hpp>
#include <dalnim/sys/InitLock.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/Internal.hpp>
#include <dalnim/type/CompositeString.hpp>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <exception>

#include <dlfcn.h>
#include <unistd.h>

namespace com::kor::dal::nim::sys {

namespace {

/** Determines the path of the running executable, once; see System::getProcessPath(). */
class ProcessPath
{
public:
    static constexpr const char CLASS_NAME[] = "ProcessPath";

    ProcessPath()
    {
        initialize();
    }

    String name;
    String dir;
    String path;

private:
    void initialize();
    void setName();
    void setNameFromLoader();
    void setPath();
    void setDir();
    bool exists(const String& dir2);
    [[noreturn]] void raise();

    static void decomposePath(const String& path, String& dir, String& name);
    static char getDelimiter() noexcept;

    static bool initialized;
};

bool ProcessPath::initialized = false;

/**
 * Sets the flag first: after a failure, subsequent calls return empty strings and do not throw, so that a
 * process whose path cannot be determined can still log.
 */
void ProcessPath::initialize()
{
    if (!initialized) {
        initialized = true;
        setName();
    }
}

void ProcessPath::setName()
{
    constexpr std::size_t LINK_SIZE = 4099;
    char buffer[LINK_SIZE + 1];

    errno = 0;
    const ssize_t length = readlink("/proc/self/exe", buffer, LINK_SIZE);
    if (length >= 0) {
        buffer[length] = '\0';
        path = buffer;
        errno = 0;
    }
    if (path.empty()) {
        setNameFromLoader();
    }
    setPath();
}

/**
 * Gets the name with which the process was started from the dynamic linker, for a system without /proc: the
 * file of the symbol "main" or, if the program does not export it, the start of the error message.
 */
void ProcessPath::setNameFromLoader()
{
    // The dynamic linker keeps its error message per thread.
    // NOLINTBEGIN(concurrency-mt-unsafe)
    dlerror();
    void* const process = dlopen(nullptr, RTLD_NOW);
    if (process == nullptr) {
        return;
    }

    Dl_info info = {};
    const void* const symbol = dlsym(process, "main");
    if (symbol != nullptr && dladdr(symbol, &info) != 0 && info.dli_fname != nullptr) {
        path = info.dli_fname;
    }
    if (path.empty()) {
        const char* const message = dlerror();
        if (message != nullptr) {
            path = message;
            const std::size_t end = path.find(": ");
            path.erase(end != String::npos ? end : 0);
        }
    }
    // NOLINTEND(concurrency-mt-unsafe)
    dlclose(process);
}

void ProcessPath::setPath()
{
    if (path.empty()) {
        raise();
    }
    decomposePath(path, dir, name);
    if (path.front() != getDelimiter()) {
        setDir();
        if (dir.empty()) {
            raise();
        }
    }
    try {
        path = io::fullPath(path);
    } catch (const std::exception&) {
        // The unresolved path is better than none: the file may have been removed or replaced since the
        // process was started.
    }
    decomposePath(path, dir, name);
}

/** Finds the directory of a name without an absolute path: the first candidate that exists() accepts. */
void ProcessPath::setDir()
{
    if (exists(dir)) {
        return;
    }

    constexpr std::size_t CWD_SIZE = 4095;
    char buffer[CWD_SIZE];
    const char* const cwd = getcwd(buffer, sizeof buffer);
    if (cwd != nullptr && exists(cwd)) {
        return;
    }

    // The library never changes the environment. NOLINTNEXTLINE(concurrency-mt-unsafe)
    const char* const pwd = std::getenv("PWD");
    if (pwd != nullptr && exists(pwd)) {
        return;
    }

    // NOLINTNEXTLINE(concurrency-mt-unsafe)
    const char* const search_path = std::getenv("PATH");
    type::CompositeString entries(search_path != nullptr ? search_path : "", ":");
    for (String entry = entries.next(); !entry.empty(); entry = entries.next()) {
        if (exists(entry)) {
            return;
        }
    }
    dir.clear();
}

/**
 * Sets the directory if the executable's path in it can be examined. Compatibility: the path need not exist;
 * only one that cannot be examined at all is rejected.
 */
bool ProcessPath::exists(const String& dir2)
{
    if (dir2.empty()) {
        return false;
    }
    path = dir2 + getDelimiter() + name;
    try {
        if (io::pathStat(path, io::PATH_CAN_EXECUTE, true) != -1) {
            dir = dir2;
            return true;
        }
    } catch (const std::exception&) {
        // The executable cannot be found in this directory.
    }
    path.clear();
    return false;
}

void ProcessPath::raise()
{
    const StackTrack track("raise()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (name.empty()) {
        name = "<unknown>";
    }
    throw system_error(
        ENOENT, "Cannot determine directory of process " + name
                    + ". Do ONE of the following: (1) start process with absolute path. (2) run process from "
                      "current dir (assuming no 'chdir' has occurred). (3) add process relative directory to "
                      "PATH variable if it can be found relative to current directory. (4) add process "
                      "absolute directory to PATH variable. ");
}

void ProcessPath::decomposePath(const String& path, String& dir, String& name)
{
    const std::size_t last = path.rfind(getDelimiter());
    if (last == String::npos) {
        name = path;
        dir.clear();
        return;
    }
    name = path.substr(last + 1);
    dir = path.substr(0, last != 0 ? last : 1);
}

char ProcessPath::getDelimiter() noexcept
{
    return '/';
}

/** The only object, or null. Written once, under InitLock, before `init`. */
const ProcessPath* processPath = nullptr;
/**
 * The store releases the pointer and its object to a thread whose first load, an acquire, sees it. The load
 * under InitLock may be relaxed: the lock orders it after the store.
 */
std::atomic<bool> init{false};

const ProcessPath& getProcess()
{
    if (!init.load(std::memory_order_acquire)) {
        const InitLock lock(true);
        if (!init.load(std::memory_order_relaxed)) {
            // Never destroyed: the process may log until it has ended.
            static const ProcessPath* const instance = new ProcessPath;
            processPath = instance;
            init.store(true, std::memory_order_release);
        }
    }
    return *processPath;
}

}

String System::getProcessPath(PROCESS_PATH_OPT opt)
{
    const ProcessPath& process = getProcess();
    const StackTrack track("getProcessPath()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    switch (opt) {
    case EXECUTABLE_NAME_ONLY:
        return process.name;
    case DIRECTORY_PATH_ONLY:
        return process.dir;
    default:
        return process.path;
    }
}

const String& internal::process_name_text()
{
    return getProcess().name;
}

}
