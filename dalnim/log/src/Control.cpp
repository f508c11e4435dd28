#include <dalnim/dalbase.hpp>

#include <dalnim/log/Control.hpp>

#include <dalnim/sys/InitLock.hpp>

#include <stdexcept>

namespace com::kor::dal::nim::log {

unsigned int Control::DEFAULT_MASK = Mask_ALL;
Severity Control::DEFAULT_SEVERITY = Severity_NOTICE;

Control::Control() noexcept = default;
Control::~Control() = default;

std::size_t Control::getMaxFileSize() const
{
    return 0;
}

void Control::setMaxFileSize(std::size_t) {}

std::size_t Control::getMaxNumberOfFiles() const
{
    return 0;
}

void Control::setMaxNumberOfFiles(std::size_t) {}

void Control::setSeverity(const String& name)
{
    setSeverity(getSeverityId(name));
}

void Control::setSeverityMask(const String& name, bool enable)
{
    setSeverityMask(getSeverityId(name), enable);
}

unsigned int Control::getOutputMaskDefault()
{
    const sys::InitLock lock(true);
    return DEFAULT_MASK;
}

Severity Control::getSeverityDefault()
{
    const sys::InitLock lock(true);
    return DEFAULT_SEVERITY;
}

void Control::setOutputMaskDefault(unsigned int mask)
{
    if (mask >= Mask_MAX) {
        throw std::out_of_range("Illegal Mask");
    }
    const sys::InitLock lock(true);
    DEFAULT_MASK = mask;
}

void Control::setSeverityDefault(Severity severity)
{
    if (severity < Severity_MIN || severity > Severity_MAX) {
        throw std::out_of_range("Illegal Severity");
    }
    const sys::InitLock lock(true);
    DEFAULT_SEVERITY = severity;
}

}
