// rmcview: shows, readably, what the emulated RMC received. Follows the spool
// folder of the emulator (NNNNNN-<command>.txt, one file per command received
// whole) and prints each command as it arrives: a title line, a short summary
// for inventories and events, then the JSON pretty-printed.
//
//   rmcview [--once] [--compact] SPOOL_DIR
//
// --once prints what is there and exits; otherwise it polls until killed.
// --compact prints the summaries only.

#include <json/json.h>

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

bool isSpoolFile(const std::string& name)
{
    // Six digits, a dash, a command name, ".txt"; temporaries start with '.'.
    if (name.size() < 12 || name[0] == '.' || name.compare(name.size() - 4, 4, ".txt") != 0) {
        return false;
    }
    for (int i = 0; i < 6; ++i) {
        if (name[i] < '0' || name[i] > '9') {
            return false;
        }
    }
    return name[6] == '-';
}

std::vector<std::string> spoolFiles(const std::string& dir)
{
    std::vector<std::string> names;
    std::unique_ptr<DIR, int (*)(DIR*)> d(opendir(dir.c_str()), closedir);
    if (!d) {
        return names;
    }
    while (dirent* entry = readdir(d.get())) {
        if (isSpoolFile(entry->d_name)) {
            names.emplace_back(entry->d_name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string readWhole(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

void summariseInventory(const Json::Value& doc)
{
    const Json::Value& collection = doc["HostDataCollection"];
    if (!collection.isObject()) {
        std::cout << "  (no HostDataCollection)\n";
        return;
    }
    for (const auto& key : collection.getMemberNames()) {
        const Json::Value& part = collection[key];
        if (part.isArray()) {
            std::cout << "  " << key << ": " << part.size() << (part.size() == 1 ? " record\n" : " records\n");
        } else if (key == "Oem" && part.isObject()) {
            const Json::Value& host = part["HostOSInfo"];
            std::cout << "  Oem: host " << host["HostName"].asString() << ", " << host["OSName"].asString() << " "
                      << host["OSVersion"].asString() << "\n";
        } else {
            std::cout << "  " << key << "\n";
        }
    }
}

void summariseEvent(const Json::Value& event)
{
    std::cout << "  event " << event["ID"].asInt() << " from " << event["Source"].asString() << " at "
              << event["EventTime"].asString();
    if (event.isMember("PhysicalLocation")) {
        std::cout << ", PL " << event["PhysicalLocation"].asString();
    }
    std::cout << "\n";
}

void show(const std::string& dir, const std::string& name, bool compact)
{
    const std::string command = name.substr(7, name.size() - 11);
    const std::string text = readWhole(dir + "/" + name);
    std::cout << "=== #" << name.substr(0, 6) << " " << command << " (" << text.size() << " bytes) ===\n";

    Json::CharReaderBuilder reader;
    Json::Value value;
    std::string errors;
    std::istringstream in(text);
    if (!Json::parseFromStream(reader, in, &value, &errors)) {
        std::cout << "  not JSON: " << text.substr(0, 200) << "\n\n";
        return;
    }
    if (command == "WriteInventory") {
        summariseInventory(value);
    } else if (command == "MPEventGen") {
        summariseEvent(value);
    }
    if (!compact) {
        Json::StreamWriterBuilder writer;
        writer["indentation"] = "  ";
        std::cout << Json::writeString(writer, value) << "\n";
    }
    std::cout << std::endl;
}

} // namespace

int main(int argc, char** argv)
{
    bool once = false;
    bool compact = false;
    std::string dir;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--once") {
            once = true;
        } else if (arg == "--compact") {
            compact = true;
        } else if (dir.empty() && arg[0] != '-') {
            dir = arg;
        } else {
            dir.clear();
            break;
        }
    }
    if (dir.empty()) {
        std::cerr << "usage: rmcview [--once] [--compact] SPOOL_DIR\n";
        return 2;
    }
    if (access(dir.c_str(), R_OK | X_OK) != 0) {
        std::cerr << "rmcview: cannot read the spool folder " << dir << "\n";
        return 1;
    }
    std::set<std::string> seen;
    for (;;) {
        for (const auto& name : spoolFiles(dir)) {
            if (seen.insert(name).second) {
                show(dir, name, compact);
            }
        }
        if (once) {
            return 0;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
}
