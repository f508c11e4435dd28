#include <dalnim/dalbase.hpp>

#include <dalnim/sys/System.hpp>

#include <dalnim/log/Control.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/nsdefs.hpp>

// Defined in the log, which it configures, because the services of sys come below the log.
void com::kor::dal::nim::sys::System::setConfiguration(const io::Properties& opts)
{
    const StackTrack track("setConfiguration()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    ::com_kor_dal_nim_log_control.setConfiguration(opts);
}
