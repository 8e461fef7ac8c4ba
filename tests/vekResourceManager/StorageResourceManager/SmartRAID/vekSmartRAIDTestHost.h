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

inline Json::Value vekSmartRAIDTestDrive(const std::string& protocol, const std::string& serial, const std::string& bay,
                                         int connector)
{
    Json::Value drive;
    drive["protocol"] = protocol;
    drive["media"] = protocol == "SATA" ? "SSD" : "HDD";
    drive["model"] = protocol == "SATA" ? "SAMSUNG MZ7L3480HCHQ-00A07" : "ST2400MM0129";
    drive["vendor"] = protocol == "SATA" ? "ATA" : "SEAGATE";
    drive["serial"] = serial;
    drive["firmware"] = protocol == "SATA" ? "JXTC304Q" : "C003";
    drive["size"] = Json::UInt64(protocol == "SATA" ? 480103981056ULL : 2400476553216ULL);
    drive["status"] = 0;
    drive["port"] = connector == 0 ? "1I" : "2I";
    drive["box"] = "1";
    drive["bay"] = bay;
    drive["connector"] = connector;
    return drive;
}

// The controller of the rack server's slot 10, as the library describes it.
inline Json::Value vekSmartRAIDTestController(const std::string& pci = "0000:e6:00.0")
{
    Json::Value c;
    c["pci"] = pci;
    c["vendor"] = "0x9005";
    c["device"] = "0x028f";
    c["subVendor"] = "0x9005";
    c["subDevice"] = "0x1a20";
    c["serial"] = "SR3254A0001";
    c["firmware"] = "5.61";
    c["build"] = "112";
    c["status"] = 0;
    c["connectors"].append(Json::Value());
    c["connectors"][0]["name"] = "1I";
    c["connectors"][1]["name"] = "2I";
    c["drives"].append(vekSmartRAIDTestDrive("SATA", "S6KPNA0T100001", "1", 0));
    c["drives"].append(vekSmartRAIDTestDrive("SATA", "S6KPNA0T100002", "2", 0));
    c["drives"].append(vekSmartRAIDTestDrive("SAS", "WBN0SR000003", "3", 1));
    c["drives"].append(vekSmartRAIDTestDrive("SAS", "WBN0SR000004", "4", 1));
    c["drives"].append(vekSmartRAIDTestDrive("SAS", "WBN0SR000005", "5", 1));
    Json::Value mirror;
    mirror["id"] = "600508B1001C5E0A4D1F2E3A4B5C6D01";
    mirror["raid"] = 1;
    mirror["size"] = Json::UInt64(480000000000ULL);
    mirror["drives"].append(0);
    mirror["drives"].append(1);
    Json::Value parity;
    parity["id"] = "600508B1001C5E0A4D1F2E3A4B5C6D02";
    parity["raid"] = 5;
    parity["size"] = Json::UInt64(4800000000000ULL);
    for (int d : {2, 3, 4}) {
        parity["drives"].append(d);
    }
    c["volumes"].append(mirror);
    c["volumes"].append(parity);
    Json::Value enclosure;
    enclosure["vendor"] = "MSCC";
    enclosure["product"] = "Smart Adapter";
    enclosure["serial"] = "BP0SR00001";
    enclosure["bays"] = 8;
    enclosure["paths"].append("1I");
    enclosure["paths"].append("2I");
    enclosure["ubm"]["product"] = "8 SFF UBM Backplane";
    enclosure["ubm"]["version"] = "1.12";
    enclosure["ubm"]["partNumber"] = "BP-8SFF-UBM";
    c["enclosures"].append(enclosure);
    c["events"] = Json::Value(Json::arrayValue);
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
