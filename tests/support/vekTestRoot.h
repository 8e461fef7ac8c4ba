#pragma once

// Test fixture support: a fresh simulated host root (VEK_ROOT) in a temporary
// folder, with helpers to write the files a case needs; removed afterwards.

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>

// A fresh folder under $TMPDIR (the test run's own, see test_main.cpp),
// named STEM-XXXXXX.
std::string vekTestTemporaryFolder(const std::string& stem);

// Waits until the condition holds, looking every 10 ms, for the timeout at
// most (generous: it stands for a busy machine, not for the case's speed).
bool vekEventually(const std::function<bool()>& condition,
                   std::chrono::milliseconds timeout = std::chrono::seconds(30));

class vekTestRoot {
public:
    // Makes the folder and points VEK_ROOT at it; the previous value comes
    // back when the object goes.
    vekTestRoot();
    ~vekTestRoot();

    vekTestRoot(const vekTestRoot&) = delete;
    vekTestRoot& operator=(const vekTestRoot&) = delete;

    const std::string& path() const { return root_; }
    // Absolute path of a host path under this root ("/opt/zolvek/vital/vek.conf").
    std::string hostPath(const std::string& hostAbsolute) const { return root_ + hostAbsolute; }

    // Writes a file at a host path, creating its folders.
    void writeFile(const std::string& hostAbsolute, const std::string& content) const;
    // Fake command output, read by the simulated localcli/esxcli: the words of
    // the call joined with '_' ("network nic list" -> sim/cli/network_nic_list.txt).
    void writeCliOutput(const std::string& words, const std::string& output, int exitStatus = 0) const;
    void writeConfig(const std::string& json) const { writeFile("/opt/zolvek/vital/vek.conf", json); }
    void makeDirectory(const std::string& hostAbsolute) const;
    bool exists(const std::string& hostAbsolute) const;
    std::string readFile(const std::string& hostAbsolute) const;

private:
    std::string root_;
    std::string previousRoot_;
    bool hadPreviousRoot_;
    std::string previousPath_;
};

// Base fixture: every case gets its own root.
class vekRootTest : public ::testing::Test {
protected:
    vekTestRoot root;
};

// Reads what a log file gained since the object was made.
class vekLogTail {
public:
    explicit vekLogTail(std::string file);
    std::string newText() const;
    bool contains(const std::string& text) const { return newText().find(text) != std::string::npos; }

private:
    std::string file_;
    long offset_;
};

// A file of the bundled rack server profile (testtools/simhost/profiles/rack-type4).
std::string vekBundledProfileFile(const std::string& relative);

// The process-wide log files of the test binary (see test main).
std::string vekTestMainLogPath();
std::string vekTestDebugLogPath();
