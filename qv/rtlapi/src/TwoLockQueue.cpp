#include <qv/rtlapi/src/TwoLockQueue.hpp>

qv::TwoLockQueue::TwoLockQueue(RX_Mutex& producerMutex, unsigned int capacity)
    : _capacity(capacity), _producerMutex(producerMutex), _notFull(producerMutex)
{
}

qv::TwoLockQueue::~TwoLockQueue() noexcept(false) = default;

RX_Closure* qv::TwoLockQueue::pop()
{
    if (_consumer.closures.empty()) {
        _consumer.closures.swap(_incoming);
        _consumerSizeBound = static_cast<si_uint32_t>(_consumer.closures.size());
    }
    RX_Closure* const closure = popFront();
    if (closure != nullptr && _consumer.blockedPuts.load(std::memory_order_relaxed) != 0) {
        _notFull.signal();
    }
    return closure;
}

void qv::TwoLockQueue::drain(DrainedClosures& drained) noexcept
{
    drained.older.swap(_consumer.closures);
    _consumer.size.store(0, std::memory_order_relaxed);
    drained.newer.swap(_incoming);
}
