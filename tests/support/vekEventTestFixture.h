#pragma once

// A test host's platform services whose events to the RMC a test reads back:
// the fixture of the adapter families' event tests.

#include "vekLocationTestHost.h"
#include "vekOSInterface.h"
#include "vekPlatformServices.h"
#include "vekTestInventoryPush.h"
#include "vekTestRoot.h"

#include <json/json.h>

#include <cstddef>
#include <vector>

class vekEventTestFixture : public vekRootTest {
protected:
    // The events the RMC received, oldest first, and their ids.
    Json::Value sent(size_t i) { return vekRecordingChannel::parse(channel.payloads("MPEventGen").at(i)); }
    std::vector<int> sentIds()
    {
        std::vector<int> ids;
        for (size_t i = 0; i < channel.count("MPEventGen"); ++i) {
            ids.push_back(sent(i)["ID"].asInt());
        }
        return ids;
    }

    vekLocationTestHost host{root};
    vekPlatformServices* services = nullptr;
    vekRecordingChannel channel;
    vekTestSmbios smbios;
    vekTestComManager com{&channel, smbios};
    vekOSInterface* os = nullptr;
};
