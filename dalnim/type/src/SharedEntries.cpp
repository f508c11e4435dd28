#include <dalnim/dalbase.hpp>

#include <dalnim/type/src/SharedEntries.hpp>

#include <qv/pmx/src/CancellationOff.hpp>

#include <utility>

namespace com::kor::dal::nim::type {

EntryList::EntryList(Entries list, bool isShared) noexcept : content(std::move(list)), shareable(isShared) {}

void EntryList::acquire() const
{
    for (const Entry& entry : content) {
        if (entry.object != nullptr) {
            entry.object->acquireRef();
        }
    }
}

void EntryList::release() const noexcept
{
    if (content.empty()) {
        return;
    }
    // A destructor that were cut short by it would end the process.
    const qv::CancellationOff cancellationOff;
    for (const Entry& entry : content) {
        releaseQuietly(entry.object);
    }
}

SharedEntries::SharedEntries(std::shared_ptr<const EntryList> entries) : referenced(std::move(entries))
{
    referenced->acquire();
}

SharedEntries::~SharedEntries()
{
    referenced->release();
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
