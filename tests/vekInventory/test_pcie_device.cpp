#include "PCIeDevice.h"

#include <gtest/gtest.h>

namespace {

class SampleCard : public PCIeDevice {
public:
    std::string getDeviceClass() const override { return "Sample"; }
};

TEST(PCIeDeviceTest, BaseFieldsGoUnderTheirInventoryNames)
{
    SampleCard card;
    card.serialNumber = "SN1";
    card.firmwareVersion = "1.2.3";
    card.manufacturer = "Intel Corporation";
    card.model = "X710";
    card.partNumber = "PN1";
    card.sparePartNumber = "SP1";
    card.sku = "SKU1";
    card.description = "PCI 0000:c3:00.0 r001u01p0i00";
    card.physicalLocation = "00000000000000A1";
    card.pciAddress = "0000:c3:00.0";

    // A family's own members, "Oem" ones included, stay beside the base's.
    Json::Value object(Json::objectValue);
    object["MACAddress"] = "08:00:69:17:A1:64";
    object["Oem"]["DeviceName"] = "vmnic0";
    card.writeBaseInventoryData(object);

    Json::Value expected(Json::objectValue);
    expected["MACAddress"] = "08:00:69:17:A1:64";
    expected["SerialNumber"] = "SN1";
    expected["FirmwareVersion"] = "1.2.3";
    expected["Manufacturer"] = "Intel Corporation";
    expected["Model"] = "X710";
    expected["PartNumber"] = "PN1";
    expected["SparePartNumber"] = "SP1";
    expected["SKU"] = "SKU1";
    expected["Oem"]["DeviceName"] = "vmnic0";
    expected["Oem"]["Description"] = "PCI 0000:c3:00.0 r001u01p0i00";
    expected["Oem"]["PhysicalLocation"] = "00000000000000A1";
    EXPECT_EQ(object, expected) << object.toStyledString();
}

TEST(PCIeDeviceTest, EmptyRecordWritesEmptyStringsAndUnknownStatus)
{
    SampleCard card;
    Json::Value object(Json::objectValue);
    card.writeBaseInventoryData(object);
    EXPECT_EQ(object.size(), 8u);
    EXPECT_EQ(object["SKU"], "");
    EXPECT_EQ(object["Oem"]["PhysicalLocation"], "");

    Json::Value status = card.getStatusJson();
    EXPECT_EQ(status["State"], "Unknown");
    EXPECT_EQ(status["Health"], "Unknown");
    card.deviceStatus = {VEK_STATE_DOWN, VEK_HEALTH_OK};
    status = card.getStatusJson();
    EXPECT_EQ(status["State"], "Down");
    EXPECT_EQ(status["Health"], "OK");
}

} // namespace
