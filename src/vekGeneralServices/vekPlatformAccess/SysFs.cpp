#include "SysFs.h"

#include "vekConfig.h"
#include "vekGlobalDef.h"
#include "vekLog.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <functional>
#include <utility>

namespace {

const char* const TAG = "SYSFS";

// sysfs attributes hold at most a page; binary ones (a PCI ROM, a BAR) may be
// far larger and are of no use here.
const size_t kMaxAttributeBytes = 4096;
// As the kernel's own limit on nested links; a loop of links ends here.
const int kMaxLinkHops = 40;

std::string underRoot(const std::string& hostPath)
{
    return vekConfig::getEnv() + hostPath;
}

std::string childPath(const std::string& dir, const std::string& name)
{
    return (dir == "/" ? "" : dir) + "/" + name;
}

bool readLinkTarget(const std::string& hostPath, std::string& target)
{
    char buffer[PATH_MAX];
    const ssize_t length = readlink(underRoot(hostPath).c_str(), buffer, sizeof(buffer));
    if (length < 0 || static_cast<size_t>(length) >= sizeof(buffer)) {
        return false;
    }
    target.assign(buffer, static_cast<size_t>(length));
    return true;
}

// Reads one attribute, without blocking on the few that would wait for an
// event, and cuts the kernel's trailing newline.
bool readAttribute(const std::string& hostPath, std::string& value)
{
    const int fd = open(underRoot(hostPath).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    char buffer[kMaxAttributeBytes];
    ssize_t length;
    do {
        length = read(fd, buffer, sizeof(buffer));
    } while (length < 0 && errno == EINTR);
    close(fd);
    if (length < 0) {
        return false;
    }
    value.assign(buffer, static_cast<size_t>(length));
    if (!value.empty() && value.back() == '\n') {
        value.pop_back();
    }
    return true;
}

struct DirCloser {
    void operator()(DIR* dir) const { closedir(dir); }
};

// The tokens of a path: its components, without empty ones and ".".
std::vector<std::string> _tokenizePath(const std::string& path)
{
    std::vector<std::string> tokens;
    for (std::string& piece : vekGlobalDef::stringUtils::splitStringstream(path, '/')) {
        if (!piece.empty() && piece != ".") {
            tokens.push_back(std::move(piece));
        }
    }
    return tokens;
}

std::string joinTokens(const std::vector<std::string>& tokens, size_t from)
{
    std::string path;
    for (size_t i = from; i < tokens.size(); ++i) {
        path += "/" + tokens[i];
    }
    return path.empty() ? "/" : path;
}

// The host path a link's target names: an absolute target as it stands, a
// relative one against the link's own directory, ".." resolved either way.
std::string _makeAbsolutePath(const std::string& linkPath, const std::string& target)
{
    std::vector<std::string> resolved;
    if (target.empty() || target[0] != '/') {
        resolved = _tokenizePath(linkPath);
        if (!resolved.empty()) {
            resolved.pop_back();
        }
    }
    for (const std::string& token : _tokenizePath(target)) {
        if (token == "..") {
            if (!resolved.empty()) {
                resolved.pop_back();
            }
        } else {
            resolved.push_back(token);
        }
    }
    return joinTokens(resolved, 0);
}

std::unique_ptr<SysFsElement> makeElement(const std::string& name, const std::string& path, const struct stat& st)
{
    if (S_ISLNK(st.st_mode)) {
        std::string target;
        if (!readLinkTarget(path, target)) {
            return nullptr;
        }
        return std::make_unique<SysFsLink>(name, path, st, target);
    }
    if (S_ISREG(st.st_mode)) {
        auto attribute = std::make_unique<SysFsAttrib>(name, path, st);
        // An attribute that can't be read (write-only, or refused) stays in
        // the tree with an empty value.
        attribute->readData();
        return attribute;
    }
    if (S_ISDIR(st.st_mode)) {
        return std::make_unique<SysFsDirectory>(name, path, st);
    }
    return nullptr;
}

// The elements of one directory, in the order the file system gives them.
// A link is never entered, nor is the debug file system, whose reads can
// stall or change the hardware's state. False when the directory can't be read.
bool _traversDir(const std::string& path, std::vector<std::unique_ptr<SysFsElement>>& list)
{
    struct stat st;
    if (lstat(underRoot(path).c_str(), &st) != 0) {
        return false;
    }
    if (S_ISLNK(st.st_mode) || path.find("/sys/kernel/debug") != std::string::npos) {
        return true;
    }
    std::unique_ptr<DIR, DirCloser> dir(opendir(underRoot(path).c_str()));
    if (!dir) {
        return false;
    }
    while (const struct dirent* entry = readdir(dir.get())) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        const std::string entryPath = childPath(path, name);
        struct stat entryStat;
        if (lstat(underRoot(entryPath).c_str(), &entryStat) != 0) {
            continue;
        }
        if (auto element = makeElement(name, entryPath, entryStat)) {
            list.push_back(std::move(element));
        }
    }
    return true;
}

// Adds the elements below a directory to its (empty) tree element; false
// when the directory itself can't be read. Unreadable subdirectories stay
// empty.
bool _synchronize(SysFsTreeElement* node, const std::string& path)
{
    std::vector<std::unique_ptr<SysFsElement>> list;
    if (!_traversDir(path, list)) {
        const int error = errno;
        VEK_LOG_DEBUG(TAG, "Cannot read directory [%s]: %s", path.c_str(), strerror(error));
        return false;
    }
    for (auto& element : list) {
        const bool directory = dynamic_cast<SysFsDirectory*>(element.get()) != nullptr;
        const std::string entryPath = element->getPath();
        SysFsTreeElement* child = node->addChildtoBack(std::make_unique<SysFsTreeElement>(std::move(element)));
        if (directory) {
            _synchronize(child, entryPath);
        }
    }
    return true;
}

// Where a path leads, following links: through the tree, and once a link
// has led out of what was synchronized, through the file system. 'node' is
// null for a place reached through the file system.
struct Place {
    std::string hostPath;
    const SysFsTreeElement* node = nullptr;
};

bool walk(const SysFsTreeElement* root, const std::string& wanted, bool followLast, Place& place)
{
    // ".." is resolved here, so that no file system access leaves the root.
    std::string path = _makeAbsolutePath("/", wanted);
    for (int hops = 0; hops <= kMaxLinkHops; ++hops) {
        const std::vector<std::string> tokens = _tokenizePath(path);
        const SysFsTreeElement* node = root;
        std::string current;
        bool followed = false;
        for (size_t i = 0; i < tokens.size() && !followed; ++i) {
            current += "/" + tokens[i];
            bool isLink = false;
            std::string target;
            if (node != nullptr) {
                node = node->findChild(tokens[i]);
                if (node == nullptr && hops == 0) {
                    return false;
                }
                if (node != nullptr) {
                    if (const SysFsLink* link = dynamic_cast<const SysFsLink*>(node->getElement())) {
                        isLink = true;
                        target = link->getValue();
                    }
                }
            }
            if (node == nullptr) {
                struct stat st;
                if (lstat(underRoot(current).c_str(), &st) != 0) {
                    return false;
                }
                isLink = S_ISLNK(st.st_mode);
                if (isLink && !readLinkTarget(current, target)) {
                    return false;
                }
            }
            if (isLink && (followLast || i + 1 < tokens.size())) {
                path = _makeAbsolutePath(current, target) + joinTokens(tokens, i + 1);
                followed = true;
            }
        }
        if (!followed) {
            place.hostPath = current.empty() ? "/" : current;
            place.node = node;
            return true;
        }
    }
    VEK_LOG_DEBUG(TAG, "Too many links on the way to [%s]", wanted.c_str());
    return false;
}

// The value at the end of a path: an attribute's content, a link's target.
bool _getValue(const SysFsTreeElement* root, const std::string& path, std::string& value)
{
    Place place;
    if (!walk(root, path, false, place)) {
        return false;
    }
    if (place.node != nullptr) {
        const SysFsElement* element = place.node->getElement();
        if (element == nullptr || dynamic_cast<const SysFsDirectory*>(element) != nullptr) {
            return false;
        }
        value = element->getValue();
        return true;
    }
    struct stat st;
    if (lstat(underRoot(place.hostPath).c_str(), &st) != 0) {
        return false;
    }
    if (S_ISLNK(st.st_mode)) {
        return readLinkTarget(place.hostPath, value);
    }
    return S_ISREG(st.st_mode) && readAttribute(place.hostPath, value);
}

void visit(const SysFsTreeElement* node, const std::function<void(const SysFsTreeElement&, int)>& action, int depth)
{
    for (const auto& child : node->getChildren()) {
        action(*child, depth);
        visit(child.get(), action, depth + 1);
    }
}

} // namespace

