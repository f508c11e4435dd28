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
    if (!counted()) {
        delete obj;
    } else if (rco != nullptr) {
        rco->releaseRef();
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
    obj = object;
    flags = mode;
    if (object == nullptr) {
        return;
    }
    if (auto* const shared = dynamic_cast<RefCntObject*>(object)) {
        flags |= COUNTED;
        if ((flags & ACQUIRE) != 0) {
            shared->acquireRef();
        }
        rco = shared;
    }
}

void ObjectHolder::takeFrom(const ObjectHolder& ref)
{
    flags = ref.flags;
    if (ref.counted()) {
        if ((flags & ACQUIRE) != 0 && ref.rco != nullptr) {
            ref.rco->acquireRef();
        }
        rco = ref.rco;
    } else {
        obj = ref.obj;
        ref.obj = nullptr;
    }
}

void ObjectHolder::letGo()
{
    // Unlike the destructor this deletes a plain object in every mode: it has no other holder.
    if (!counted()) {
        type::Object* const dying = obj;
        obj = nullptr;
        delete dying;
    } else if (rco != nullptr) {
        if ((flags & GIVE_UP) != 0) {
            rco->releaseRef();
        }
        obj = nullptr;
        flags &= ~COUNTED;
    }
}

}
