#ifndef DALNIM_TYPE_SRC_CONTEXTSNAPSHOT_HPP
#define DALNIM_TYPE_SRC_CONTEXTSNAPSHOT_HPP

#include <memory>

namespace com::kor::dal::nim::type {

class ContainerContext;
class SharedEntries;

/**
 * A duplicate of a context, to be transferred to another thread. The rules are those of a copy: content whose
 * key requires cloning is cloned by the constructor, on the thread that reads the source. If nothing is
 * cloned, snapshots of the same, unchanged source share one reference to each entry.
 *
 * Thread safety: a snapshot belongs to one thread at a time.
 */
class ContextSnapshot
{
public:
    /** Duplicates `source`. Throws like the assignment of a ContainerContext. */
    explicit ContextSnapshot(const ContainerContext& source);
    ContextSnapshot(ContextSnapshot&&) noexcept = default;
    ContextSnapshot& operator=(ContextSnapshot&&) = delete;
    /** Releases the entries, unless they were transferred. Discards exceptions of their destructors. */
    ~ContextSnapshot();

    /**
     * Replaces the content of `target` with the entries, of which it owns references. Releases its old
     * content like clearContent(). The snapshot is empty afterwards.
     */
    void transferTo(ContainerContext& target) noexcept;

private:
    /** Null if there are no entries. */
    std::shared_ptr<SharedEntries> shared;
};

}

#endif
