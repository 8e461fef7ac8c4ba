#include "vekLocationTestHost.h"

#include "SMBIOSVMware.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>

std::string vekLocationTestHost::platformIdentifier(int platformType)
{
    switch (platformType) {
    case 0:
        return "4417PID11020101";
    case 1:
        return "4417PID11020102";
    case 2:
        return "4417PID10020001";
    case 4:
        return "4417PID11030201";
    default:
        return "4417PID99999999";
    }
}

void vekLocationTestHost::writeTable(int platformType, const std::string& structures) const
{
    const std::string description =
        "{\"structures\": [{\"type\": 1, \"manufacturer\": \"Zolvek\", \"product\": \"Test Server\", "
        "\"family\": \"ZT\"}, {\"type\": 11, \"strings\": [\"" +
        platformIdentifier(platformType) + "\"]}] }";
    // The generator takes one list: splice the case's structures in.
    std::string whole = description;
    const std::string inner = structures.substr(structures.find('[') + 1);
    const std::string cases = inner.substr(0, inner.rfind(']'));
    if (cases.find_first_not_of(" \n\t") != std::string::npos) {
        whole.insert(whole.rfind(']'), ", " + cases);
    }
    root_.writeFile("/tmp/smbios-description.json", whole);
    root_.makeDirectory("/sys/firmware/dmi/tables");
    const std::string generator = std::string(VEK_BINARY_DIR) + "/testtools/smbiosgen/smbiosgen";
    const std::string command = "'" + generator + "' --table '" + root_.hostPath("/sys/firmware/dmi/tables/DMI") +
                                "' '" + root_.hostPath("/tmp/smbios-description.json") + "' 2>'" +
                                root_.hostPath("/tmp/smbiosgen.err") + "'";
    if (system(command.c_str()) != 0) {
        throw std::runtime_error("smbiosgen refused the table: " + root_.readFile("/tmp/smbiosgen.err"));
    }
}

vekPlatformServices& vekLocationTestHost::services()
{
    if (!built_) {
        services_.SetSmbiosServiceInterface(new SMBIOSVMware());
        vekPlatformServices::setCurrent(&services_);
        built_ = true;
    }
    return services_;
}

vekPlatformServices& vekLocationTestHost::use(int platformType, const std::vector<std::string>& records)
{
    std::string list;
    for (const std::string& record : records) {
        list += (list.empty() ? "" : ", ") + record;
    }
    writeTable(platformType, "[" + list + "]");
    return services();
}

std::string vekLocationTestHost::slot(const std::string& designation, const std::string& address)
{
    return "{\"type\": 9, \"designation\": \"" + designation + "\", \"address\": \"" + address + "\"}";
}

std::string vekLocationTestHost::onboard(const std::string& designation, const std::string& address)
{
    return "{\"type\": 41, \"designation\": \"" + designation + "\", \"deviceType\": 5, \"address\": \"" +
           address + "\"}";
}
