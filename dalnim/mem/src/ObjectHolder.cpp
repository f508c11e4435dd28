#include <dalnim/dalbase.hpp>

#include <dalnim/mem/ObjectHolder.hpp>

#include <functional>

namespace com::kor::dal::nim::mem {

namespace {

constexpr UInt32_t RELEASE = 1;
constexpr UInt32_t ACQUIRE = 2;
constexpr UInt32_t COUNTED = 4;

}

ObjectHolder::ObjectHolder() noexcept : obj(nullptr), flags(0) {}

ObjectHolder::ObjectHolder(type::Object* object, StorageMode mode) : obj(nullptr), flags(0)
{
    store(object, mode);
}

ObjectHolder::ObjectHolder(const ObjectHolder& ref) : obj(nullptr), flags(0)
{
    storeFrom(ref);
}

ObjectHolder::~ObjectHolder()
{
    if ((flags & RELEASE) == 0) {
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
        releaseHeld();
        storeFrom(ref);
    }
    return *this;
}

ObjectHolder& ObjectHolder::assign(type::Object* object, StorageMode mode)
{
    releaseHeld();
    store(object, mode);
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

void ObjectHolder::store(type::Object* object, StorageMode mode)
{
    flags = mode;
    if (object == nullptr) {
        return;
    }
    if (auto* const shared = dynamic_cast<RefCntObject*>(object)) {
        storeCounted(shared);
    } else {
        obj = object;
    }
}

void ObjectHolder::storeFrom(const ObjectHolder& ref)
{
    flags = ref.flags & ~COUNTED;
    if (ref.counted()) {
        storeCounted(ref.rco);
    } else {
        obj = ref.obj;
        ref.obj = nullptr;
    }
}

void ObjectHolder::storeCounted(RefCntObject* shared)
{
    if ((flags & ACQUIRE) != 0) {
        shared->acquireRef();
    }
    rco = shared;
    flags |= COUNTED;
}

void ObjectHolder::releaseHeld()
{
    // The holder is emptied first, since the object's destructor may access it. Unlike ~ObjectHolder(), this
    // deletes a plain object in every mode: no other holder has it.
    if (!counted()) {
        type::Object* const old = obj;
        obj = nullptr;
        delete old;
        return;
    }
    const UInt32_t mode = flags;
    RefCntObject* const old = rco;
    obj = nullptr;
    flags &= ~COUNTED;
    if ((mode & RELEASE) != 0) {
        try {
            old->releaseRef();
        } catch (...) {
            rco = old;
            flags = mode;
            throw;
        }
    }
}

}
