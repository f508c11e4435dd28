#ifndef DALNIM_MT_QUEUEELEMENT_HPP
#define DALNIM_MT_QUEUEELEMENT_HPP

#include <dalnim/type/Object.hpp>

namespace com::kor::dal::nim::mt {

/** Base class of the elements of a Queue. It contains the link, so that inserting allocates nothing. */
class DALNIM_API QueueElement : public virtual type::Object
{
public:
    ~QueueElement() noexcept(false) override;

protected:
    QueueElement() noexcept;
    /** Copies no link: the copy is in no queue. */
    QueueElement(const QueueElement& ref) noexcept;
    /** Does nothing: the link belongs to the queue that contains this element, if any. */
    QueueElement& operator=(const QueueElement& ref) noexcept;

private:
    friend class Queue;

    /** The next element of the queue, or null. */
    QueueElement* next;
};

}

#endif
