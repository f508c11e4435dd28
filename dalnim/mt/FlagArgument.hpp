#ifndef DALNIM_MT_FLAGARGUMENT_HPP
#define DALNIM_MT_FLAGARGUMENT_HPP

#include <dalnim/mem/ConstRcoRef.hpp>
#include <dalnim/mt/Runnable.hpp>

#include <type_traits>

namespace com::kor::dal::nim::type {
class ContainerContext;
}

namespace com::kor::dal::nim::mt {

/** Whether a counted reference to a `Type` is one to a context. */
template <class Type>
constexpr bool IS_CONTEXT = std::is_convertible_v<const Type*, const type::ContainerContext*>;

/**
 * Finds arguments that the language would convert to a `bool` parameter although their writer means something
 * else: names, contexts, targets. Overloads for such arguments are deleted, or do what is meant.
 */
template <class Argument>
struct FlagArgument
{
    /** The type of a parameter that is passed by value. */
    typedef std::decay_t<Argument> Type;

private:
    template <class T>
    static std::bool_constant<IS_CONTEXT<T>> isContextReference(const mem::ConstRcoRef<T>*);
    static std::false_type isContextReference(const void*);

public:
    /** Whether the argument is something to run. */
    static constexpr bool IS_TARGET =
        std::is_convertible_v<Type, Runnable*> || std::is_base_of_v<Runnable, Type>;
    /** Whether the argument is a pointer to a context. */
    static constexpr bool IS_CONTEXT_POINTER = std::is_convertible_v<Type, const type::ContainerContext*>;
    /** Whether the argument is a counted reference to a context. */
    static constexpr bool IS_CONTEXT_REFERENCE =
        decltype(isContextReference(static_cast<Type*>(nullptr)))::value;
    /**
     * Whether the argument is a pointer, or is converted to `bool` by way of one, as a reference or a lambda.
     * What is a `bool` by itself is converted to `int` as well.
     */
    static constexpr bool IS_MISTAKEN =
        std::is_convertible_v<
            Type,
            bool> && (std::is_pointer_v<Type> || std::is_member_pointer_v<Type> || (std::is_class_v<Type> && !std::is_convertible_v<Type, int>));
};

}

#endif
