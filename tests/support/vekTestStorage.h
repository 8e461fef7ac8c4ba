#pragma once

// What the storage tests share: a controller whose records a case sets
// directly, the events of a case as the RMC receives them, a factory whose
// discovery a case holds on a gate, and a SCSI host written into the
// simulated sysfs tree.

#include "IELEvent.h"
#include "IvekStorageControllerFactory.h"
#include "vekLocationTestHost.h"
#include "vekStorageController.h"
#include "vekTestInventoryPush.h"
#include "vekTestResourceManager.h"
#include "vekTestRoot.h"

#include <json/json.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

// The plain adapter with its records open to the case.
class vekTestStorageController : public vekStorageController {
public:
    explicit vekTestStorageController(const std::string& pci = "0000:5e:00.0", bool firstPass = true)
        : vekStorageController(0x00E61000, 0, pci, VEK_STORAGE_FAMILY_HBA, firstPass, nullptr)
    {
    }

    using vekStorageController::applyDiskVerdict;
    using vekStorageController::criticalEventOutstanding;
    using vekStorageController::currentInfo_;
    using vekStorageController::disks_;
    using vekStorageController::eventControlFlags;
    using vekStorageController::generateEventOnStatusChange;
    using vekStorageController::logicalDisks_;
    using vekStorageController::previousDisks_;
    using vekStorageController::previousInfo_;
    using vekStorageController::previousLogicalDisks_;
    using vekStorageController::setMaxSupportedControllerPorts;
};

// A disk at a bay of the drive cage, or (bay -1) at no known place.
inline vekDiskInfo vekTestDisk(const std::string& serial, int bay, VEK_RESOURCE_STATE state = VEK_STATE_RUNNING)
{
    vekDiskInfo disk;
    disk.setSerialNumber(serial);
    disk.setSlot(std::to_string(bay));
    disk.setPhysicalLocation(bay < 0 ? "FFFFFFFFFFFFFFFF" : "0000000000000B0" + std::to_string(bay % 10));
    disk.setState(state);
    disk.setHealth(state == VEK_STATE_RUNNING ? VEK_HEALTH_OK : VEK_HEALTH_CRITICAL);
    disk.setProtocol("SAS");
    return disk;
}

// The events of a case, as the RMC receives them, on platform services of a
// rack server of type 4 (the process's current services).
class vekStorageEventsHost {
public:
    // ownTable false: the SMBIOS table the root already holds (a profile's).
    explicit vekStorageEventsHost(const vekTestRoot& root, bool ownTable = true) : host_(root)
    {
        if (ownTable) {
            host_.writeTable(4, "[]");
        }
        services_ = &host_.services();
        services_->SetIELEventResolver(new IELEventMap::IELEventTRB());
        services_->SetCommunicationService(com_);
    }

    vekPlatformServices& services() { return *services_; }

    // Waits for that many events; all of them, oldest first.
    std::vector<Json::Value> events(size_t atLeast = 0)
    {
        if (atLeast > 0) {
            channel_.waitFor("MPEventGen", atLeast);
        }
        std::vector<Json::Value> parsed;
        for (const std::string& text : channel_.payloads("MPEventGen")) {
            parsed.push_back(vekRecordingChannel::parse(text));
        }
        return parsed;
    }

    // "538 asserted @ PL: EventInfo" for each event, which a table compares.
    std::vector<std::string> summaries(size_t atLeast = 0)
    {
        std::vector<std::string> lines;
        for (const Json::Value& event : events(atLeast)) {
            lines.push_back(std::to_string(event["ID"].asInt()) + " @ " + event["PhysicalLocation"].asString() + ": " +
                            event["VariableData"]["EventInfo"].asString());
        }
        return lines;
    }

private:
    vekLocationTestHost host_;
    vekPlatformServices* services_ = nullptr;
    vekRecordingChannel channel_;
    vekTestSmbios smbios_;
    vekTestComManager com_{&channel_, smbios_};
};

// A factory whose discovery hands out the controllers a case gave it, and
// stops on a gate when the case holds it. Records "discover-enter N" and
// "discover-leave N".
class vekTestStorageFactory : public IvekStorageControllerFactory {
public:
    vekTestStorageFactory() { FactoryRegister::add(this); }
    ~vekTestStorageFactory() override
    {
        FactoryRegister::remove([this](IvekStorageControllerFactory* f) { return f == this; });
        for (IvekStorageController* controller : controllers_) {
            controller->markRemoved();
            controller->releaseReference();
        }
    }

