#ifndef DALNIM_MT_SRC_SAFELOG_HPP
#define DALNIM_MT_SRC_SAFELOG_HPP

#include <dalnim/log/src/RecordPriority.hpp>
#include <qv/rtlapi/src/userCode.hpp>

#include <iostream>

namespace com::kor::dal::nim::mt {

/**
 * Runs a log statement that must not affect its caller: if it fails, one line is written to standard error.
 * Only a forced unwinding leaves this function.
 */
template <class Statement>
void logSafely(const char* component, Statement statement)
{
    const qv::CaughtException failure = qv::catchException(statement);
    if (!failure) {
        return;
    }
    static_cast<void>(qv::catchException([&] {
        std::cerr << log::RecordPriority::errorPrefix() << component << ": a log record was lost";
        if (failure.known() != nullptr) {
            std::cerr << ": " << failure.known()->what();
        }
        std::cerr << std::endl;
    }));
}

}

#endif
