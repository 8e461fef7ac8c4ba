#include "vekMegaRAIDUBMSupport.h"

#include "vekLog.h"
#include "vekPhysLocFactory.h"
#include "vekPlatformServices.h"
#include "vekScrutinyInterface.h"

namespace {

const char TAG[] = "LSIMR_UBM_SUPP";

vekUBMBackplaneLocator locator()
{
    return vekUBMBackplaneLocator(TAG, vekPlatformServices::getCachedPlatform());
}

// The controller of that address in the current list; null when the library
// doesn't know it.
const dsiControllerInfo* findController(const std::vector<dsiControllerInfo*>& controllers, const std::string& pci)
{
    for (const dsiControllerInfo* controller : controllers) {
        if (controller != nullptr && controller->getPCIAddress() == pci) {
            return controller;
        }
    }
    VEK_LOG_ERROR(TAG, "Unable to find controller with PCI address [%s] via scrutiny library.", pci.c_str());
    return nullptr;
}

} // namespace

void vekMegaRAIDUBMSupport::initialize(ISubject* subject) { vekScrutinyInterface::getInstance().initialize(subject); }

void vekMegaRAIDUBMSupport::cacheBuild() { vekScrutinyInterface::getInstance().cacheBuild(); }

void vekMegaRAIDUBMSupport::shutdown() { vekScrutinyInterface::getInstance().shutdown(); }

bool vekMegaRAIDUBMSupport::isInitialized() { return vekScrutinyInterface::getInstance().isInitialized(); }

void vekMegaRAIDUBMSupport::findBackplaneNumberForDriveLocation(const std::string& pci, const std::string& connector,
                                                               uint8_t bay, int& backplane)
{
    backplane = -1;
    vekScrutinyInterface& scrutiny = vekScrutinyInterface::getInstance();
    // The lists hold the records of this inventory pass; they are read
    // together so that both come from the same generation as far as possible.
    const std::vector<dsiControllerInfo*> controllers = scrutiny.getControllerList();
    const dsiControllerInfo* controller = findController(controllers, pci);
    if (controller == nullptr) {
        throw vekBroadcom::StorageBackplaneNumberForDriveNotFoundException("No controller with address [" + pci +
                                                                           "] found!");
    }
    backplane = locator().findBackplaneNumberForDriveLocation(*controller, scrutiny.getEnclosureSegmentList(pci),
                                                              connector, bay);
}

int vekMegaRAIDUBMSupport::populateEnclosureSegment(std::vector<vekStorageEnclosureInfo>& list, const std::string& pci)
{
    vekPhysLocInterface* physLoc = vekPhysLocFactory::getPhysLocInterface();
    vekScrutinyInterface& scrutiny = vekScrutinyInterface::getInstance();
    const std::vector<dsiEnclosureSegmentInfo*> segments = scrutiny.getEnclosureSegmentList(pci);
    if (segments.empty()) {
        VEK_LOG_DEBUG(TAG, "No Enclosure Segment List found for %s MegaRAID controller.", pci.c_str());
        return -1;
    }
    const dsiControllerInfo* controller = findController(scrutiny.getControllerList(), pci);
    if (controller == nullptr) {
        return -1;
    }
    const vekUBMBackplaneLocator rules = locator();
    for (const dsiEnclosureSegmentInfo* segment : segments) {
        if (segment == nullptr || !rules.acceptEnclosureSegment(*controller, *segment)) {
            continue;
        }
        vekStorageEnclosureInfo enclosure;
        enclosure.setModel(segment->getProductName());
        enclosure.setType("UBM Backplane");
        enclosure.setEnclosureType(VEK_STORAGE_ENCLOSURE_TYPE_UBM_BACKPLANE);
        enclosure.setPartNumber(segment->getPartNumber());
        enclosure.setSerialNumber(segment->getSerialNumber());
        enclosure.setFirmwareVersion(segment->getUBMBackplaneImageVersion());
        enclosure.setBayCount(segment->getBayCount());
        enclosure.setBox(segment->getBoxNumber());
        enclosure.setSegmentCount(1);
        enclosure.setControllerPCILocation(pci);
        enclosure.setPhysicalLocation(physLoc->getPhysLocForChassisStorageBackplane(pci, segment->getBoxNumber()));
        VEK_RESOURCE_STATE state;
        VEK_RESOURCE_HEALTH health;
        mapEnclosureSegmentStatusToVEKStatus(segment->getUBMControllerOperationalState(), state, health);
        enclosure.setState(state);
        enclosure.setHealth(health);
        enclosure.setEventState(state);
        enclosure.setEventHealth(health);
        list.push_back(enclosure);
    }
    return static_cast<int>(list.size());
}

void vekMegaRAIDUBMSupport::mapEnclosureSegmentStatusToVEKStatus(UBM_CONTROLLER_OPERATIONAL_STATE state,
                                                                 VEK_RESOURCE_STATE& resourceState,
                                                                 VEK_RESOURCE_HEALTH& health)
{
    vekUBMBackplaneLocator::mapEnclosureSegmentStatusToVEKStatus(state, resourceState, health);
}

void vekMegaRAIDUBMSupport::verifyBayNumberInFRUDescription(dsiEnclosureSegmentInfo* segment, uint8_t bay)
{
    locator().verifyBayNumberInFRUDescription(segment, bay);
}
