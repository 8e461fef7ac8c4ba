// The common HBA library over real vendor libraries: the project's fakes,
// Debian's libhbalinux, and Debian's own common library (libHBAAPI) as the
// reference that must report the same.

#include "vekHBACommonLibrary.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>
#include <json/json.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

namespace {

const std::string kQLogic = "libfakehba_qlogic.so";
const std::string kEmulex = "libfakehba_emulex.so";

// A scenario of `count` adapters named PREFIX-i, one online port each.
std::string scenario(const std::string& prefix, int count, const std::string& extra = "")
{
    Json::Value root(Json::objectValue);
    for (int i = 0; i < count; ++i) {
        Json::Value adapter;
        adapter["name"] = prefix + "-" + std::to_string(i);
        adapter["Manufacturer"] = prefix;
        char wwn[32];
        snprintf(wwn, sizeof wwn, "20:00:00:00:00:00:00:%02x", i);
        adapter["NodeWWN"] = wwn;
        adapter["ports"][0]["PortState"] = "Online";
        root["adapters"].append(adapter);
    }
    std::string text = Json::writeString(Json::StreamWriterBuilder(), root);
    return extra.empty() ? text : text.substr(0, text.rfind('}')) + "," + extra + "}";
}

std::vector<std::string> adapterNames()
{
    std::vector<std::string> names;
    const HBA_UINT32 count = HBA_GetNumberOfAdapters();
    for (HBA_UINT32 i = 0; i < count; ++i) {
        char name[256] = {0};
        EXPECT_EQ(HBA_GetAdapterName(i, name), HBA_STATUS_OK);
        names.push_back(name);
    }
    return names;
}

class HBACommonLibraryTest : public vekRootTest {
protected:
    void SetUp() override
    {
        root.writeFile("/sim/libfakehba_qlogic.json", scenario("ql", 2));
        root.writeFile("/sim/libfakehba_emulex.json", scenario("em", 1));
    }
    void TearDown() override { HBA_FreeLibrary(); }

