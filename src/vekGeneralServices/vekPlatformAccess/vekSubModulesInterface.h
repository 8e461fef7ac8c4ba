#pragma once

// The common base of the per-resource OS interfaces that the host's OS
// interface owns and hands out (Ethernet, Fibre Channel, NVMe, ...).
class vekSubModulesInterface {
public:
    virtual ~vekSubModulesInterface() = default;
};
