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
    explicit Item(int* living = nullptr, std::function<void()> farewell = nullptr)
        : living_(living), farewell_(std::move(farewell))
    {
        if (living_ != nullptr) {
            ++*living_;
        }
    }
    ~Item() noexcept(false) override
    {
        if (living_ != nullptr) {
            --*living_;
        }
        if (farewell_) {
            farewell_();
        }
    }

private:
    int* living_;
    std::function<void()> farewell_;
};

/** Content that is cloneable. */
class Sheep : public RefCntObject, public Cloneable
{
public:
    explicit Sheep(int* living = nullptr) : living_(living)
    {
        count(1);
    }
    Sheep(const Sheep& other)
        : com::kor::dal::nim::type::Object(other), RefCntObject(other), Cloneable(other),
          generation(other.generation + 1), living_(other.living_)
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
        if (living_ != nullptr) {
            *living_ += change;
        }
    }

    int* living_;
};

/** Content whose clone() throws. */
class Unwilling : public Sheep
{
public:
    using Sheep::Sheep;
    ~Unwilling() noexcept override {}

    Cloneable* clone(bool) const override
    {
        throw std::runtime_error("unwilling");
    }
};

/** A clone that is not reference-counted. */
class Uncounted : public Cloneable
{
public:
    explicit Uncounted(int* living) : living_(living)
    {
        ++*living_;
    }
    Uncounted(const Uncounted&) = delete;
    Uncounted& operator=(const Uncounted&) = delete;
    ~Uncounted() override
    {
        --*living_;
    }
    Cloneable* clone(bool) const override
    {
        return new Uncounted(living_);
    }

private:
    int* living_;
};

/** Content whose clones are not reference-counted, or null. */
class Degenerate : public Sheep
{
public:
    explicit Degenerate(int* living) : clones(living) {}
    ~Degenerate() noexcept override {}

    Cloneable* clone(bool) const override
    {
        return clones != nullptr ? new Uncounted(clones) : nullptr;
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
String refusal(Call call)
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
String failurePlace(Call call)
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
