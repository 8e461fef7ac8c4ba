#include "vekBroadcomRules.h"

#include "vekLog.h"
#include "vekStorageBackplane.h"

namespace {

const int kPlatformLM = 2;

std::string hex(uint32_t id)
{
    return vekLog::format("0x%08x", id);
}

} // namespace

const vekBroadcomRules::VEK_STORAGE_CONTROLLER_RULEBOOK& vekBroadcomRules::ruleBook()
{
    static const VEK_STORAGE_CONTROLLER_RULEBOOK book = {
        {{0x10E21000, 0x40001000},
         {{{"C0.0", 3}, {"C0.1", 5}, {"C1.0", 6}, {"C1.1", 7}},
          {{"C0.0", {5}}, {"C0.1", {3}}, {"C1.0", {7}}, {"C1.1", {6}}}}},
        {{0x10E21000, 0x40101000}, {{{"C0.0", 3}, {"C0.1", 5}}, {{"C0.0", {5}}, {"C0.1", {3}}}}},
        {{0x00A51000, 0x46001000},
         {{{"C0.0", 5}, {"C0.1", 4}, {"C1.0", 7}, {"C1.1", 6}},
          {{"C0.0", {4}}, {"C0.1", {5}}, {"C1.0", {6}}, {"C1.1", {7}}}}},
        {{0x00A51000, 0x46101000},
         {{{"C0.0", 5}, {"C0.1", 4}, {"C1.0", 7}, {"C1.1", 6}, {"C2.0", 8}, {"C2.1", 9}},
          {{"C0.0", {4}}, {"C0.1", {5}}, {"C1.0", {6}}, {"C1.1", {7}}, {"C2.0", {9}}, {"C2.1", {8}}}}},
        {{0x00A51000, 0x46201000},
         {{{"C0.0", 4}, {"C0.1", 5}, {"C1.0", 6}, {"C1.1", 7}},
          {{"C0.0", {5}}, {"C0.1", {4}}, {"C1.0", {7}}, {"C1.1", {6}}}}},
    };
    return book;
}

