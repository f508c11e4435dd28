#include <dalnim/dalbase.hpp>

#include <dalnim/sys/DynLibrary.hpp>

#define NIM_LOG_FILE "sys/src/DynLibrary"
#include <dalnim/log/LibraryModule.hpp>
#include <dalnim/log/Statement.hpp>
#include <dalnim/sys/DynLoaderMgr.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/nsdefs.hpp>
#include <dalnim/sys/src/DynLoaderRelease.hpp>
#include <dalnim/sys/src/LoaderCounters.hpp>
#include <qv/pmx/library.h>
#include <qv/pmx/src/probes.hpp>

namespace com::kor::dal::nim::sys {

namespace {

void unload(qv_lhandle_t handle, const String& path)
{
    const qv_err_t status = qv_si_library_unload(handle);
    // Logging may change the error number.
    const int error = status != 0 ? sys_err_num() : 0;
    QV_PROBE_PLUGIN_UNLOADED(path.c_str(), handle, status);
    if (status != 0) {
        LoaderCounters::increase(LoaderCounters::failedUnloads);
        NIM_LOG(Severity_WARNING) << "Unable to unload dynamic library \"" << path
                                  << "\": " << sys_err_string(error);
    } else {
        LoaderCounters::increase(LoaderCounters::unloaded);
        NIM_LOG(Severity_INFO) << "Unloaded dynamic library \"" << path << '"';
    }
}

}

bool DynLibrary::DEFAULT_LOOKUP_SCOPE_GLOBAL = true;

DynLibrary::DynLibrary(qv_lhandle_t handle, bool global_lookup, const String& filepath, DynLoaderMgr& loadmgr)
    : hnd(handle), global(global_lookup), path(filepath), loader(loadmgr), symbols(nullptr)
{
    const StackTrack track("DynLibrary()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    loader.acquireRef();
}

DynLibrary::~DynLibrary() noexcept
{
    try {
        unload(hnd, path);
    } catch (...) {
        // If logging fails, there is no other way to report the unload.
    }
    loader.releaseRef(std::nothrow);
}

ConstDynLibraryRef DynLibrary::load(const String& libfile, bool global_lookup)
{
    const StackTrack track("load()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    return DynLoaderMgr::manager()->image(libfile, global_lookup && DEFAULT_LOOKUP_SCOPE_GLOBAL);
}

ConstDynLibraryRef DynLibrary::loadProcess(bool global_lookup)
{
    const StackTrack track("loadProcess()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    return DynLoaderMgr::manager()->image(String(), global_lookup && DEFAULT_LOOKUP_SCOPE_GLOBAL);
}

DynSymbolRef DynLibrary::symbol(const String& symname) const
{
    return loader.find(this, symname);
}

void DynLibrary::releaseRef() const
{
    const StackTrack track("releaseRef()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    loader.release(*this, [this] {
        RefCntObject::releaseRef();
        return true;
    });
}

bool DynLibrary::releaseRef(const std::nothrow_t&) const
{
    // If more than the cache's reference is left, there is nothing to remove and no need for the lock.
    if (releaseRefAbove(1)) {
        return false;
    }
    return loader.release(*this, [this] { return RefCntObject::releaseRef(std::nothrow); });
}

}
