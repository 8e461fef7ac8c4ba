#include "vekMockPhysLocInterface.h"

vekMockPhysLocInterface* vekMockPhysLocInterface::getInstance(const std::string&)
{
    static vekMockPhysLocInterface instance;
    return &instance;
}

vekPhysLocInterface* __vekMockPhysLocInterface__getInstance(const std::string& libraryPath)
{
    return vekMockPhysLocInterface::getInstance(libraryPath);
}