    void writeList(const std::string& text) { root.writeFile(vekHBACommonLibrary::kConfigurationFile, text); }
};

// What each kind of line of hba.conf gives: the libraries that load, in order.
TEST_F(HBACommonLibraryTest, EachLineOfTheListHasItsOutcome)
{
    const std::string notALibrary = root.hostPath("/sim/libfakehba_qlogic.json");
    const std::string noRegister = std::string(VEK_BINARY_DIR) + "/testtools/lib/broken/libfakehba_noreg.so";
    struct Case {
        const char* what;
        std::string list;
        std::string emulexScenario;
        std::vector<std::string> adapters;
    } cases[] = {
        {"comments, blanks and a line without separator", "# a comment\n\n   \nnoseparator\ncom.ql\t" + kQLogic + "\n",
         "", {"ql-0", "ql-1"}},
        {"blank separator, and a path that ends at a blank", "com.em  " + kEmulex + " extra words\ncom.ql\t" + kQLogic,
         "", {"em-0", "ql-0", "ql-1"}},
        {"a path that is not a library, then a good one", "bad\t" + notALibrary + "\ncom.em\t" + kEmulex, "", {"em-0"}},
        {"a library without HBA_RegisterLibrary", "noreg\t" + noRegister + "\ncom.ql\t" + kQLogic, "",
         {"ql-0", "ql-1"}},
        {"a path cut at a character outside the path set", "com.ql\t" + kQLogic + "*junk\n", "", {"ql-0", "ql-1"}},
        {"a vendor that refuses to register", "com.em\t" + kEmulex + "\ncom.ql\t" + kQLogic,
         scenario("em", 1, "\"register\": 1"), {"ql-0", "ql-1"}},
        {"a vendor whose load fails", "com.em\t" + kEmulex + "\ncom.ql\t" + kQLogic, scenario("em", 1, "\"load\": 1"),
         {"ql-0", "ql-1"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        writeList(c.list);
        root.writeFile("/sim/libfakehba_emulex.json", c.emulexScenario.empty() ? scenario("em", 1) : c.emulexScenario);
        ASSERT_EQ(HBA_LoadLibrary(), HBA_STATUS_OK);
        EXPECT_EQ(adapterNames(), c.adapters);
        HBA_FreeLibrary();
    }
}

TEST_F(HBACommonLibraryTest, WithoutTheListNothingLoads)
{
    EXPECT_EQ(HBA_LoadLibrary(), HBA_STATUS_ERROR);
    EXPECT_EQ(HBA_GetNumberOfAdapters(), 0u);
    char name[256];
    EXPECT_EQ(HBA_GetAdapterName(0, name), HBA_STATUS_ERROR_ILLEGAL_INDEX);
}

// A handle names its library in its upper half; calls go to that library.
TEST_F(HBACommonLibraryTest, HandlesLeadToTheirLibrary)
{
    writeList("com.em\t" + kEmulex + "\ncom.ql\t" + kQLogic + "\n");
    ASSERT_EQ(HBA_LoadLibrary(), HBA_STATUS_OK);
    ASSERT_EQ(HBA_GetNumberOfAdapters(), 3u);
    char name[] = "ql-1";
    const HBA_HANDLE handle = HBA_OpenAdapter(name);
    EXPECT_EQ(handle, (1u << 16) | 2u);
    HBA_ADAPTERATTRIBUTES attributes{};
    ASSERT_EQ(HBA_GetAdapterAttributes(handle, &attributes), HBA_STATUS_OK);
    EXPECT_STREQ(attributes.Manufacturer, "ql");
    EXPECT_EQ(attributes.NodeWWN.wwn[7], 1);
    char path[vekHBACommonLibrary::kLibraryPathSize];
    HBA_HANDLE vendor = 0;
    EXPECT_EQ(HBA_GetLibraryPath(handle, path, &vendor), HBA_STATUS_OK);
    EXPECT_EQ(path, kQLogic);
    EXPECT_EQ(vendor, 2u);
    char unknown[] = "nobody";
    EXPECT_EQ(HBA_OpenAdapter(unknown), 0u);
    // A library index past the table, and one at its very end.
    EXPECT_EQ(HBA_GetAdapterAttributes(33u << 16, &attributes), HBA_STATUS_ERROR_INVALID_HANDLE);
    EXPECT_EQ(HBA_CheckLibrary(32u << 16, nullptr, nullptr), HBA_STATUS_ERROR);
    EXPECT_EQ(HBA_CheckLibrary(2u << 16, nullptr, nullptr), HBA_STATUS_ERROR);
}

// 40 libraries and 3 adapters each: 32 libraries, 64 adapters, no overrun.
TEST_F(HBACommonLibraryTest, TablesKeepTheirBounds)
{
    root.writeFile("/sim/libfakehba_qlogic.json", scenario("ql", 3));
    std::string list;
    for (int i = 0; i < 40; ++i) {
        list += "lib" + std::to_string(i) + "\t" + kQLogic + "\n";
    }
    writeList(list);
    ASSERT_EQ(HBA_LoadLibrary(), HBA_STATUS_OK);
    EXPECT_EQ(HBA_CheckLibrary(31u << 16, nullptr, nullptr), HBA_STATUS_OK);
    EXPECT_EQ(HBA_CheckLibrary(32u << 16, nullptr, nullptr), HBA_STATUS_ERROR);
    EXPECT_EQ(HBA_GetNumberOfAdapters(), 64u);
    char name[256];
    EXPECT_EQ(HBA_GetAdapterName(63, name), HBA_STATUS_OK);
    EXPECT_STREQ(name, "ql-0"); // the 22nd library's first
    EXPECT_EQ(HBA_GetAdapterName(64, name), HBA_STATUS_ERROR_ILLEGAL_INDEX);
}

TEST_F(HBACommonLibraryTest, DebiansLibhbalinuxLoadsAndSeesThisMachinesHosts)
{
    writeList("org.open-fcoe.libhbalinux\t/usr/lib/libhbalinux.so.2\n");
    ASSERT_EQ(HBA_LoadLibrary(), HBA_STATUS_OK);
    EXPECT_EQ(HBA_CheckLibrary(0, nullptr, nullptr), HBA_STATUS_OK) << "libhbalinux did not load";
    FILE* hosts = popen("ls /sys/class/fc_host 2>/dev/null | wc -l", "r");
    unsigned int expected = 0;
    ASSERT_EQ(fscanf(hosts, "%u", &expected), 1);
    pclose(hosts);
    EXPECT_EQ(HBA_GetNumberOfAdapters(), expected);
}

// Debian's libHBAAPI reads /etc/hba.conf: it gets the same list there in a
// mount namespace of its own.
TEST_F(HBACommonLibraryTest, SameAdaptersAsDebiansCommonLibrary)
{
    writeList("com.ql\t" + kQLogic + "\ncom.em\t" + kEmulex + "\n");
    const std::string probe = std::string(VEK_BINARY_DIR) + "/testtools/fchba/hbaprobe";
    auto run = [](const std::string& command) {
        std::string out;
        FILE* pipe = popen(command.c_str(), "r");
        char buffer[4096];
        for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
            out.append(buffer, n);
        }
        const int status = pclose(pipe);
        return status == 0 ? out : std::string();
    };
    const std::string reference =
        run("unshare -rm sh -c 'mount --bind \"$0\" /etc/hba.conf && exec \"$1\" /usr/lib/libHBAAPI.so.2' '" +
            root.hostPath(vekHBACommonLibrary::kConfigurationFile) + "' '" + probe + "' 2>/dev/null");
    if (reference.empty()) {
        GTEST_SKIP() << "no private mount namespace here (unshare -rm): libHBAAPI cannot get its own /etc/hba.conf";
    }
    const std::string ours = run("'" + probe + "' '" + VEK_BINARY_DIR + "/src/libvek.so'");
    auto adapters = [](const std::string& text) {
        Json::Value value;
        std::istringstream in(text);
        EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &value, nullptr)) << text;
        EXPECT_EQ(value["load"].asInt(), 0);
        std::vector<std::string> sorted;
        for (const Json::Value& adapter : value["adapters"]) {
            sorted.push_back(Json::writeString(Json::StreamWriterBuilder(), adapter));
        }
        std::sort(sorted.begin(), sorted.end());
        return sorted;
    };
    const std::vector<std::string> expected = adapters(reference);
    ASSERT_EQ(expected.size(), 3u);
    EXPECT_NE(expected[0].find("\"NodeWWN\" : \"20:00:00:00:00:00:00:00\""), std::string::npos) << expected[0];
    EXPECT_EQ(adapters(ours), expected);
}

} // namespace
