#include <dalnim/nim.hpp>

#include <fstream>
#include <iostream>
#include <stdexcept>

using namespace com::kor::dal::nim;

namespace disks {

// The statements in this namespace are logged under this module.
log::Module& com_kor_dal_nim_log_module =
    log::Module::getInstance("shop.disks", log::GET_NIM_LOG_LOGGER_VAR());

int measured = 0;

int measure()
{
    return ++measured;
}

void check(const String& name, int percent)
{
    NIM_LOG(Severity_DEBUG) << "measurement " << measure();
    if (percent > 90)
        NIM_LOG(Severity_WARNING) << name << " is " << percent << "% full";
    else
        NIM_LOG(Severity_INFO) << name << " is fine";
}

}

int main()
{
    // Nothing is configured: the record is written to standard error, with every prefix field.
    NIM_LOG(Severity_NOTICE) << "the shop opens";

    log::Control& control = com_kor_dal_nim_log_control;
    control.setOutputMask(log::Mask_SEVERITY | log::Mask_MODULENAME);
    disks::check("sda1", 97);
    disks::check("sdb1", 12);

    control.setSeverity(log::Severity_INFO);
    disks::check("sdb1", 12);
    std::cerr << "measured " << disks::measured << " times\n";

    try {
        throw std::runtime_error("the door is locked");
    } catch (const std::exception& failure) {
        NIM_LOG_TRAPPED(Severity_ERROR, failure, "no deliveries");
    }

    // The next record opens the file, which begins with the stream header.
    control.setPath("shop.log");
    NIM_LOG(Severity_NOTICE) << "the shop closes";
    std::cerr << "--- shop.log\n" << std::ifstream("shop.log").rdbuf();
}