int vekUBMBackplaneLocator::findBackplaneNumberForDriveLocation(const dsiControllerInfo& controller,
                                                                const std::vector<dsiEnclosureSegmentInfo*>& segments,
                                                                const std::string& connector, uint8_t bay) const
{
    using namespace vekBroadcom;
    VEK_LOG_DEBUG(tag_, "Entered findBackplaneNumberForDriveLocation");
    const uint32_t chipset = controller.getChipsetID();
    const uint32_t board = controller.getBoardID();
    const std::string pci = controller.getPCIAddress();
    const auto rules = vekBroadcomRules::ruleBook().find({chipset, board});
    if (rules == vekBroadcomRules::ruleBook().end()) {
        VEK_LOG_ERROR(tag_, "No rulesets found for controller model: Chipset ID:[0x%08x], Board ID:[0x%08x].", chipset,
                      board);
        throw StorageBackplaneNumberForDriveNotFoundException("No ruleset for controller model! (Chipset ID: [" +
                                                              hex(chipset) + "]; Board ID: [" + hex(board) + "])");
    }
    const auto home = rules->second.mappingRules.find(connector);
    if (home == rules->second.mappingRules.end()) {
        VEK_LOG_ERROR(tag_,
                      "No I2C bus found for connector [%s] in the mapping rules of controller with Chipset "
                      "ID:[0x%08x], Board ID:[0x%08x].",
                      connector.c_str(), chipset, board);
        throw StorageBackplaneNumberForDriveNotFoundException("No sideband mapping rule for connector [" + connector +
                                                              "] of controller model (" + hex(chipset) + ", " +
                                                              hex(board) + ")!");
    }
    try {
        const int box = findBackplaneNumberForDriveLocationInternal(controller, segments, home->second, bay);
        VEK_LOG_DEBUG(tag_,
                      "Home FRU: I2C Bus #[%hhu]: Controller connector [%s]: Drive bay #[%hhu] is located on backplane "
                      "#[%d]. (ChipsetID: [0x%08x]; Board ID: [0x%08x]; PCI address: [%s])",
                      home->second, connector.c_str(), bay, box, chipset, board, pci.c_str());
        return box;
    } catch (const SBNFD_NoEnclosureSegmentInfoOnI2CBusException&) {
        VEK_LOG_ERROR(tag_,
                      "No UBM PIC/FRU found behind controller connector [%s]. (ChipsetID: [0x%08x]; Board ID: "
                      "[0x%08x]; PCI address: [%s])",
                      connector.c_str(), chipset, board, pci.c_str());
        throw;
    } catch (const SBNFD_NoUBMPortRouteInfoDescriptorForBayException&) {
        // The home FRU does not describe the bay: a cable layout where the other FRU does.
    }
    const auto alternates = rules->second.alternateRules.find(connector);
    if (alternates == rules->second.alternateRules.end()) {
        VEK_LOG_ERROR(tag_,
                      "No alternate UBM PIC/FRU found for connector [%s] in UBM FRU location rules for ZOL Premium BP "
                      "with straight cables. (Controller Chipset ID:[0x%08x], Board ID:[0x%08x])",
                      connector.c_str(), chipset, board);
        throw StorageBackplaneNumberForDriveNotFoundException("No alternate UBM FRU found for connector [" + connector +
                                                              "] in FRU rules of ZOL Premium BP with straight cables!");
    }
    for (const uint8_t bus : alternates->second) {
        try {
            const int box = findBackplaneNumberForDriveLocationInternal(controller, segments, bus, bay);
            VEK_LOG_DEBUG(tag_,
                          "Alternate FRU: I2CBus #[%hhu]: Controller connector [%s]: Drive bay #[%hhu] is located on "
                          "backplane #[%d]. (ChipsetID: [0x%08x]; Board ID: [0x%08x]; PCI address: [%s])",
                          bus, connector.c_str(), bay, box, chipset, board, pci.c_str());
            return box;
        } catch (const StorageBackplaneNumberForDriveNotFoundException&) {
            VEK_LOG_DEBUG(tag_,
                          "Alternate UBM FRU on I2C Bus #[%hhu] does not describe drive bay #[%hhu] at connector "
                          "[%s]. (PCI address: [%s])",
                          bus, bay, connector.c_str(), pci.c_str());
        }
    }
    VEK_LOG_ERROR(tag_,
                  "No alternate UBM FRU(s) describe drive bay #[%hhu] at connector [%s]! (ChipsetID: [0x%08x]; Board "
                  "ID: [0x%08x]; PCI address: [%s])",
                  bay, connector.c_str(), chipset, board, pci.c_str());
    throw StorageBackplaneNumberForDriveNotFoundException("Failed to find storage backplane number for PD bay #[" +
                                                          std::to_string(bay) + "] on enclosure segment!");
}

int vekUBMBackplaneLocator::findBackplaneNumberForDriveLocationInternal(
    const dsiControllerInfo& controller, const std::vector<dsiEnclosureSegmentInfo*>& segments, uint8_t bus,
    uint8_t bay) const
{
    const dsiEnclosureSegmentInfo* segment = nullptr;
    for (const dsiEnclosureSegmentInfo* candidate : segments) {
        if (candidate != nullptr && candidate->getI2CBusNumber() == bus) {
            segment = candidate;
            break;
        }
    }
    if (segment == nullptr) {
        VEK_LOG_DEBUG(tag_, "No enclosure segment info found on I2C bus #[%hhu]!", bus);
        throw vekBroadcom::SBNFD_NoEnclosureSegmentInfoOnI2CBusException(
            "No enclosure segment info found on I2C bus #[" + std::to_string(bus) + "]!");
    }
    VEK_LOG_DEBUG(tag_, "Found enclosure segment info on I2C bus #[%hhu]!", bus);
    if (firmwareCheckApplies(*segment)) {
        vekStorageBackplane::verifyUBMBackplaneFirmwareVersionSupported(segment->getUBMBackplanePCIVendorID(),
                                                                        segment->getUBMControllerDeviceCode(),
                                                                        segment->getUBMBackplaneImageVersion());
        VEK_LOG_DEBUG(tag_,
                      "MegaRAID controller at PCI address [%s]: Enclosure on I2C Bus #[%hhu]: Backplane firmware "
                      "version (%s) meets minimum requirement.",
                      controller.getPCIAddress().c_str(), bus, segment->getUBMBackplaneImageVersion().c_str());
    }
    verifyBayNumberInFRUDescription(segment, bay);
    return segment->getBoxNumber();
}