SysFsElement::SysFsElement(std::string name, std::string path, const struct stat& st)
    : name_(std::move(name)), path_(std::move(path)), stat_(st)
{
}

const std::string& SysFsElement::getName() const
{
    return name_;
}

const std::string& SysFsElement::getPath() const
{
    return path_;
}

std::string SysFsElement::getValueSeparator() const
{
    return "";
}

const struct stat& SysFsElement::getStat() const
{
    return stat_;
}

mode_t SysFsElement::getPermissions() const
{
    return stat_.st_mode & 07777;
}

std::string SysFsDirectory::getValue() const
{
    return "";
}

bool SysFsAttrib::readData()
{
    return readAttribute(getPath(), data_);
}

std::string SysFsAttrib::getValue() const
{
    return data_;
}

SysFsLink::SysFsLink(std::string name, std::string path, const struct stat& st, std::string target)
    : SysFsElement(std::move(name), std::move(path), st), target_(std::move(target))
{
}

std::string SysFsLink::getValue() const
{
    return target_;
}

SysFsTreeElement::SysFsTreeElement(std::unique_ptr<SysFsElement> element) : element_(std::move(element)) {}

void SysFsTreeElement::setElement(std::unique_ptr<SysFsElement> element)
{
    element_ = std::move(element);
}

