#include <qv/rtlapi/src/detached.hpp>

#include <algorithm>
#include <exception>
#include <string>
#include <utility>

#include <cxxabi.h>
#include <pthread.h>
#include <unistd.h>

#include <qv/pmx/src/standard_error.hpp>
#include <qv/rtlapi/RX_Closure.hpp>
#include <qv/rtlapi/RX_Exception.hpp>
#include <qv/rtlapi/src/typeName.hpp>
#include <qv/rtlapi/src/userCode.hpp>

namespace {

/** Writes one line to standard error; newlines within it become spaces. */
void writeLine(std::string line)
{
    std::replace(line.begin(), line.end(), '\n', ' ');
    line += '\n';
    const ssize_t written = write(qv::standardError(), line.data(), line.size());
    static_cast<void>(written);
}

/** Returns the message of the current exception after a colon and a space, or "" if it has none. */
std::string currentMessage()
{
    try {
        throw;
    } catch (const RX_Exception& exception) {
        return std::string(": ") + exception.asString(0).data();
    } catch (const std::exception& exception) {
        return std::string(": ") + exception.what();
    } catch (...) {
        return std::string();
    }
}

/** Writes a line that names the current exception. Must be called from a handler. */
void nameCurrentException(const RX_Closure& closure)
{
    const std::type_info* const type = abi::__cxa_current_exception_type();
    std::string line = "qv: exception left ";
    line += closure.asString(RX_String::none).data();
    line += " on a detached thread: ";
    line += type != nullptr ? qv::typeName(*type).data() : "of a foreign type";
    line += currentMessage();
    writeLine(std::move(line));
}

}

int qv::startDetached(void* (*function)(void*), void* argument) noexcept
{
    pthread_attr_t attributes;
    int status = pthread_attr_init(&attributes);
    if (status != 0) {
        return status;
    }
    status = pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    if (status == 0) {
        pthread_t thread;
        status = pthread_create(&thread, &attributes, function, argument);
    }
    pthread_attr_destroy(&attributes);
    return status;
}

void qv::applyDetached(RX_Closure& closure)
{
    try {
        closure.apply();
    } catch (...) {
        if (isThreadEnding()) {
            throw;
        }
        try {
            nameCurrentException(closure);
        } catch (...) {
            writeLine("qv: exception on a detached thread");
        }
        std::terminate();
    }
}
