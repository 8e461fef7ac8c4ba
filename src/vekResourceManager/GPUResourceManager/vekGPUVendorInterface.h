#pragma once

#include "GPUInfo.h"

#include <stdexcept>
#include <string>
#include <vector>

// What a GPU vendor library's reader throws; a failure ends the read of one
// GPU, or of one build, never more.
namespace vekGPUExceptions {

class Exception : public std::runtime_error {
public:
    explicit Exception(const std::string& text) : std::runtime_error(text) {}
};

// The library lacks an entry point the reader needs.
class SymbolNotFound : public Exception {
public:
    explicit SymbolNotFound(const std::string& text) : Exception(text) {}
};

// A library call answered with a failure.
class NvmlAPICallFailed : public Exception {
public:
    explicit NvmlAPICallFailed(const std::string& text) : Exception(text) {}
};

} // namespace vekGPUExceptions

// A GPU vendor's library as the GPU collector sees it: the GPUs by name,
// and each one's properties and status.
class vekGPUVendorInterface {
public:
    virtual ~vekGPUVendorInterface() = default;
    virtual void populateGPUInstances(std::vector<std::string>& names) = 0;
    virtual void discoverGPUProperties(const std::string& name, GPUInfo& info) = 0;
    virtual int discoverGPUStatusInfo(const std::string& name, GPUInfo& info) = 0;
    // Opens the library once; false when it cannot be used at all.
    virtual bool initVendorLibrary() = 0;
};
