// The cache of controllers and enclosure segments: built once per inventory
// pass, in two generations so that readers take the previous one while the
// current one is being rebuilt.

#include "vekGlobalDef.h"
#include "vekLog.h"
#include "vekTimedLock.h"
#include "vekScrutinyInterface.h"

#include <algorithm>
#include <chrono>
#include <new>

namespace {

const char TAG[] = "DSI_CM";

// A build holds the previous generation's lock only while it swaps the
// generations; waiting longer than this means something is wrong.
const std::chrono::seconds kPreviousCacheWait(5);

template <typename T> std::vector<T*> view(const std::vector<std::unique_ptr<T>>& owned)
{
    std::vector<T*> pointers;
    for (const std::unique_ptr<T>& record : owned) {
        pointers.push_back(record.get());
    }
    return pointers;
}

} // namespace

void vekScrutinyInterface::cacheBuild()
{
    VEK_LOG_DEBUG(TAG, "Cache build: Called.");
    std::lock_guard<std::mutex> instance(instanceLock);
    std::lock_guard<std::mutex> current(currCacheLock_);
    {
        std::lock_guard<std::mutex> previous(prevCacheLock_);
        if (!library_) {
            VEK_LOG_DEBUG(TAG, "Cache build: Exiting since interface is not initialized.");
            return;
        }
        // The previous generation's records go; the current one's move over
        // whole, so that readers of the previous generation see the last build.
        previous_ = std::move(current_);
        current_ = Generation();
    }
    VEK_LOG_DEBUG(TAG, "Cache Build: Creating controller list.");
    buildControllerList(current_);
    for (const std::unique_ptr<dsiControllerInfo>& controller : current_.controllers) {
        if (shutdownDetected()) {
            break;
        }
        VEK_LOG_DEBUG(TAG, "Cache Build: Creating enclosure segment list.");
        buildEnclosureSegmentList(*controller->getScrutinyDeviceInfo(), current_.segments[controller->getPCIAddress()]);
    }
}

bool vekScrutinyInterface::tryCurrCacheLock()
{
    if (!currCacheLock_.try_lock()) {
        VEK_LOG_DEBUG(TAG, "Failed to acquire lock.");
        return false;
    }
    return true;
}

std::vector<dsiControllerInfo*> vekScrutinyInterface::getControllerList()
{
    if (tryCurrCacheLock()) {
        std::lock_guard<std::mutex> current(currCacheLock_, std::adopt_lock);
        VEK_LOG_DEBUG(TAG, "Returning current controller list.");
        return view(current_.controllers);
    }
    std::unique_lock<std::mutex> previous = vekLockWithin(prevCacheLock_, kPreviousCacheWait);
    if (!previous.owns_lock()) {
        VEK_LOG_ERROR(TAG, "Failed to acquire lock.");
        return {};
    }
    VEK_LOG_DEBUG(TAG, "Returning previous controller list.");
    return view(previous_.controllers);
}

std::vector<dsiEnclosureSegmentInfo*> vekScrutinyInterface::getEnclosureSegmentList(const std::string& pci)
{
    const auto find = [&pci](const Generation& generation) {
        const auto found = generation.segments.find(pci);
        return found != generation.segments.end() ? view(found->second) : std::vector<dsiEnclosureSegmentInfo*>();
    };
    if (tryCurrCacheLock()) {
        std::lock_guard<std::mutex> current(currCacheLock_, std::adopt_lock);
        VEK_LOG_DEBUG(TAG, "Returning current enclosure segment list of [%s].", pci.c_str());
        return find(current_);
    }
    std::unique_lock<std::mutex> previous = vekLockWithin(prevCacheLock_, kPreviousCacheWait);
    if (!previous.owns_lock()) {
        VEK_LOG_ERROR(TAG, "Failed to acquire lock.");
        return {};
    }
    VEK_LOG_DEBUG(TAG, "Returning previous enclosure segment list of [%s].", pci.c_str());
    return find(previous_);
}

