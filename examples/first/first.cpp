#include <dalnim/nim.hpp>
#include <sstream>

using namespace com::kor::dal::nim;

int main()
{
    std::istringstream text("com.kor.dal.nim.log.Control.stream = STDOUT\n"
                            "com.kor.dal.nim.log.Control.output.mask = MODULENAME SEVERITY\n");
    sys::System::setConfiguration(io::Properties(text));

    log::Module& disks = log::Module::getInstance("disks", log::GET_NIM_LOG_LOGGER_VAR());
    NIM_LOG_TO(disks, Severity_WARNING) << "sda1 is " << 97 << "% full";
    NIM_LOG_TO(disks, Severity_DEBUG) << "below the threshold: not even evaluated";
}
