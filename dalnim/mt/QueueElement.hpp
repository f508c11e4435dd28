#ifndef DALNIM_MT_QUEUEELEMENT_HPP
#define DALNIM_MT_QUEUEELEMENT_HPP

#include <dalnim/type/Object.hpp>

namespace com::kor::dal::nim::mt {

/** What can stand in a Queue: it carries the link, so that queueing allocates nothing. */
class DALNIM_API QueueElement : public virtual type::Object
{
public:
    ~QueueElement() noexcept(false) override;

protected:
    QueueElement() noexcept;
    /** A copy stands in no queue. */
    QueueElement(const QueueElement& ref) noexcept;
    /** Changes nothing: the link belongs to the queue that this element may stand in. */
    QueueElement& operator=(const QueueElement& ref) noexcept;

private:
    friend class Queue;

    QueueElement* next;
};

}

#endif