_DSI_STATUS vekScrutinyInterface::buildControllerList(Generation& generation)
{
    __SCRUTINY_DISCOVERY_PARAMS params{};
    _SCRUTINY_STATUS status = library_->discoverDevices(0, &params);
    if (status != SCRUTINY_STATUS_SUCCESS) {
        VEK_LOG_ERROR(TAG, "Scrutiny device discovery failed. (libStatus=[0x%08X])", status);
        return VEK_DSI_STATUS_LIBRARY_FAILURE;
    }
    unsigned count = 0;
    status = library_->getDeviceCount(&count);
    if (status != SCRUTINY_STATUS_SUCCESS) {
        VEK_LOG_ERROR(TAG, "Failed to determine # of devices from Scrutiny. (libStatus=[0x%08X])", status);
        return VEK_DSI_STATUS_LIBRARY_FAILURE;
    }
    VEK_LOG_DEBUG(TAG, "Scrutiny discovered device count: [%u]", count);
    for (unsigned index = 0; index < count; ++index) {
        if (shutdownDetected()) {
            VEK_LOG_INFO(TAG, "Subject shutdown detected when building controller list.");
            return VEK_DSI_STATUS_SHUTDOWN_DETECTED;
        }
        std::unique_ptr<_SCRUTINY_DEVICE_INFO> device(new (std::nothrow) _SCRUTINY_DEVICE_INFO());
        if (!device) {
            VEK_LOG_ERROR(TAG, "Out of memory to hold Scrutiny device info!");
            return VEK_DSI_STATUS_OUT_OF_MEMORY;
        }
        status = library_->getDeviceInfo(index, sizeof *device, device.get());
        if (status != SCRUTINY_STATUS_SUCCESS) {
            VEK_LOG_ERROR(TAG,
                          "Failed to obtain Scrutiny device info for controller @ index [%u]. (libStatus=[0x%08X])",
                          index, status);
            continue;
        }
        std::unique_ptr<dsiControllerInfo> controller;
        const _DSI_STATUS built = buildControllerInfo(std::move(device), controller);
        if (built != VEK_DSI_STATUS_SUCCESS) {
            VEK_LOG_ERROR(TAG,
                          "Error during controller info build process for controller @ index [%u]. (dsiStatus=[%d])",
                          index, built);
        } else if (controller) {
            generation.controllers.push_back(std::move(controller));
        }
    }
    return VEK_DSI_STATUS_SUCCESS;
}

_DSI_STATUS vekScrutinyInterface::buildControllerInfo(std::unique_ptr<_SCRUTINY_DEVICE_INFO> device,
                                                      std::unique_ptr<dsiControllerInfo>& controller)
{
    if (device->generation != SCRUTINY_GENERATION_GEN3_MEGARAID) {
        VEK_LOG_DEBUG(TAG,
                      "Skipping non-Gen3-MegaRAID controller (%d):  [%04x:%02x:%02x.%x]: (Chipset ID=[0x%08x]; Board "
                      "ID=[0x%08x])",
                      static_cast<int>(device->generation), VEK_DSI_PCI_ADDRESS(*device), device->chipsetID,
                      device->boardID);
        return VEK_DSI_STATUS_SUCCESS;
    }
    const std::string pci = pciAddressOf(*device);
    controller.reset(new (std::nothrow) dsiControllerInfo());
    if (!controller) {
        return VEK_DSI_STATUS_OUT_OF_MEMORY;
    }
    controller->setPCIAddress(pci);
    controller->setChipsetID(device->chipsetID);
    controller->setBoardID(device->boardID);
    controller->setSerialNumber(vekGlobalDef::stringUtils::stringifyByteArray(
        reinterpret_cast<const unsigned char*>(device->serialNumber), sizeof device->serialNumber));
    VEK_LOG_INFO(TAG,
                 "Discovered MegaRAID @ [%s]: (Chipset ID=[0x%08x]; Board ID=[0x%08x]; Serial #=[%s]; DeviceInfo=[%p])",
                 pci.c_str(), device->chipsetID, device->boardID, controller->getSerialNumber().c_str(),
                 static_cast<void*>(device.get()));
    controller->setScrutinyDeviceInfo(device.release());
    return VEK_DSI_STATUS_SUCCESS;
}

