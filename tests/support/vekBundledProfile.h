#pragma once

// The cases that run a Resource Manager on the bundled rack server
// (testtools/simhost/profiles/rack-type4): the host copied whole under a
// case's root, and the manager's job.

#include "vekPlatformServices.h"
#include "vekResourceManager.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>

inline void vekCopyBundledProfile(const vekTestRoot& root)
{
    const std::string copy =
        std::string("cp -r '") + VEK_SIMHOST_DIR + "/profiles/rack-type4/.' '" + root.path() + "'";
    ASSERT_EQ(system(copy.c_str()), 0) << copy;
}

// A manager's job on a thread of its own, as the service runs it; stopped
// and joined when the object goes, whatever the case did before.
class vekManagerJob {
public:
    vekManagerJob(vekResourceManager& manager, vekPlatformServices& services)
        : manager_(manager), thread_([&manager, &services] { manager.init(services); })
    {
    }
    ~vekManagerJob()
    {
        manager_.stopResourceManagerJob();
        thread_.join();
    }
    vekManagerJob(const vekManagerJob&) = delete;
    vekManagerJob& operator=(const vekManagerJob&) = delete;

private:
    vekResourceManager& manager_;
    std::thread thread_;
};
