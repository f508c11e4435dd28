#ifndef DALNIM_MT_FLAGARGUMENT_HPP
#define DALNIM_MT_FLAGARGUMENT_HPP

#include <dalnim/mem/ConstRcoRef.hpp>
#include <dalnim/mt/Runnable.hpp>

#include <type_traits>

namespace com::kor::dal::nim::type {
class ContainerContext;
}

namespace com::kor::dal::nim::mt {

/** Whether a `RcoRef<Type>` refers to a context. */
template <class Type>
constexpr bool IS_CONTEXT = std::is_convertible_v<const Type*, const type::ContainerContext*>;

/**
 * Detects arguments that would silently convert to a `bool` parameter although the caller means something
 * else: names, contexts, targets. Overloads for such arguments are deleted or do what the caller means.
 */
template <class Argument>
struct FlagArgument
{
    /** The argument type without reference and qualifiers. */
    typedef std::decay_t<Argument> Type;

private:
    template <class T>
    static std::bool_constant<IS_CONTEXT<T>> isContextReference(const mem::ConstRcoRef<T>*);
    static std::false_type isContextReference(const void*);

public:
    /** Whether the argument is a runnable. */
    static constexpr bool IS_TARGET =
        std::is_convertible_v<Type, Runnable*> || std::is_base_of_v<Runnable, Type>;
    /** Whether the argument is a pointer to a context. */
    static constexpr bool IS_CONTEXT_POINTER = std::is_convertible_v<Type, const type::ContainerContext*>;
    /** Whether the argument is an `RcoRef` to a context. */
    static constexpr bool IS_CONTEXT_REFERENCE =
        decltype(isContextReference(static_cast<Type*>(nullptr)))::value;
    /**
     * Whether the argument is a pointer or converts to `bool` through one, as an `RcoRef` or a lambda does.
     * Types that convert to `bool` directly also convert to `int`.
     */
    static constexpr bool IS_MISTAKEN =
        std::is_convertible_v<
            Type,
            bool> && (std::is_pointer_v<Type> || std::is_member_pointer_v<Type> || (std::is_class_v<Type> && !std::is_convertible_v<Type, int>));
};

}

#endif
