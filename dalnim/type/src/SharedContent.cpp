#include <dalnim/dalbase.hpp>

#include <dalnim/type/src/SharedContent.hpp>

#include <qv/pmx/src/perturb.hpp>

#include <utility>

namespace com::kor::dal::nim::type {

SharedContent::SharedContent(Entries borrowed) noexcept : content(std::move(borrowed)) {}

std::unique_ptr<SharedContent> SharedContent::forOne(Entries cloned)
{
    auto made = std::make_unique<SharedContent>(std::move(cloned));
    made->isCloned = true;
    made->acquireAll();
    made->holders.store(ONE | INDEPENDENT, std::memory_order_relaxed);
    return made;
}

void SharedContent::drop() noexcept
{
    // Nothing is touched behind the count, unless it was the last one of what has no source any more.
    qv::perturb();
    if (holders.fetch_sub(ONE, std::memory_order_acq_rel) == (ONE | INDEPENDENT)) {
        releaseAll();
        delete this;
    }
}

void SharedContent::makeIndependent() noexcept
{
    UInt64_t held = holders.load(std::memory_order_acquire);
    if (held != 0) {
        acquireAll();
        while (held != 0) {
            qv::perturb();
            if (holders.compare_exchange_weak(held, held | INDEPENDENT, std::memory_order_acq_rel,
                                              std::memory_order_acquire)) {
                return;
            }
        }
        // The last holder has gone meanwhile. The source has the entries still.
        releaseAll();
    }
    delete this;
}

void SharedContent::release(const mem::RefCntObject* object) noexcept
{
    if (object != nullptr) {
        try {
            object->releaseRef();
        } catch (...) {
        }
    }
}

void SharedContent::acquireAll() const
{
    for (const Entry& entry : content) {
        if (entry.object != nullptr) {
            entry.object->acquireRef();
        }
    }
}

void SharedContent::releaseAll() const noexcept
{
    for (const Entry& entry : content) {
        release(entry.object);
    }
}

}