    void add(IvekStorageController* controller)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        controllers_.push_back(controller);
    }

    bool initialize(vekOSInterface*, ISubject*) override { return true; }
    int discoverControllers(std::vector<IvekStorageController*>& controllers) override
    {
        const std::string pass = std::to_string(++passes_);
        steps.record("discover-enter " + pass);
        gate.pass();
        steps.record("discover-leave " + pass);
        getControllers(VEK_STORAGE_FAMILY_ALL, controllers);
        return static_cast<int>(controllers.size());
    }
    void getControllers(unsigned char familyMask, std::vector<IvekStorageController*>& controllers) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (IvekStorageController* controller : controllers_) {
            if ((controller->getFamilyFlags() & familyMask) != 0) {
                controller->acquireReference();
                controllers.push_back(controller);
            }
        }
    }
    void shutdownFactory() override { steps.record("shutdown"); }
    void poll() override {}
    void deleteControllers(unsigned char) override {}
    std::vector<std::tuple<uint32_t, uint32_t>> getSupportedControllerModels() override { return {}; }

    vekTestSteps steps;
    vekBuildGate gate;

private:
    std::mutex mutex_;
    std::vector<IvekStorageController*> controllers_;
    std::atomic<int> passes_{0};
};

// A SCSI host of a PCI adapter in the simulated sysfs tree, laid out as the
// kernel does (class link, device link, PCI ids).
inline void vekWriteScsiHost(const vekTestRoot& root, int host, const std::string& pci, uint16_t vendor,
                             uint16_t device, const std::string& state = "running")
{
    const std::string bus = "pci0000:" + pci.substr(5, 2);
    const std::string card = "/sys/devices/" + bus + "/" + pci;
    const std::string name = "host" + std::to_string(host);
    const std::string hostDir = card + "/" + name + "/scsi_host/" + name;
    char id[8];
    snprintf(id, sizeof(id), "0x%04x", vendor);
    root.writeFile(card + "/vendor", std::string(id) + "\n");
    snprintf(id, sizeof(id), "0x%04x", device);
    root.writeFile(card + "/device", std::string(id) + "\n");
    root.writeFile(card + "/subsystem_vendor", "0x1000\n");
    root.writeFile(card + "/subsystem_device", "0x4050\n");
    root.writeFile(hostDir + "/proc_name", "mpt3sas\n");
    root.writeFile(hostDir + "/state", state + "\n");
    root.writeFile(hostDir + "/version_fw", "24.00.00.00\n");
    root.writeFile(hostDir + "/board_tracer", "SP" + std::to_string(host) + "0000000\n");
    root.makeDirectory("/sys/class/scsi_host");
    root.makeDirectory("/sys/bus/pci/devices");
    const auto link = [&root](const std::string& target, const std::string& at) {
        if (symlink(target.c_str(), root.hostPath(at).c_str()) != 0 && errno != EEXIST) {
            ADD_FAILURE() << "symlink " << at;
        }
    };
    link("../../../" + name, hostDir + "/device");
    link("../../devices/" + bus + "/" + pci + "/" + name + "/scsi_host/" + name, "/sys/class/scsi_host/" + name);
    if (!root.exists("/sys/bus/pci/devices/" + pci)) {
        link("../../../devices/" + bus + "/" + pci, "/sys/bus/pci/devices/" + pci);
    }
}

// A SCSI device behind that host at a target (a disk: type 0 in a bay; an
// enclosure services device: type 13 with its slot count), without a generic
// device node.
inline void vekWriteScsiDevice(const vekTestRoot& root, int host, int target, const std::string& pci, int type,
                               int bayOrSlots, const std::string& serial)
{
    const std::string h = std::to_string(host), t = std::to_string(target);
    const std::string name = h + ":0:" + t + ":0";
    const std::string endDevice = "/sys/devices/pci0000:" + pci.substr(5, 2) + "/" + pci + "/host" + h + "/port-" + h +
                                  ":" + t + "/end_device-" + h + ":" + t;
    const std::string device = endDevice + "/target" + h + ":0:" + t + "/" + name;
    root.writeFile(device + "/type", std::to_string(type) + "\n");
    root.writeFile(device + "/vendor", "SEAGATE \n");
    root.writeFile(device + "/model", type == 0 ? "ST2400MM0129    \n" : "VirtualSES      \n");
    root.writeFile(device + "/state", "running\n");
    root.writeFile(device + "/vpd_pg80", std::string("\x00\x80\x00", 3) + static_cast<char>(serial.size()) + serial);
    root.makeDirectory(device + "/scsi_device/" + name);
    if (symlink(("../../../" + name).c_str(), root.hostPath(device + "/scsi_device/" + name + "/device").c_str()) != 0) {
        ADD_FAILURE() << "symlink device of " << name;
    }
    if (type == 0) {
        root.writeFile(endDevice + "/sas_device/end_device-" + h + ":" + t + "/bay_identifier",
                       std::to_string(bayOrSlots) + "\n");
    } else {
        root.writeFile(device + "/enclosure/" + name + "/components", std::to_string(bayOrSlots) + "\n");
    }
    root.makeDirectory("/sys/class/scsi_device");
    const std::string at = root.hostPath("/sys/class/scsi_device/" + name);
    if (symlink(("../../" + device.substr(5) + "/scsi_device/" + name).c_str(), at.c_str()) != 0) {
        ADD_FAILURE() << "symlink " << at;
    }
}
