#include <dalnim/dalbase.hpp>

#include <dalnim/mt/SysMutexCondSem.hpp>

namespace com::kor::dal::nim::mt {

SysMutexCondSem::SysMutexCondSem() : sig(sync) {}
SysMutexCondSem::~SysMutexCondSem() = default;

}
