#include <dalnim/dalbase.hpp>

#include <dalnim/io/FsOps.hpp>

#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>

#include <qv/pmx/path.h>
#include <qv/rtlapi/RX_Exception.hpp>
#include <qv/rtlapi/RX_Filespec.hpp>

#include <cerrno>
#include <stdexcept>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::io {

namespace {

constexpr int ALL_FLAGS =
    PATH_EXISTS | PATH_IS_DIR | PATH_CAN_EXECUTE | PATH_CAN_SEARCH | PATH_CAN_READ | PATH_CAN_WRITE;

[[noreturn]] void access_error(const char* path, int err)
{
    throw sys::system_error(err,
                            String("Error checking access on '") + path + "': " + sys::sys_err_string(err));
}

bool has_right(const char* path, RX_Filespec::access right)
{
    try {
        const RX_Filespec checked(RX_String(path, RX_String::NPOS), right, 0);
        return true;
    } catch (const RX_Exception&) {
        return false;
    }
}

void require_known_flags(int flags_to_check)
{
    if ((flags_to_check & ~ALL_FLAGS) != 0) {
        throw std::invalid_argument("Invalid flags specified.");
    }
}

int path_stat(const char* path, int flags_to_check, bool no_perm_error)
{
    require_known_flags(flags_to_check);

    const qv_err_t rc = qv_si_isdir(path);
    const int examined = flags_to_check != 0 ? flags_to_check : ALL_FLAGS;
    const bool exists = rc == 0 || rc == ENOTDIR;

    if (!exists) {
        if (rc == ENOENT) {
            return 0;
        }
        if (rc == EACCES && !no_perm_error) {
            return -1;
        }
        access_error(path, rc);
    }

    int result = examined & PATH_EXISTS;

    if ((examined & PATH_CAN_READ) != 0 && has_right(path, RX_Filespec::READ)) {
        result |= PATH_CAN_READ;
    }
    if ((examined & PATH_CAN_WRITE) != 0 && has_right(path, RX_Filespec::WRITE)) {
        result |= PATH_CAN_WRITE;
    }
    if ((examined & PATH_CAN_EXECUTE) != 0 && has_right(path, RX_Filespec::EXECUTE)) {
        result |= PATH_CAN_EXECUTE;
    }
    if ((examined & PATH_IS_DIR) != 0 && rc == 0) {
        result |= PATH_IS_DIR;
        if ((examined & PATH_CAN_SEARCH) != 0 && (result & PATH_CAN_EXECUTE) != 0) {
            result |= PATH_CAN_SEARCH;
        }
    }

    // 0 means that the path does not exist.
    return result != 0 ? result : 1;
}

}

int pathStat(const char* path, int flags_to_check, bool no_perm_error)
{
    const sys::StackTrack track("pathStat()", NAMESPACE_NAME, __LINE__);
    if (path == nullptr || *path == '\0') {
        throw std::invalid_argument("Specified path is nil.");
    }
    return path_stat(path, flags_to_check, no_perm_error);
}

int pathStat(const String& path, int flags_to_check, bool no_perm_error)
{
    const sys::StackTrack track("pathStat()", NAMESPACE_NAME, __LINE__);
    if (path.empty()) {
        throw std::invalid_argument("Specified path is nil.");
    }
    if (path.find('\0') != String::npos) {
        // No file has such a name. The system would examine the part before the zero byte.
        require_known_flags(flags_to_check);
        return 0;
    }
    return path_stat(path.c_str(), flags_to_check, no_perm_error);
}

}
