#ifndef DALNIM_TYPE_SRC_CONTEXTSNAPSHOT_HPP
#define DALNIM_TYPE_SRC_CONTEXTSNAPSHOT_HPP

#include <memory>

namespace com::kor::dal::nim::type {

class ContainerContext;
class SharedEntries;

/**
 * The duplicate of a context on its way to the thread that adopts it. It follows the rules of a copy: content
 * that its key demands to clone is cloned here, by the thread that reads the source. Content that is shared
 * is referenced once for all snapshots of the same, unchanged source.
 *
 * A snapshot belongs to one thread at a time.
 */
class ContextSnapshot
{
public:
    /** Duplicates `source`. Throws as the assignment of a ContainerContext does. */
    explicit ContextSnapshot(const ContainerContext& source);
    ContextSnapshot(ContextSnapshot&&) noexcept = default;
    ContextSnapshot& operator=(ContextSnapshot&&) = delete;
    /** Releases what no context adopted; exceptions of destructors are discarded. */
    ~ContextSnapshot();

    /**
     * Makes the duplicate the content of `target`, with references of its own; the old content of `target` is
     * released as by clearContent(). The snapshot is empty afterwards.
     */
    void transferTo(ContainerContext& target) noexcept;

private:
    /** Null for no entries. */
    std::shared_ptr<SharedEntries> shared;
};

}

#endif
