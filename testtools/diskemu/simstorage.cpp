// simstorage: lays out a simulated host's storage in its sysfs tree, changes
// the storage, and writes large descriptions for benchmarks.
//
//   simstorage sync ROOT                       lay out ROOT/sys from ROOT/sim/disks.json
//   simstorage set ROOT ID key=value...        change the description, then lay it out
//   simstorage generate HBAS DISKS_PER_HBA     print a description of plain adapters with disks

#include "storage_generator.h"
#include "storage_model.h"
#include "sysfs_writer.h"

#include <cstdio>
#include <exception>
#include <iostream>
#include <string>

namespace {

int usage()
{
    std::cerr << "usage: simstorage sync ROOT\n"
                 "       simstorage set ROOT ID key=value...\n"
                 "       simstorage generate HBAS DISKS_PER_HBA\n";
    return 2;
}

bool wholeNumber(const char* text, int& value)
{
    try {
        size_t used = 0;
        value = std::stoi(text, &used, 10);
        return used == std::string(text).size();
    } catch (const std::exception&) {
        return false;
    }
}

} // namespace

int main(int argc, char** argv)
{
    const std::string command = argc > 1 ? argv[1] : "";
    try {
        if (command == "sync" && argc == 3) {
            const std::string root = argv[2];
            simstorage::writeSysfs(root, simstorage::load(simstorage::descriptionPath(root)));
            return 0;
        }
        if (command == "set" && argc >= 5) {
            const std::string root = argv[2], path = simstorage::descriptionPath(root);
            simstorage::Storage storage = simstorage::load(path);
            for (int i = 4; i < argc; ++i) {
                simstorage::apply(storage, argv[3], argv[i]);
            }
            simstorage::save(path, storage);
            simstorage::writeSysfs(root, storage);
            return 0;
        }
        int hbas = 0, disks = 0;
        if (command == "generate" && argc == 4 && wholeNumber(argv[2], hbas) && wholeNumber(argv[3], disks)) {
            std::cout << simstorage::render(simstorage::generate(hbas, disks));
            return std::cout.flush() ? 0 : 1;
        }
    } catch (const std::exception& e) {
        std::cerr << "simstorage: " << e.what() << "\n";
        return 1;
    }
    return usage();
}
