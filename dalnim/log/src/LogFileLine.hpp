#ifndef DALNIM_LOG_SRC_LOGFILELINE_HPP
#define DALNIM_LOG_SRC_LOGFILELINE_HPP

#include <dalnim/log/LogFile.hpp>
#include <dalnim/log/src/LogOutput.hpp>
#include <dalnim/mt/MutexHolder.hpp>

namespace com::kor::dal::nim::log {

// Not in LogFile.hpp, which users include. See AppendFile.hpp for why it is inline.
[[gnu::always_inline]] inline LineOutcome LogFile::logLine(std::string_view line)
{
    const mt::MutexHolder<mt::CriticalSection> holder(stateSync.acquire());
    return output->logLine(line);
}

}

#endif
