#include <dalnim/nim.hpp>

#include <iostream>
#include <sstream>

namespace nim = com::kor::dal::nim;

int main()
{
    std::ostringstream records;
    nim::log::Write logger;
    logger.setStream(records);
    logger.setOutputMask(nim::log::Mask_SEVERITY);
    nim::log::Module module("consumer", logger);
    NIM_LOG_TO(module, Severity_WARNING) << "built against an installed copy";
    NIM_LOG_TO(module, Severity_DEBUG) << "not seen";
    std::cout << records.str();
    return records.str() == "WARNING : built against an installed copy\n" ? 0 : 1;
}
