#pragma once

#include "vekResourceStatus.h"

#include <json/json.h>

#include <string>

// The base of the PCIe device records (Ethernet, Fibre Channel, GPU, NVMe).
// Records are copied by value, so it holds values only. The collectors fill
// the public fields; each family adds its own fields and JSON.
class PCIeDevice {
public:
    virtual std::string getDeviceClass() const = 0;
    virtual ~PCIeDevice() = default;

    // Writes the base fields under their inventory names into the object:
    // serial number, firmware, manufacturer, model, part numbers and SKU at
    // the top, description and physical location under "Oem". Members
    // already in the object, "Oem" included, are kept.
    void writeBaseInventoryData(Json::Value& object) const;

    // {"State": word, "Health": word} of deviceStatus.
    Json::Value getStatusJson() const;

    std::string serialNumber;
    std::string firmwareVersion;
    std::string manufacturer;
    std::string model;
    std::string partNumber;
    std::string sparePartNumber;
    std::string sku;
    std::string description;
    // The PL code of the device's place.
    std::string physicalLocation;

    // PCI identification: the address ("%04x:%02x:%02x.%x") and the four ids
    // as the OS gives them, hexadecimal text.
    std::string pciAddress;
    std::string vendorId;
    std::string deviceId;
    std::string subVendorId;
    std::string subDeviceId;

    vekDeviceStatus deviceStatus;
};