_DSI_STATUS vekScrutinyInterface::buildEnclosureSegmentList(const _SCRUTINY_DEVICE_INFO& device,
                                                            std::vector<std::unique_ptr<dsiEnclosureSegmentInfo>>& list)
{
    _MR_SAS_CONFIG_PAGE page;
    _DSI_STATUS status = readMegaRAIDConfigurationPage43(device, page);
    if (status != VEK_DSI_STATUS_SUCCESS) {
        VEK_LOG_ERROR(TAG,
                      "MegaRAID @ [%04x:%02x:%02x.%x]: Unable to retrieve enclosure segments since page #43 is not "
                      "available. (dsiStatus=[%d])",
                      VEK_DSI_PCI_ADDRESS(device), status);
        return status;
    }
    const unsigned char* bytes = page.block.get();
    // Only entries that lie whole inside what the controller returned count.
    size_t count = page.size > MR_CONFIG_PAGE_43_COUNT_OFFSET ? bytes[MR_CONFIG_PAGE_43_COUNT_OFFSET] : 0;
    const size_t room = page.size > MR_CONFIG_PAGE_43_ENTRIES_OFFSET
                            ? (page.size - MR_CONFIG_PAGE_43_ENTRIES_OFFSET) / MR_CONFIG_PAGE_43_ENTRY_SIZE
                            : 0;
    if (count > room) {
        VEK_LOG_WARNING(TAG, "MegaRAID @ [%04x:%02x:%02x.%x]: Page #43 names %zu entries but holds %zu.",
                        VEK_DSI_PCI_ADDRESS(device), count, room);
        count = room;
    }
    std::vector<uint8_t> buses;
    for (size_t i = 0; i < count; ++i) {
        const uint8_t bus = bytes[MR_CONFIG_PAGE_43_ENTRIES_OFFSET + i * MR_CONFIG_PAGE_43_ENTRY_SIZE +
                                 MR_CONFIG_PAGE_43_ENTRY_BUS_OFFSET];
        if (std::find(buses.begin(), buses.end(), bus) == buses.end()) {
            buses.push_back(bus);
        }
    }
    for (const uint8_t bus : buses) {
        std::unique_ptr<dsiEnclosureSegmentInfo> segment;
        status = buildEnclosureSegmentInfo(device, bus, segment);
        if (status == VEK_DSI_STATUS_SHUTDOWN_DETECTED) {
            return status;
        }
        if (status != VEK_DSI_STATUS_SUCCESS) {
            VEK_LOG_ERROR(TAG,
                          "MegaRAID @ [%04x:%02x:%02x.%x]: I2C Bus [%hu]: Unable to gather enclosure segment "
                          "details. (dsiStatus=[%d])",
                          VEK_DSI_PCI_ADDRESS(device), static_cast<unsigned short>(bus), status);
            continue;
        }
        list.push_back(std::move(segment));
    }
    return VEK_DSI_STATUS_SUCCESS;
}

_DSI_STATUS vekScrutinyInterface::buildEnclosureSegmentInfo(const _SCRUTINY_DEVICE_INFO& device, uint8_t bus,
                                                            std::unique_ptr<dsiEnclosureSegmentInfo>& segment)
{
    segment.reset(new (std::nothrow) dsiEnclosureSegmentInfo());
    if (!segment) {
        VEK_LOG_ERROR(TAG, "Out of memory for enclosure segment info.");
        return VEK_DSI_STATUS_OUT_OF_MEMORY;
    }
    segment->setI2CBusNumber(bus);
    using Populate =
        _DSI_STATUS (vekScrutinyInterface::*)(const _SCRUTINY_DEVICE_INFO&, uint8_t, dsiEnclosureSegmentInfo&);
    struct Step {
        const char* shutdownSeen;
        Populate populate;
    };
    const Step steps[] = {
        {"Subject shutdown detected before gathering UBM Silicon Identity & Version",
         &vekScrutinyInterface::populateEnclosureInfoWithUBMSiliconIdentityVersion},
        {"Subject shutdown detected before gathering UBM Backplane Info",
         &vekScrutinyInterface::populateEnclosureInfoWithUBMBackplaneInfo},
        {"Subject shutdown detected before gathering UBM Operational State",
         &vekScrutinyInterface::populateEnclosureInfoWithUBMOperationalState},
        {"Subject shutdown detected before gathering UBM FRU",
         &vekScrutinyInterface::populateEnclosureInfoWithUBMFRUNVRAMData},
    };
    bool any = false;
    _DSI_STATUS last = VEK_DSI_STATUS_SUCCESS;
    for (const Step& step : steps) {
        if (shutdownDetected()) {
            VEK_LOG_INFO(TAG, "%s", step.shutdownSeen);
            segment.reset();
            return VEK_DSI_STATUS_SHUTDOWN_DETECTED;
        }
        last = (this->*step.populate)(device, bus, *segment);
        any = any || last == VEK_DSI_STATUS_SUCCESS;
    }
    if (!any) {
        VEK_LOG_ERROR(TAG,
                      "MegaRAID @ [%04x:%02x:%02x.%x]: I2c Bus [%hu]: No enclosure segment will be reported to the "
                      "caller, since none of the commands issued to its UBM PIC and UBM FRU NVRAM were successful.",
                      VEK_DSI_PCI_ADDRESS(device), static_cast<unsigned short>(bus));
        segment.reset();
        return last;
    }
    return VEK_DSI_STATUS_SUCCESS;
}
