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

/** A reference-counted object with public access to its protected members. Counts its destructor calls. */
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

/** Shares only the root class with Counted. */
class Unrelated : public RefCntObject
{};

/** An object whose releaseRef() throws while a flag is set. */
class Stubborn : public Counted
{
public:
    using Counted::Counted;

    void releaseRef() const override
    {
        if (throwsOnRelease) {
            if (beforeRefusing) {
                beforeRefusing();
            }
            throw std::runtime_error("release failed");
        }
        Counted::releaseRef();
    }
    bool releaseRef(const std::nothrow_t& nothrow) const override
    {
        return Counted::releaseRef(nothrow);
    }

    bool throwsOnRelease = false;
    std::function<void()> beforeRefusing;
};

/** An object whose destructor throws. */
class Failing : public Counted
{
public:
    using Counted::Counted;

    ~Failing() noexcept(false) override
    {
        throw std::runtime_error("destructor failed");
    }
};

/** An element of a list; each references the next. */
class Node : public Counted
{
public:
    using Counted::Counted;
    RcoRef<Node> next;
};

/** Makes assignPtr() public. */
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