void vekUBMBackplaneLocator::verifyBayNumberInFRUDescription(const dsiEnclosureSegmentInfo* segment, uint8_t bay) const
{
    for (const UBM_PORT_ROUTE_INFO_DESCRIPTOR& route : segment->getUBMPortRouteInfoVector()) {
        if (route.driveBay == bay) {
            VEK_LOG_DEBUG(tag_, "Found bay #[%hhu] in enclosure segment 0x%p [%s] with box #[%d].", bay,
                          static_cast<const void*>(segment), segment->getProductName().c_str(),
                          segment->getBoxNumber());
            return;
        }
    }
    VEK_LOG_DEBUG(tag_, "Bay #[%hhu] not found in enclosure segment 0x%p [%s] with box #[%d].", bay,
                  static_cast<const void*>(segment), segment->getProductName().c_str(), segment->getBoxNumber());
    throw vekBroadcom::SBNFD_NoUBMPortRouteInfoDescriptorForBayException(
        "No UBM port route info descriptor for bay #[" + std::to_string(bay) + "]!");
}

bool vekUBMBackplaneLocator::acceptEnclosureSegment(const dsiControllerInfo& controller,
                                                    const dsiEnclosureSegmentInfo& segment) const
{
    if (!firmwareCheckApplies(segment)) {
        return true;
    }
    const uint16_t vendor = segment.getUBMBackplanePCIVendorID();
    const uint32_t device = segment.getUBMControllerDeviceCode();
    const std::string firmware = segment.getUBMBackplaneImageVersion();
    try {
        vekStorageBackplane::verifyUBMBackplaneFirmwareVersionSupported(vendor, device, firmware);
    } catch (const vekStorageBackplane::Exception& e) {
        VEK_LOG_WARNING(tag_,
                        "MegaRAID controller [0x%08x, 0x%08x] at PCI address [%s]: Enclosure on I2C Bus #[%hhu]: "
                        "Backplane [0x%04x, 0x%08x, %s] failed to meet minimum firmware version requirement for UBM "
                        "support; Enclosure will not be reported. (%s)",
                        controller.getChipsetID(), controller.getBoardID(), controller.getPCIAddress().c_str(),
                        segment.getI2CBusNumber(), vendor, device, firmware.c_str(), e.what());
        return false;
    }
    VEK_LOG_DEBUG(tag_,
                  "MegaRAID controller [0x%08x, 0x%08x] at PCI address [%s]: Enclosure on I2C Bus #[%hhu]: Backplane "
                  "firmware version (%s) meets minimum requirement.",
                  controller.getChipsetID(), controller.getBoardID(), controller.getPCIAddress().c_str(),
                  segment.getI2CBusNumber(), firmware.c_str());
    return true;
}

bool vekUBMBackplaneLocator::firmwareCheckApplies(const dsiEnclosureSegmentInfo& segment) const
{
    return platform_ == kPlatformLM && segment.getBackplaneType() == "UBM";
}

void vekUBMBackplaneLocator::mapEnclosureSegmentStatusToVEKStatus(UBM_CONTROLLER_OPERATIONAL_STATE state,
                                                                  VEK_RESOURCE_STATE& resourceState,
                                                                  VEK_RESOURCE_HEALTH& health)
{
    resourceState = VEK_STATE_UNKNOWN;
    health = VEK_HEALTH_UNKNOWN;
    switch (state) {
    case VEK_UBM_CONTROLLER_STATE_INITIALIZING:
    case VEK_UBM_CONTROLLER_STATE_BUSY:
    case VEK_UBM_CONTROLLER_STATE_UPGRADE:
        resourceState = VEK_STATE_DEGRADED;
        health = VEK_HEALTH_WARNING;
        break;
    case VEK_UBM_CONTROLLER_STATE_READY:
        resourceState = VEK_STATE_RUNNING;
        health = VEK_HEALTH_OK;
        break;
    default:
        break;
    }
}
