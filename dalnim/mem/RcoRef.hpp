#ifndef DALNIM_MEM_RCOREF_HPP
#define DALNIM_MEM_RCOREF_HPP

#include <dalnim/mem/ConstRcoRef.hpp>

#include <type_traits>

namespace com::kor::dal::nim::mem {

/** A ConstRcoRef that also gives non-const access to its object. */
template <class T>
class RcoRef : public ConstRcoRef<T>
{
public:
    RcoRef() noexcept = default;
    /** A new reference to an object; null makes it empty. */
    RcoRef(T* rco_inst) : ConstRcoRef<T>(rco_inst) {}
    /** A new reference to what `ref` holds. */
    RcoRef(const RcoRef& ref) = default;
    /** Takes over what `ref` holds; no count moves. */
    RcoRef(RcoRef&& ref) noexcept = default;
    /** A new reference to the object of `ref`, seen as a T. */
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    RcoRef(const RcoRef<U>& ref) : ConstRcoRef<T>(static_cast<const T*>(ref.get()))
    {
    }

    /** @name Assignment */
    /** @{ */
    /** As that of ConstRcoRef. */
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

    /** The object. Throws sys::system_error 22, "Attempt to dereference null reference.", when empty. */
    T* operator->()
    {
        return this->checked();
    }
    /** The object. Throws as operator->() when empty. */
    T& operator*()
    {
        return *this->checked();
    }
    /** The held object, null when empty; it stays counted by this reference alone. */
    T* get() noexcept
    {
        return this->rco;
    }

    /** A reference to the same object without const: the one sanctioned way to drop it. */
    static RcoRef unconst(const ConstRcoRef<T>& ref)
    {
        return RcoRef(const_cast<T*>(ref.get()));
    }
};

}

#endif
