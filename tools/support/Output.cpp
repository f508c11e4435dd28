#include "Output.hpp"

#include "Errors.hpp"

#include <dalnim/sys/SysError.hpp>

#include <cerrno>
#include <unistd.h>

namespace nimtools {

Output::Output()
{
    buffer.reserve(2 * CHUNK);
}

void Output::flush()
{
    std::string_view rest = buffer;
    while (!rest.empty()) {
        const ssize_t written = write(STDOUT_FILENO, rest.data(), rest.size());
        if (written >= 0) {
            rest.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            throw Failure("cannot write to standard output: " + com::kor::dal::nim::sys::sys_err_string());
        }
    }
    buffer.clear();
}

}
