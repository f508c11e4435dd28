#ifndef NIMHOST_REQUEST_HPP
#define NIMHOST_REQUEST_HPP

#include <dalnim/mt/QueueElement.hpp>

#include <chrono>
#include <cstdint>

namespace nimhost {

/** A request, from the source that reads it to the worker that answers it. */
class Request : public com::kor::dal::nim::mt::QueueElement
{
public:
    explicit Request(std::uint64_t requestNumber)
        : number(requestNumber), submitted(std::chrono::steady_clock::now())
    {
    }

    const std::uint64_t number;
    const std::chrono::steady_clock::time_point submitted;
};

}

#endif