SysFsElement* SysFsTreeElement::getElement() const
{
    return element_.get();
}

SysFsTreeElement* SysFsTreeElement::addChildtoBack(std::unique_ptr<SysFsTreeElement> child)
{
    children_.push_back(std::move(child));
    return children_.back().get();
}

const std::vector<std::unique_ptr<SysFsTreeElement>>& SysFsTreeElement::getChildren() const
{
    return children_;
}

SysFsTreeElement* SysFsTreeElement::findChild(const std::string& name) const
{
    for (const auto& child : children_) {
        if (child->getElement() != nullptr && child->getElement()->getName() == name) {
            return child.get();
        }
    }
    return nullptr;
}

void SysFsTreeElement::clearChildren()
{
    children_.clear();
}

SysFs::SysFs() : root_(std::make_unique<SysFsTreeElement>()) {}

bool SysFs::synchronize(const std::string& path)
{
    std::string wanted = _makeAbsolutePath("/", path);
    for (int hops = 0; hops <= kMaxLinkHops; ++hops) {
        const std::vector<std::string> tokens = _tokenizePath(wanted);
        SysFsTreeElement* node = root_.get();
        std::string current;
        bool followed = false;
        for (size_t i = 0; i < tokens.size() && !followed; ++i) {
            current += "/" + tokens[i];
            struct stat st;
            auto element = lstat(underRoot(current).c_str(), &st) == 0 ? makeElement(tokens[i], current, st) : nullptr;
            if (!element) {
                VEK_LOG_DEBUG(TAG, "Cannot synchronize [%s]: [%s] is not readable", path.c_str(), current.c_str());
                return false;
            }
            const bool last = i + 1 == tokens.size();
            if (!last && !S_ISDIR(st.st_mode) && !S_ISLNK(st.st_mode)) {
                return false;
            }
            const std::string target = element->getValue();
            SysFsTreeElement* child = node->findChild(tokens[i]);
            if (child == nullptr) {
                child = node->addChildtoBack(std::make_unique<SysFsTreeElement>(std::move(element)));
            } else {
                child->setElement(std::move(element));
            }
            // A link on the way: the link stays a leaf, and its target is
            // synchronized in its own place.
            if (S_ISLNK(st.st_mode)) {
                child->clearChildren();
                if (last) {
                    return true;
                }
                wanted = _makeAbsolutePath(current, target) + joinTokens(tokens, i + 1);
                followed = true;
            }
            node = child;
        }
        if (!followed) {
            if (node->getElement() != nullptr && dynamic_cast<SysFsDirectory*>(node->getElement()) == nullptr) {
                return true;
            }
            node->clearChildren();
            if (!_synchronize(node, current.empty() ? "/" : current)) {
                return false;
            }
            VEK_LOG_DEBUG(TAG, "Synchronized [%s].", path.c_str());
            return true;
        }
    }
    VEK_LOG_DEBUG(TAG, "Too many links on the way to [%s]", path.c_str());
    return false;
}

