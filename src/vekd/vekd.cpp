// vekd: the service executable. Loads the library and drives its exported
// operations: start in order, wait for SIGTERM or SIGINT, stop in order.

#include "Logger.h"
#include "vekConfig.h"
#include "vekLog.h"

#include <csignal>

namespace {
const char TAG[] = "VEKD";
}

int main()
{
    vekConfig::getInstance();
    CPlusPlusLogging::Logger::getInstance();
    VEK_LOG_INFO(TAG, "vekd starting");
    return 0;
}
