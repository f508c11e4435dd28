#include <dalnim/dalbase.hpp>

#include <dalnim/mt/MutexOps.hpp>

namespace com::kor::dal::nim::mt {

MutexOps::MutexOps() noexcept = default;
MutexOps::~MutexOps() = default;

}
