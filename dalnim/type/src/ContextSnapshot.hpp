#ifndef DALNIM_TYPE_SRC_CONTEXTSNAPSHOT_HPP
#define DALNIM_TYPE_SRC_CONTEXTSNAPSHOT_HPP

namespace com::kor::dal::nim::type {

class ContainerContext;
class SharedContent;

/**
 * The duplicate of a context on its way to the thread that is to inherit it. It follows the same rules
 * as a copy: what is to be cloned is cloned here, by the thread that reads the source; what is shared
 * or left behind takes a single count.
 *
 * It belongs to one thread at a time.
 */
class ContextSnapshot
{
public:
    /** Duplicates nothing. */
    ContextSnapshot() noexcept : content(nullptr) {}
    /** Duplicates `source`. Throws as the assignment of a ContainerContext does. */
    explicit ContextSnapshot(const ContainerContext& source);
    ContextSnapshot(ContextSnapshot&& other) noexcept : content(other.content)
    {
        other.content = nullptr;
    }
    ContextSnapshot& operator=(ContextSnapshot&&) = delete;
    /** What nobody inherited goes as by ContainerContext::clearContent(). */
    ~ContextSnapshot();

    /** Makes it the content of `heir`, whose old content goes as by clearContent(); empty from then on. */
    void giveTo(ContainerContext& heir) noexcept;

private:
    friend class ContainerContext;

    /** Held with one count; null for no entries. */
    SharedContent* content;
};

}

#endif
