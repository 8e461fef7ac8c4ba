#pragma once

#include "vekIOMatrixLibrary.h"

#include <string>

class PCIeDevice;

// What the I/O card matrix knows of a device record's card: model, part
// numbers, SKU, and whether this server model supports it.
class vekIOMatrixInterface {
public:
    virtual ~vekIOMatrixInterface() = default;

    // The card of the key, or null.
    vekIODevice* getIOPropertiesFromIOMatrix(vekIODevice*& device, const std::string& key);
    void getIODeviceModelName(vekIODevice* device, std::string& text);
    void getIODevicePartNumber(vekIODevice* device, std::string& text);
    void getIODeviceSparePartNumber(vekIODevice* device, std::string& text);
    void getIODeviceSkuPartNumber(vekIODevice* device, std::string& text);
    // False when this server model does not support the card.
    bool getIOPlatformSupport(vekIODevice* device);
    // The key of the record's PCI ids; empty when one of them is no
    // hexadecimal text.
    std::string getIOPciIdFromDeviceInfo(PCIeDevice& info);

protected:
    // Fills the record's model, part numbers and SKU; false, with the
    // missing line, when the matrix does not know the card.
    bool supplement(PCIeDevice& info, const char* missing);
};

class vekFCIOMatrixInterface : public vekIOMatrixInterface {
public:
    void supplementAdditionalFCProperties(PCIeDevice& info);
};

class vekNICIOMatrixInterface : public vekIOMatrixInterface {
public:
    void supplementAdditionalNICProperties(PCIeDevice& info);
};

class vekGPUIOMatrixInterface : public vekIOMatrixInterface {
public:
    void supplementAdditionalGPUProperties(PCIeDevice& info);
};

class vekNvmeIOMatrixInterface : public vekIOMatrixInterface {
public:
    void supplementAdditionalNvmeProperties(PCIeDevice& info);
    void getNvmeProtocolName(vekIODevice* device, std::string& text);
    void getNvmeMediaType(vekIODevice* device, std::string& text);
    // False when the card has no capacity or it is no number.
    bool getNvmeCapacityBytes(vekIODevice* device, long& capacity);
};
