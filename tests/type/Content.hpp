#ifndef TESTS_TYPE_CONTENT_HPP
#define TESTS_TYPE_CONTENT_HPP

#include <dalnim/String.hpp>
#include <dalnim/sys/StackTrace.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/type/Cloneable.hpp>
#include <dalnim/type/ContainerContext.hpp>

#include <functional>
#include <stdexcept>
#include <utility>

namespace typetest {

using com::kor::dal::nim::String;
using com::kor::dal::nim::UInt32_t;
using com::kor::dal::nim::mem::RcoRef;
using com::kor::dal::nim::mem::RefCntObject;
using com::kor::dal::nim::mem::RefCntObjectRef;
using com::kor::dal::nim::sys::StackTrace;
using com::kor::dal::nim::sys::system_error;
using com::kor::dal::nim::type::Cloneable;
using com::kor::dal::nim::type::ContainerContext;
using com::kor::dal::nim::type::ContainerContextRef;
using com::kor::dal::nim::type::Context;
using com::kor::dal::nim::type::ContextRef;

// Keys with the attributes 0, 1, 2, 4, and 6, which allocateKey() never returns.
constexpr unsigned int STAYS = 0x0001;
constexpr unsigned int SHARED = 0x0082;
constexpr unsigned int SHALLOW = 0x0103;
constexpr unsigned int DEEP = 0x0204;
constexpr unsigned int DEEP_AND_SHALLOW = 0x0305;
constexpr unsigned int CONFLICTING = 0x0186;
constexpr unsigned int RESERVED = 0xFFFFFFFF;

/** Content that counts its live objects and calls a function of the test in its destructor. */
class Item : public RefCntObject
{
public:
    explicit Item(int* live = nullptr, std::function<void()> onDestruction = nullptr)
        : live_(live), onDestruction_(std::move(onDestruction))
    {
        if (live_ != nullptr) {
            ++*live_;
        }
    }
    ~Item() noexcept(false) override
    {
        if (live_ != nullptr) {
            --*live_;
        }
        if (onDestruction_) {
            onDestruction_();
        }
    }

private:
    int* live_;
    std::function<void()> onDestruction_;
};

/** Content that is cloneable. */
class Sheep : public RefCntObject, public Cloneable
{
public:
    explicit Sheep(int* live = nullptr) : live_(live)
    {
        count(1);
    }
    Sheep(const Sheep& other)
        : com::kor::dal::nim::type::Object(other), RefCntObject(other), Cloneable(other),
          generation(other.generation + 1), live_(other.live_)
    {
        count(1);
    }
    Sheep& operator=(const Sheep&) = delete;
    ~Sheep() noexcept override
    {
        count(-1);
    }

    Cloneable* clone(bool deep) const override
    {
        auto* const copy = new Sheep(*this);
        copy->deepClone = deep;
        return copy;
    }

    int generation = 0;
    bool deepClone = false;

private:
    void count(int change) noexcept
    {
        if (live_ != nullptr) {
            *live_ += change;
        }
    }

    int* live_;
};

/** Content whose clone() throws. */
class ThrowingClone : public Sheep
{
public:
    using Sheep::Sheep;
    ~ThrowingClone() noexcept override {}

    Cloneable* clone(bool) const override
    {
        throw std::runtime_error("clone failed");
    }
};

/** A clone that is not reference-counted. */
class UncountedObject : public Cloneable
{
public:
    explicit UncountedObject(int* live) : live_(live)
    {
        ++*live_;
    }
    UncountedObject(const UncountedObject&) = delete;
    UncountedObject& operator=(const UncountedObject&) = delete;
    ~UncountedObject() override
    {
        --*live_;
    }
    Cloneable* clone(bool) const override
    {
        return new UncountedObject(live_);
    }

private:
    int* live_;
};

/** Content whose clones are not reference-counted, or null. */
class UncountedClone : public Sheep
{
public:
    explicit UncountedClone(int* live) : clones(live) {}
    ~UncountedClone() noexcept override {}

    Cloneable* clone(bool) const override
    {
        return clones != nullptr ? new UncountedObject(clones) : nullptr;
    }

    int* clones;
};

/** A context with any key. */
class Named : public Context
{
public:
    explicit Named(UInt32_t key) : key_(key) {}

    UInt32_t key() const override
    {
        return key_;
    }

private:
    UInt32_t key_;
};

/** A cloneable context with any key. */
class NamedSheep : public Context, public Cloneable
{
public:
    explicit NamedSheep(UInt32_t key) : key_(key) {}
    ~NamedSheep() noexcept override {}

    UInt32_t key() const override
    {
        return key_;
    }
    Cloneable* clone(bool) const override
    {
        return new NamedSheep(key_);
    }

private:
    UInt32_t key_;
};

/** A container with public constructors. */
class Bag : public ContainerContext
{
public:
    Bag() = default;
    Bag(const ContainerContext& ref)
        : com::kor::dal::nim::type::Object(ref), RefCntObject(ref), ContainerContext(ref)
    {
    }
    Bag(const Bag& ref) : Bag(static_cast<const ContainerContext&>(ref)) {}
    Bag& operator=(const Bag& ref) = default;
    ~Bag() noexcept(false) override {}

    UInt32_t key() const override
    {
        return 0;
    }
};

typedef RcoRef<Bag> BagRef;

/** Returns the message of the system_error 22 that `call` throws, or "nothing". */
template <class Call>
String errorMessage(Call call)
{
    try {
        call();
    } catch (const system_error& error) {
        return error.error() == 22 ? error.what() : "another number";
    }
    return "nothing";
}

/** Returns the frames of the exception that `call` throws, without line numbers, innermost first. */
template <class Call>
String failureTrace(Call call)
{
    String place;
    try {
        call();
    } catch (const StackTrace& trace) {
        for (const String& label : trace.trace()) {
            place += label.substr(0, label.find(':')) + '\n';
        }
    }
    return place;
}

}

#endif
