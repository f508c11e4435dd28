#include <dalnim/dalbase.hpp>

#include <dalnim/mem/ObjectHolder.hpp>

#include <functional>

namespace com::kor::dal::nim::mem {

namespace {

constexpr UInt32_t GIVE_UP = 1;
constexpr UInt32_t ACQUIRE = 2;
constexpr UInt32_t COUNTED = 4;

}

ObjectHolder::ObjectHolder() noexcept : obj(nullptr), flags(0) {}

ObjectHolder::ObjectHolder(type::Object* object, StorageMode mode) : obj(nullptr), flags(0)
{
    take(object, mode);
}

ObjectHolder::ObjectHolder(const ObjectHolder& ref) : obj(nullptr), flags(0)
{
    takeFrom(ref);
}

ObjectHolder::~ObjectHolder()
{
    if ((flags & GIVE_UP) == 0) {
        return;
    }
    if (counted()) {
        rco->releaseRef();
    } else {
        delete obj;
    }
}

ObjectHolder& ObjectHolder::operator=(const ObjectHolder& ref)
{
    if (this != &ref) {
        letGo();
        takeFrom(ref);
    }
    return *this;
}

ObjectHolder& ObjectHolder::assign(type::Object* object, StorageMode mode)
{
    letGo();
    take(object, mode);
    return *this;
}

bool ObjectHolder::operator==(const ObjectHolder& ref) const noexcept
{
    return held() == ref.held();
}

bool ObjectHolder::operator!=(const ObjectHolder& ref) const noexcept
{
    return held() != ref.held();
}

bool ObjectHolder::operator<(const ObjectHolder& ref) const noexcept
{
    return std::less<const type::Object*>()(held(), ref.held());
}

type::Object* ObjectHolder::release() noexcept
{
    type::Object* const object = held();
    obj = nullptr;
    flags &= ~COUNTED;
    return object;
}

bool ObjectHolder::counted() const noexcept
{
    return (flags & COUNTED) != 0;
}

type::Object* ObjectHolder::held() const noexcept
{
    return counted() ? rco : obj;
}

void ObjectHolder::take(type::Object* object, StorageMode mode)
{
    flags = mode;
    if (object == nullptr) {
        return;
    }
    if (auto* const shared = dynamic_cast<RefCntObject*>(object)) {
        hold(shared);
    } else {
        obj = object;
    }
}

void ObjectHolder::takeFrom(const ObjectHolder& ref)
{
    flags = ref.flags & ~COUNTED;
    if (ref.counted()) {
        hold(ref.rco);
    } else {
        obj = ref.obj;
        ref.obj = nullptr;
    }
}

void ObjectHolder::hold(RefCntObject* shared)
{
    if ((flags & ACQUIRE) != 0) {
        shared->acquireRef();
    }
    rco = shared;
    flags |= COUNTED;
}

void ObjectHolder::letGo()
{
    // The holder is empty already while the object goes, for what the object's destructor does to it.
    // Unlike the destructor this deletes a plain object in every mode: it has no other holder.
    if (!counted()) {
        type::Object* const dying = obj;
        obj = nullptr;
        delete dying;
        return;
    }
    const UInt32_t mode = flags;
    RefCntObject* const dying = rco;
    obj = nullptr;
    flags &= ~COUNTED;
    if ((mode & GIVE_UP) != 0) {
        try {
            dying->releaseRef();
        } catch (...) {
            rco = dying;
            flags = mode;
            throw;
        }
    }
}

}
