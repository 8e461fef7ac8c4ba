#pragma once

// What the MegaRAID cases share: a fresh host whose stand-in libstorelib.so
// answers from the rack server's scenario, a build of the MegaRAID factory as
// the storage manager does it, and firmware events fed through the library's
// own thread, as the RMC then receives them.

#include "vekMegaRAIDController.h"
#include "vekMegaRAIDControllerFactory.h"
#include "vekTestStorage.h"

#include <gtest/gtest.h>
#include <json/json.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

class vekMegaRAIDTest : public vekRootTest {
protected:
    void SetUp() override
    {
        scenario = vekRecordingChannel::parse(vekBundledProfileFile("sim/libstorelib.json"));
        ASSERT_EQ(scenario["controllers"].size(), 1u) << "the rack server's scenario is unreadable";
        writeScenario();
        // The controller's UBM backplane, as the rack server has it.
        for (const char* file : {"/sim/libscrutiny.json", "/sim/ubm/box1.fru", "/sim/ubm/box2.fru"}) {
            root.writeFile(file, vekBundledProfileFile(std::string("sim") + (file + 4)));
        }
    }

    // The library reads the file at each call, from its own thread too:
    // written aside and renamed, so it never sees half a file.
    void writeScenario()
    {
        const std::string path = root.hostPath("/sim/libstorelib.json");
        root.writeFile("/sim/libstorelib.json.new", Json::writeString(Json::StreamWriterBuilder(), scenario));
        ASSERT_EQ(rename((path + ".new").c_str(), path.c_str()), 0);
    }

    // One build of the factory's controllers, as the storage manager runs it.
    void build()
    {
        controllers.clear();
        drives.clear();
        volumes.clear();
        enclosures.clear();
        std::vector<IvekStorageController*> list;
        ASSERT_GE(vekMegaRAIDControllerFactory::getInstance().discoverControllers(list), 0);
        for (IvekStorageController* controller : list) {
            vekStorageControllerInfo info;
            std::vector<vekDiskInfo> disks;
            std::vector<vekLogicalDiskInfo> lds;
            std::vector<vekStorageEnclosureInfo> enclosures;
            // Each step ends the controller's collection when it fails.
            if (controller->discoverInventory(info) >= 0) {
                controllers.push_back(info);
                if (controller->discoverPhysicalDiskInventory(disks) >= 0) {
                    drives.insert(drives.end(), disks.begin(), disks.end());
                    if (controller->discoverLogicalDiskInventory(lds) >= 0) {
                        volumes.insert(volumes.end(), lds.begin(), lds.end());
                        if (controller->discoverStorageEnclosureInventory(enclosures) >= 0) {
                            this->enclosures.insert(this->enclosures.end(), enclosures.begin(), enclosures.end());
                            controller->enableEvents();
                        }
                    }
                }
            }
            controller->releaseReference();
        }
    }

    // The controller with that serial number; null when the factory has none.
    vekMegaRAIDController* controller(const std::string& serial = "SKC4012345")
    {
        std::vector<IvekStorageController*> list;
        vekMegaRAIDControllerFactory::getInstance().getControllers(list);
        vekMegaRAIDController* found = nullptr;
        for (IvekStorageController* c : list) {
            auto* megaraid = dynamic_cast<vekMegaRAIDController*>(c);
            if (megaraid != nullptr && megaraid->getDeviceName() == serial) {
                found = megaraid;
            }
            c->releaseReference();
        }
        return found;
    }

    // A firmware event of controller 0, as the scenario writes it.
    static Json::Value pdEvent(int code, int slot, int eventClass, const std::string& text, int argType = 1)
    {
        Json::Value event;
        event["code"] = code;
        event["class"] = eventClass;
        event["locale"] = 2;
        event["argType"] = argType;
        event["pd"]["enclosure"] = 252;
        event["pd"]["slot"] = slot;
        event["description"] = text;
        return event;
    }
    static Json::Value ldEvent(int code, int target, int eventClass, const std::string& text)
    {
        Json::Value event;
        event["code"] = code;
        event["class"] = eventClass;
        event["locale"] = 1;
        event["argType"] = 2;
        event["targetId"] = target;
        event["description"] = text;
        return event;
    }

    // Feeds the events, then a check that ends clean on the second volume
    // (one 1388), and returns the RMC's events before that one: so a case
    // sees what the events raised, and that nothing else came.
    std::vector<std::string> deliver(const std::vector<Json::Value>& events)
    {
        const size_t before = host.summaries().size();
        for (Json::Value event : events) {
            event["seq"] = ++sequence;
            event["ctrl"] = event.get("ctrl", 0);
            scenario["events"].append(event);
        }
        Json::Value sentinel = ldEvent(58, 1, 0, "Consistency Check done on VD 01/1");
        sentinel["seq"] = ++sequence;
        sentinel["ctrl"] = 0;
        scenario["events"].append(sentinel);
        writeScenario();
        std::vector<std::string> seen;
        for (size_t expected = before + 1; expected < before + 40; ++expected) {
            seen = host.summaries(expected);
            if (seen.size() < expected) {
                ADD_FAILURE() << "the closing event never came";
                return {};
            }
            if (seen.back().find("1388 @ ") == 0 && seen.back().find("VD 01/1") != std::string::npos) {
                break;
            }
        }
        return std::vector<std::string>(seen.begin() + static_cast<long>(before), seen.end() - 1);
    }

    Json::Value scenario;
    vekStorageEventsHost host{root};
    std::vector<vekStorageControllerInfo> controllers;
    std::vector<vekDiskInfo> drives;
    std::vector<vekLogicalDiskInfo> volumes;
    std::vector<vekStorageEnclosureInfo> enclosures;
    unsigned sequence = 0;
};
