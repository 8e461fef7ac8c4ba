#include "vekIOMatrixInterface.h"

#include "PCIeDevice.h"
#include "ioCardsData.h"
#include "vekGlobalDef.h"
#include "vekLog.h"

#include <algorithm>
#include <cctype>

using vekGlobalDef::stringUtils;

namespace {

const char TAG[] = "IO_MATRIX_INTF";

std::string property(vekIODevice* device, const char* name)
{
    return device != nullptr ? device->getProperty(name) : "";
}

} // namespace

vekIODevice* vekIOMatrixInterface::getIOPropertiesFromIOMatrix(vekIODevice*& device, const std::string& key)
{
    device = ioCardsData::getInstance()->queryIOMatrix(key);
    if (device == nullptr) {
        VEK_LOG_DEBUG(TAG, "IO Device with Key = {%s} Not Present!.", key.c_str());
    }
    return device;
}

void vekIOMatrixInterface::getIODeviceModelName(vekIODevice* device, std::string& text)
{
    text = property(device, "modelName");
}

void vekIOMatrixInterface::getIODevicePartNumber(vekIODevice* device, std::string& text)
{
    text = property(device, "partNumber");
}

void vekIOMatrixInterface::getIODeviceSparePartNumber(vekIODevice* device, std::string& text)
{
    text = property(device, "sparePartNumber");
}

void vekIOMatrixInterface::getIODeviceSkuPartNumber(vekIODevice* device, std::string& text)
{
    text = property(device, "skuPartNumber");
}

bool vekIOMatrixInterface::getIOPlatformSupport(vekIODevice* device)
{
    return property(device, "platformSupport") != "0";
}

std::string vekIOMatrixInterface::getIOPciIdFromDeviceInfo(PCIeDevice& info)
{
    std::string key;
    for (const std::string* id : {&info.vendorId, &info.deviceId, &info.subVendorId, &info.subDeviceId}) {
        if (!stringUtils::validateHexadecimalString(*id)) {
            VEK_LOG_DEBUG(TAG, "[%s] is not a valid hexadecimal string", id->c_str());
            return "";
        }
        VEK_LOG_DEBUG(TAG, "[%s] is a valid hexadecimal string", id->c_str());
        std::string digits = stringUtils::stripHexRepresentedString(*id);
        std::transform(digits.begin(), digits.end(), digits.begin(), [](unsigned char c) { return std::tolower(c); });
        key += (key.empty() ? "" : ":") + digits;
    }
    return key;
}

bool vekIOMatrixInterface::supplement(PCIeDevice& info, const char* missing)
{
    vekIODevice* device = nullptr;
    const std::string key = getIOPciIdFromDeviceInfo(info);
    if (key.empty() || getIOPropertiesFromIOMatrix(device, key) == nullptr) {
        VEK_LOG_DEBUG(TAG, "%s", missing);
        return false;
    }
    getIODeviceModelName(device, info.model);
    getIODevicePartNumber(device, info.partNumber);
    if (getIOPlatformSupport(device)) {
        getIODeviceSparePartNumber(device, info.sparePartNumber);
        getIODeviceSkuPartNumber(device, info.sku);
    } else {
        VEK_LOG_INFO(TAG, "Spare P/N and SKU P/N will not be reported for {%s} on this server model.",
                     info.model.c_str());
    }
    return true;
}

void vekFCIOMatrixInterface::supplementAdditionalFCProperties(PCIeDevice& info)
{
    supplement(info, "Could not fetch the IO Properties for FC Card from IO Matrix module");
}

void vekNICIOMatrixInterface::supplementAdditionalNICProperties(PCIeDevice& info)
{
    supplement(info, "Could not fetch the IO Properties for NIC Card from IO Matrix module");
}

void vekGPUIOMatrixInterface::supplementAdditionalGPUProperties(PCIeDevice& info)
{
    supplement(info, "Could not fetch the IO Properties for GPU Card from IO Matrix module");
}

void vekNvmeIOMatrixInterface::supplementAdditionalNvmeProperties(PCIeDevice& info)
{
    supplement(info, "Could not fetch the IO Properties for NVMe Card from IO Matrix module");
}

void vekNvmeIOMatrixInterface::getNvmeProtocolName(vekIODevice* device, std::string& text)
{
    text = property(device, "protocolName");
}

void vekNvmeIOMatrixInterface::getNvmeMediaType(vekIODevice* device, std::string& text)
{
    text = property(device, "mediaType");
}

bool vekNvmeIOMatrixInterface::getNvmeCapacityBytes(vekIODevice* device, long& capacity)
{
    const std::string text = property(device, "capacityBytes");
    try {
        size_t used = 0;
        const long value = std::stol(text, &used, 10);
        if (used != text.size()) {
            return false;
        }
        capacity = value;
        return true;
    } catch (const std::exception&) {
        return false;
    }
}
