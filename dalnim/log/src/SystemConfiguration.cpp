#include <dalnim/dalbase.hpp>

#include <dalnim/sys/System.hpp>

#include <dalnim/log/Control.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/nsdefs.hpp>

// It stands with the log, which it configures: the services below know nothing of a log.
void com::kor::dal::nim::sys::System::setConfiguration(const io::Properties& opts)
{
    const StackTrack track("setConfiguration()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    ::com_kor_dal_nim_log_control.setConfiguration(opts);
}
