#include "vekTestRoot.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

void makeDirs(const std::string& path)
{
    for (size_t pos = 1; pos != std::string::npos;) {
        pos = path.find('/', pos + 1);
        mkdir(path.substr(0, pos).c_str(), 0755);
    }
}

void removeTree(const std::string& path)
{
    std::string cmd = "rm -rf '" + path + "'";
    if (system(cmd.c_str()) != 0) {
        // Leftovers in /tmp are harmless.
    }
}

} // namespace

std::string vekTestTemporaryFolder(const std::string& stem)
{
    const char* tmp = getenv("TMPDIR");
    std::string pattern = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/" + stem + "-XXXXXX";
    if (mkdtemp(&pattern[0]) == nullptr) {
        throw std::runtime_error("mkdtemp failed for " + pattern);
    }
    return pattern;
}

bool vekEventually(const std::function<bool()>& condition, std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

vekTestRoot::vekTestRoot()
{
    root_ = vekTestTemporaryFolder("vek-root");
    const char* prev = getenv("VEK_ROOT");
    hadPreviousRoot_ = prev != nullptr;
    previousRoot_ = prev ? prev : "";
    previousPath_ = getenv("PATH") ? getenv("PATH") : "";
    setenv("VEK_ROOT", root_.c_str(), 1);
    makeDirectory("/opt/zolvek/tmp");
    makeDirectory("/opt/zolvek/vital");
    makeDirectory("/opt/zolvek/data");
    makeDirectory("/sim/cli");
}

vekTestRoot::~vekTestRoot()
{
    if (hadPreviousRoot_) {
        setenv("VEK_ROOT", previousRoot_.c_str(), 1);
    } else {
        unsetenv("VEK_ROOT");
    }
    setenv("PATH", previousPath_.c_str(), 1);
    removeTree(root_);
}

void vekTestRoot::makeDirectory(const std::string& hostAbsolute) const
{
    makeDirs(root_ + hostAbsolute);
}

void vekTestRoot::writeFile(const std::string& hostAbsolute, const std::string& content) const
{
    const std::string full = root_ + hostAbsolute;
    makeDirs(full.substr(0, full.rfind('/')));
    std::ofstream out(full, std::ios::binary | std::ios::trunc);
    out << content;
}

void vekTestRoot::writeCliOutput(const std::string& words, const std::string& output, int exitStatus) const
{
    std::string name;
    std::istringstream in(words);
    std::string word;
    while (in >> word) {
        for (char& c : word) {
            if (c == '/') {
                c = '%';
            }
        }
        name += (name.empty() ? "" : "_") + word;
    }
    writeFile("/sim/cli/" + name + ".txt", output);
    if (exitStatus != 0) {
        writeFile("/sim/cli/" + name + ".rc", std::to_string(exitStatus) + "\n");
    }
}

bool vekTestRoot::exists(const std::string& hostAbsolute) const
{
    struct stat st;
    return lstat((root_ + hostAbsolute).c_str(), &st) == 0;
}

std::string vekTestRoot::readFile(const std::string& hostAbsolute) const
{
    std::ifstream in(root_ + hostAbsolute, std::ios::binary);
    std::stringstream buffer;
    buffer << in.rdbuf();
    return buffer.str();
}

vekLogTail::vekLogTail(std::string file) : file_(std::move(file)), offset_(0)
{
    struct stat st;
    if (stat(file_.c_str(), &st) == 0) {
        offset_ = st.st_size;
    }
}

std::string vekLogTail::newText() const
{
    std::ifstream in(file_, std::ios::binary);
    in.seekg(offset_);
    std::stringstream buffer;
    buffer << in.rdbuf();
    return buffer.str();
}

std::string vekBundledProfileFile(const std::string& relative)
{
    std::ifstream in(std::string(VEK_SIMHOST_DIR) + "/profiles/rack-type4/" + relative, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}
