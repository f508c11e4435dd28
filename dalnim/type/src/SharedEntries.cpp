#include <dalnim/dalbase.hpp>

#include <dalnim/type/src/SharedEntries.hpp>

#include <qv/pmx/src/CancellationOff.hpp>

#include <algorithm>
#include <utility>

namespace com::kor::dal::nim::type {

mem::RefCntObjectRef EntryList::UncountedRef::counted() const noexcept
{
    class TakenOver : public mem::RefCntObjectRef
    {
    public:
        explicit TakenOver(mem::RefCntObject* object) noexcept
        {
            rco = object;
        }
    };
    return mem::RefCntObjectRef(TakenOver(rco));
}

const mem::RefCntObjectRef* EntryList::find(UInt32_t cid) const noexcept
{
    const auto isBelow = [](const Entry& entry, UInt32_t key) { return entry.cid < key; };
    const auto entry = std::lower_bound(content.begin(), content.end(), cid, isBelow);
    return entry != content.end() && entry->cid == cid ? &entry->ref : nullptr;
}

void EntryList::acquire() const
{
    auto entry = content.begin();
    try {
        for (; entry != content.end(); ++entry) {
            if (const mem::RefCntObject* const object = entry->ref.get()) {
                object->acquireRef();
            }
        }
    } catch (...) {
        while (entry != content.begin()) {
            releaseQuietly((--entry)->ref.get());
        }
        throw;
    }
}

void EntryList::release() const noexcept
{
    if (content.empty()) {
        return;
    }
    // A thread that is cancelled in the destructor of an entry would end the process.
    const qv::CancellationOff cancellationOff;
    for (const Entry& entry : content) {
        releaseQuietly(entry.ref.get());
    }
}

SharedEntries::SharedEntries(std::shared_ptr<const EntryList> entries) : referenced(std::move(entries))
{
    referenced->acquire();
}

SharedEntries::~SharedEntries()
{
    if (referenced != nullptr) {
        referenced->release();
    }
}

void releaseQuietly(const mem::RefCntObject* object) noexcept
{
    if (object != nullptr) {
        try {
            object->releaseRef();
        } catch (...) {
        }
    }
}

}
