#ifndef TESTS_MEM_COUNTED_HPP
#define TESTS_MEM_COUNTED_HPP

#include <dalnim/mem/RcoRef.hpp>
#include <dalnim/mem/RefCntObject.hpp>

#include <functional>
#include <new>
#include <stdexcept>

namespace memtest {

using com::kor::dal::nim::mem::ConstRcoRef;
using com::kor::dal::nim::mem::RcoRef;
using com::kor::dal::nim::mem::RefCntObject;

/** A counted object that opens its protected parts and tells when it goes. */
class Counted : public RefCntObject
{
public:
    Counted() = default;
    explicit Counted(int* destroyed) : destroyed_(destroyed) {}
    Counted(bool count_refs, bool mt_safe, int* destroyed = nullptr)
        : RefCntObject(count_refs, mt_safe), destroyed_(destroyed)
    {
    }
    Counted(const Counted&) = default;
    Counted& operator=(const Counted&) = default;
    ~Counted() override
    {
        if (destroyed_ != nullptr) {
            ++*destroyed_;
        }
    }

    using RefCntObject::adjBias;
    using RefCntObject::decBias;
    using RefCntObject::incBias;
    using RefCntObject::refBias;
    using RefCntObject::releaseRefAbove;

    int value = 0;

private:
    int* destroyed_ = nullptr;
};

class Derived : public Counted
{
public:
    using Counted::Counted;
    int more = 0;
};

/** Related to Counted by nothing but its root. */
class Unrelated : public RefCntObject
{};

/** Refuses to give a count up by an exception as long as it is told to. */
class Stubborn : public Counted
{
public:
    using Counted::Counted;

    void releaseRef() const override
    {
        if (refusing) {
            if (beforeRefusing) {
                beforeRefusing();
            }
            throw std::runtime_error("refused");
        }
        Counted::releaseRef();
    }
    bool releaseRef(const std::nothrow_t& nothrow) const override
    {
        return Counted::releaseRef(nothrow);
    }

    bool refusing = false;
    std::function<void()> beforeRefusing;
};

/** Fails while it goes. */
class Failing : public Counted
{
public:
    using Counted::Counted;

    ~Failing() noexcept(false) override
    {
        throw std::runtime_error("failed to go");
    }
};

/** One of a chain; each holds the next. */
class Node : public Counted
{
public:
    using Counted::Counted;
    RcoRef<Node> next;
};

/** An assignPtr() that can be called. */
template <class T>
class OpenRef : public RcoRef<T>
{
public:
    using RcoRef<T>::RcoRef;
    using RcoRef<T>::assignPtr;
    using RcoRef<T>::updatePtr;
};

}

#endif
