#include <dalnim/dalbase.hpp>

#include <dalnim/type/src/SharedEntries.hpp>

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