bool SysFs::existsPath(const std::string& path) const
{
    Place place;
    return walk(root_.get(), path, false, place);
}

bool SysFs::exists(const std::string& path, const std::string& name) const
{
    return !getPaths(path, name).empty();
}

bool SysFs::existsDeviceClass(unsigned int deviceClass) const
{
    char wanted[32];
    snprintf(wanted, sizeof(wanted), "0x%04x00", deviceClass);
    bool found = false;
    visit(
        root_.get(),
        [&](const SysFsTreeElement& node, int) {
            const SysFsElement* element = node.getElement();
            if (!found && dynamic_cast<const SysFsAttrib*>(element) != nullptr && element->getName() == "class" &&
                element->getValue() == wanted) {
                found = true;
            }
        },
        0);
    return found;
}

std::vector<std::string> SysFs::getPaths(const std::string& path, const std::string& name) const
{
    std::vector<std::string> paths;
    Place place;
    if (!walk(root_.get(), path, true, place) || place.node == nullptr) {
        return paths;
    }
    visit(
        place.node,
        [&](const SysFsTreeElement& node, int) {
            if (node.getElement() != nullptr && node.getElement()->getName() == name) {
                paths.push_back(node.getElement()->getPath());
            }
        },
        0);
    return paths;
}

bool SysFs::getValue(const std::string& path, std::string& value) const
{
    return _getValue(root_.get(), path, value);
}

std::vector<std::string> SysFs::dirList(const std::string& path) const
{
    std::vector<std::string> names;
    Place place;
    if (!walk(root_.get(), path, true, place)) {
        return names;
    }
    if (place.node != nullptr) {
        const SysFsElement* element = place.node->getElement();
        if (element == nullptr || dynamic_cast<const SysFsDirectory*>(element) != nullptr) {
            for (const auto& child : place.node->getChildren()) {
                names.push_back(child->getElement()->getName());
            }
        }
        return names;
    }
    std::vector<std::unique_ptr<SysFsElement>> list;
    if (_traversDir(place.hostPath, list)) {
        for (const auto& element : list) {
            names.push_back(element->getName());
        }
    }
    return names;
}

std::string SysFs::resolve(const std::string& path) const
{
    Place place;
    if (!walk(root_.get(), path, false, place)) {
        return path;
    }
    std::string target;
    if (place.node != nullptr) {
        const SysFsLink* link = dynamic_cast<const SysFsLink*>(place.node->getElement());
        if (link == nullptr) {
            return place.hostPath;
        }
        target = link->getValue();
    } else {
        struct stat st;
        if (lstat(underRoot(place.hostPath).c_str(), &st) != 0 || !S_ISLNK(st.st_mode) ||
            !readLinkTarget(place.hostPath, target)) {
            return place.hostPath;
        }
    }
    return _makeAbsolutePath(place.hostPath, target);
}

void SysFs::deleteAll()
{
    root_ = std::make_unique<SysFsTreeElement>();
}

void SysFs::toCout(std::ostream& out) const
{
    visit(
        root_.get(),
        [&](const SysFsTreeElement& node, int depth) {
            const SysFsElement* element = node.getElement();
            out << std::string(static_cast<size_t>(depth) * 2, ' ');
            if (dynamic_cast<const SysFsLink*>(element) != nullptr) {
                out << element->getName() << " -> " << element->getValue() << '\n';
            } else if (dynamic_cast<const SysFsAttrib*>(element) != nullptr) {
                out << element->getName() << " = " << element->getValue() << '\n';
            } else {
                out << element->getName() << "/\n";
            }
        },
        0);
}

std::string SysFs::stats() const
{
    size_t directories = 0;
    size_t attributes = 0;
    size_t links = 0;
    visit(
        root_.get(),
        [&](const SysFsTreeElement& node, int) {
            const SysFsElement* element = node.getElement();
            if (dynamic_cast<const SysFsLink*>(element) != nullptr) {
                ++links;
            } else if (dynamic_cast<const SysFsAttrib*>(element) != nullptr) {
                ++attributes;
            } else {
                ++directories;
            }
        },
        0);
    return vekLog::format("directories: %zu, attributes: %zu, links: %zu", directories, attributes, links);
}
