#ifndef DALNIM_MEM_RCOREF_HPP
#define DALNIM_MEM_RCOREF_HPP

#include <dalnim/mem/ConstRcoRef.hpp>

#include <type_traits>

namespace com::kor::dal::nim::mem {

/** A ConstRcoRef with non-const access to its object. */
template <class T>
class RcoRef : public ConstRcoRef<T>
{
public:
    RcoRef() noexcept = default;
    /** Acquires a reference to an object. Null makes an empty reference. */
    RcoRef(T* rco_inst) : ConstRcoRef<T>(rco_inst) {}
    /** Acquires a reference to the object of `ref`. */
    RcoRef(const RcoRef& ref) = default;
    /** Transfers the reference of `ref`, which is then empty. */
    RcoRef(RcoRef&& ref) noexcept = default;
    /** Acquires a reference to the object of `ref`, converted to T. */
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    RcoRef(const RcoRef<U>& ref) : ConstRcoRef<T>(static_cast<const T*>(ref.get()))
    {
    }

    /** @name Assignment */
    /** @{ */
    /** Like ConstRcoRef's. */
    RcoRef& operator=(const RcoRef& ref) = default;
    RcoRef& operator=(RcoRef&& ref) = default;
    RcoRef& operator=(T* rco_inst)
    {
        this->updatePtr(rco_inst);
        return *this;
    }
    /** @} */

    using ConstRcoRef<T>::operator->;
    using ConstRcoRef<T>::operator*;
    using ConstRcoRef<T>::get;

    /** Returns the object. Throws sys::system_error 22 (EINVAL), "Attempt to dereference null reference." */
    T* operator->()
    {
        return this->checked();
    }
    /** Returns the object. Throws like operator->(). */
    T& operator*()
    {
        return *this->checked();
    }
    /** Returns the object, or null if this is empty. Does not acquire a reference. */
    T* get() noexcept
    {
        return this->rco;
    }

    /** Returns a non-const reference to the object of `ref`. */
    static RcoRef unconst(const ConstRcoRef<T>& ref)
    {
        return RcoRef(const_cast<T*>(ref.get()));
    }
};

}

#endif
