#pragma once

// A simulated host with a SmartRAID controller behind the project's stand-in
// storage libraries: the scenario they read ($VEK_ROOT/sim/libstoragecore.json),
// changed by a case while the libraries run, and the factory's controllers.

#include "vekConfig.h"
#include "vekSmartRAIDController.h"
#include "vekSmartRAIDControllerFactory.h"
#include "vekTestRoot.h"
#include "vekTestStorage.h"

#include <json/json.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

// The controller of the rack server's slot 10, as the library describes it:
// two SATA SSDs in a mirror on connector 1I, three SAS disks in a RAID 5 on
// 2I, and its UBM backplane.
inline Json::Value vekSmartRAIDTestController(const std::string& pci = "0000:e6:00.0")
{
    auto drive = [](const std::string& protocol, const std::string& serial, const std::string& bay) {
        const bool sata = protocol == "SATA";
        return "{\"protocol\": \"" + protocol + "\", \"serial\": \"" + serial + "\", \"bay\": \"" + bay +
               "\", \"box\": \"1\", \"status\": 0, " +
               (sata ? R"("media": "SSD", "model": "SAMSUNG MZ7L3480HCHQ-00A07", "vendor": "ATA", "firmware": "JXTC304Q",
                        "size": 480103981056, "port": "1I", "connector": 0})"
                     : R"("media": "HDD", "model": "ST2400MM0129", "vendor": "SEAGATE", "firmware": "C003",
                        "size": 2400476553216, "port": "2I", "connector": 1})");
    };
    Json::Value c = vekRecordingChannel::parse(
        "{\"pci\": \"" + pci + R"(", "vendor": "0x9005", "device": "0x028f", "subVendor": "0x9005",
          "subDevice": "0x1a20", "serial": "SR3254A0001", "firmware": "5.61", "build": "112", "status": 0,
          "connectors": [{"name": "1I"}, {"name": "2I"}], "events": [],
          "volumes": [{"id": "600508B1001C5E0A4D1F2E3A4B5C6D01", "raid": 1, "size": 480000000000, "drives": [0, 1]},
                      {"id": "600508B1001C5E0A4D1F2E3A4B5C6D02", "raid": 5, "size": 4800000000000,
                       "drives": [2, 3, 4]}],
          "enclosures": [{"vendor": "MSCC", "product": "Smart Adapter", "serial": "BP0SR00001", "bays": 8,
                          "paths": ["1I", "2I"],
                          "ubm": {"product": "8 SFF UBM Backplane", "version": "1.12", "partNumber": "BP-8SFF-UBM"}}],
          "drives": [)" +
        drive("SATA", "S6KPNA0T100001", "1") + ", " + drive("SATA", "S6KPNA0T100002", "2") + ", " +
        drive("SAS", "WBN0SR000003", "3") + ", " + drive("SAS", "WBN0SR000004", "4") + ", " +
        drive("SAS", "WBN0SR000005", "5") + "]}");
    EXPECT_TRUE(c.isObject()) << c;
    return c;
}

class vekSmartRAIDTestHost {
public:
    explicit vekSmartRAIDTestHost(const vekTestRoot& root) : root_(root)
    {
        scenario["eventTickMs"] = 10;
        scenario["controllers"].append(vekSmartRAIDTestController());
        write();
    }

    // Written whole and renamed into place: the libraries read it at any moment.
    void write() const
    {
        Json::StreamWriterBuilder builder;
        root_.writeFile("/sim/libstoragecore.json.new", Json::writeString(builder, scenario));
        std::rename(root_.hostPath("/sim/libstoragecore.json.new").c_str(),
                    root_.hostPath("/sim/libstoragecore.json").c_str());
    }

    Json::Value& controller(int index = 0) { return scenario["controllers"][index]; }

    // Appends an event to the controller's queue: class, subclass, detail,
    // with the fields a case adds ("tag", "age", "date", "message").
    void pushEvent(int classCode, int subclass, int detail, Json::Value extra = Json::Value(Json::objectValue),
                   int index = 0)
    {
        extra["class"] = classCode;
        extra["subclass"] = subclass;
        extra["detail"] = detail;
        if (!extra.isMember("message")) {
            extra["message"] = "Event " + std::to_string(classCode) + "/" + std::to_string(subclass) + "/" +
                               std::to_string(detail);
        }
        controller(index)["events"].append(extra);
        write();
    }

    // The configuration the controllers read, from vek.conf of the root (a
    // file of fewer than two keys counts as none).
    static void useConfig(const vekTestRoot& root, const std::string& json)
    {
        root.writeConfig(json);
        vekSmartRAIDControllerFactory::getInstance().setConfig(std::make_shared<const vekConfig>());
    }

    // One discovery of the factory, each controller's inventory read whole
    // as the storage manager does; the controllers, referenced.
    std::vector<IvekStorageController*> discover(bool enableEvents = true)
    {
        release();
        auto& factory = vekSmartRAIDControllerFactory::getInstance();
        factory.initialize(nullptr, nullptr);
        factory.discoverControllers(controllers_);
        for (IvekStorageController* c : controllers_) {
            vekStorageControllerInfo info;
            std::vector<vekDiskInfo> disks;
            std::vector<vekLogicalDiskInfo> volumes;
            std::vector<vekStorageEnclosureInfo> enclosures;
            c->discoverInventory(info);
            c->discoverPhysicalDiskInventory(disks);
            c->discoverLogicalDiskInventory(volumes);
            c->discoverStorageEnclosureInventory(enclosures);
            if (enableEvents) {
                c->enableEvents();
            }
        }
        return controllers_;
    }

    void release()
    {
        for (IvekStorageController* c : controllers_) {
            c->releaseReference();
        }
        controllers_.clear();
    }

    ~vekSmartRAIDTestHost()
    {
        release();
        vekSmartRAIDControllerFactory::getInstance().shutdownFactory();
        // The next host starts from fresh libraries.
        vekStorageCoreInterface::getInstance().UnInitialize();
    }

    Json::Value scenario;

private:
    const vekTestRoot& root_;
    std::vector<IvekStorageController*> controllers_;
};
