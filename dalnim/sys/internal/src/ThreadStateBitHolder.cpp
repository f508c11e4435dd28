#include <dalnim/dalbase.hpp>

#include <dalnim/sys/internal/ThreadStateBitHolder.hpp>

namespace com::kor::dal::nim::sys::internal {

ThreadStateBitHolder::ThreadStateBitHolder(ThreadMode_t flags, bool multi)
    : ts(ThreadState::current()), bits(0)
{
    if (multi || (flags & ts.mode) == 0) {
        bits = flags & ~ts.mode;
        ts.mode |= bits;
    }
}

ThreadStateBitHolder::~ThreadStateBitHolder()
{
    ts.mode &= ~bits;
}

}
