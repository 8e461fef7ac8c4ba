// The I/O card matrix through the real dlopen of the project's card matrix
// library and databases written by its tool.

#include "PCIeDevice.h"
#include "ioCardsData.h"
#include "vekIOMatrixInterface.h"
#include "vekLocationTestHost.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

namespace {

class CardRecord : public PCIeDevice {
public:
    CardRecord(const std::string& vendor, const std::string& device, const std::string& subVendor,
               const std::string& subDevice)
    {
        vendorId = vendor;
        deviceId = device;
        subVendorId = subVendor;
        subDeviceId = subDevice;
    }
    std::string getDeviceClass() const override { return "card"; }
};

const char kCards[] = R"({"cards": [
  {"key": "8086:1593:8086:0002", "modelName": "E810-C 25GbE SFP28 2P", "partNumber": "ZV-NIC-25G",
   "sparePartNumber": "ZV-NIC-25G-SP", "skuPartNumber": "SKU-25G", "platformSupport": "1"},
  {"key": "14e4:1750:14e4:2100", "modelName": "BCM57508 100GbE OCP", "partNumber": "ZV-OCP-100G",
   "sparePartNumber": "ZV-OCP-100G-SP", "skuPartNumber": "SKU-100G", "platformSupport": "0"},
  {"key": "144d:a824:144d:a801", "modelName": "PM1733 3.84TB", "partNumber": "ZV-NVME-4T",
   "protocolName": "NVMe", "mediaType": "SSD", "capacityBytes": "3840755982336", "platformSupport": "1"}
]})";

class IOMatrixTest : public vekRootTest {
protected:
    // A database of the platform written by the tool; its hash goes where
    // the library reads it, unless the case wants another.
    void writeDatabase(const std::string& cards, int platform = 4)
    {
        host.use(platform, {});
        root.writeFile("/cards.json", cards);
        root.makeDirectory("/opt/zolvek/data");
        const std::string name = platform == 4 ? "vekIOMatrix_v3.db" : "vekIOMatrix_v2.db";
        const std::string command = std::string(VEK_BINARY_DIR) + "/testtools/cardmatrix/cardmatrixdb '" +
                                    root.hostPath("/cards.json") + "' '" + root.hostPath("/opt/zolvek/data/" + name) +
                                    "'";
        std::unique_ptr<FILE, int (*)(FILE*)> tool(popen(command.c_str(), "r"), pclose);
        char hash[64] = {0};
        ASSERT_NE(fgets(hash, sizeof hash, tool.get()), nullptr);
        root.writeFile("/sim/libvekcardmatrix.json", std::string("{\"hashes\": {\"") + name + "\": " + hash + "}}");
    }

    vekLocationTestHost host{root};
};

TEST_F(IOMatrixTest, KnownCardsGetTheirProperties)
{
    writeDatabase(kCards);
    vekLogTail log(vekTestMainLogPath());
    vekLogTail debug(vekTestDebugLogPath());
    vekNICIOMatrixInterface nic;
    // Model, part, spare part and SKU numbers.
    auto supplied = [&](CardRecord card) {
        nic.supplementAdditionalNICProperties(card);
        return card.model + "|" + card.partNumber + "|" + card.sparePartNumber + "|" + card.sku;
    };
    EXPECT_EQ(supplied({"0x8086", "0x1593", "0x8086", "0x0002"}),
              "E810-C 25GbE SFP28 2P|ZV-NIC-25G|ZV-NIC-25G-SP|SKU-25G");
    EXPECT_EQ(supplied({"0x14E4", "0x1750", "0x14e4", "0x2100"}), "BCM57508 100GbE OCP|ZV-OCP-100G||");
    EXPECT_TRUE(log.contains("Spare P/N and SKU P/N will not be reported for {BCM57508 100GbE OCP} on this server "
                             "model."));
    EXPECT_EQ(supplied({"0x8086", "0x0001", "0x8086", "0x0000"}), "|||");
    EXPECT_TRUE(debug.contains("I/O card with key = [8086:0001:8086:0000] Not found!."));
    CardRecord noIds("", "0x1593", "0x8086", "0x0002");
    EXPECT_EQ(nic.getIOPciIdFromDeviceInfo(noIds), "");

    vekNvmeIOMatrixInterface nvme;
    CardRecord drive("0x144d", "0xa824", "0x144d", "0xa801");
    vekIODevice* device = nullptr;
    ASSERT_NE(nvme.getIOPropertiesFromIOMatrix(device, nvme.getIOPciIdFromDeviceInfo(drive)), nullptr);
    long capacity = 0;
    EXPECT_TRUE(nvme.getNvmeCapacityBytes(device, capacity));
    EXPECT_EQ(capacity, 3840755982336L);
    std::string text;
    nvme.getNvmeMediaType(device, text);
    EXPECT_EQ(text, "SSD");
}

TEST_F(IOMatrixTest, TamperedDatabaseLoadsNothing)
{
    writeDatabase(kCards);
    std::string db = root.readFile("/opt/zolvek/data/vekIOMatrix_v3.db");
    db[10] = db[10] == 'A' ? 'B' : 'A';
    root.writeFile("/opt/zolvek/data/vekIOMatrix_v3.db", db);
    vekLogTail log(vekTestMainLogPath());
    EXPECT_EQ(ioCardsData::getInstance()->queryIOMatrix("8086:1593:8086:0002"), nullptr);
    EXPECT_TRUE(log.contains("Input File Tampered! Error Code = ["));
    EXPECT_TRUE(log.contains("Failed to load I/O matrix data from Database file."));
}

TEST_F(IOMatrixTest, OlderPlatformsReadTheSecondDatabase)
{
    writeDatabase(kCards, 2);
    EXPECT_NE(ioCardsData::getInstance()->queryIOMatrix("8086:1593:8086:0002"), nullptr);
}

TEST_F(IOMatrixTest, UnknownPlatformHasNoDatabase)
{
    vekLogTail log(vekTestMainLogPath());
    writeDatabase(kCards, -1);
    EXPECT_EQ(ioCardsData::getInstance()->queryIOMatrix("8086:1593:8086:0002"), nullptr);
    EXPECT_TRUE(log.contains("Unable to identify System Platform: {-1}"));
}

} // namespace
