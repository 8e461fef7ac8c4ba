#pragma once

#include "vekPhysLocInterface.h"

#include <string>

// Chooses the PL interface of the platform once, on first use. Never null:
// a platform without a working encoder gets the Mock interface, whose every
// PL is "FFFFFFFFFFFFFFFF".
class vekPhysLocFactory {
public:
    static vekPhysLocInterface* getPhysLocInterface();

    using GetInstanceFunction = vekPhysLocInterface* (*)(const std::string& libraryPath);
    // The interface that function makes on that library, or the Mock one
    // when the library fails.
    static vekPhysLocInterface* initializePhysLocInterface(GetInstanceFunction getInstance,
                                                           const std::string& libraryPath, const char* name);
};
