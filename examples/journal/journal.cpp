#include <dalnim/journal/JournalLog.hpp>
#include <dalnim/nim.hpp>

using namespace com::kor::dal::nim;

int main()
{
    journal::JournalLog logger("disks");
    log::Module disks("disks.usage", logger);
    NIM_LOG_TO(disks, Severity_WARNING) << "sda1 is " << 97 << "% full";
    NIM_LOG_TO(disks, Severity_DEBUG) << "below the threshold: not even evaluated";
}
