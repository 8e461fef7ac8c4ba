#pragma once

// An in-memory tree of a directory hierarchy under /sys, used on the Linux
// paths to find devices and read their attributes. Paths given to and kept by
// the tree are host paths ("/sys/class/scsi_host/host2"); the files are read
// under the path root, so the same tree serves the real /sys and a simulated
// host's sys/.

#include <sys/stat.h>

#include <cstddef>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

class SysFsElement {
public:
    SysFsElement(std::string name, std::string path, const struct stat& st);
    virtual ~SysFsElement() = default;
    virtual const std::string& getName() const;
    virtual const std::string& getPath() const;
    // The separator between values of a multi-value attribute ("" for one value).
    virtual std::string getValueSeparator() const;
    // An attribute's content, a link's target; "" for a directory.
    virtual std::string getValue() const = 0;
    const struct stat& getStat() const;
    mode_t getPermissions() const;

private:
    std::string name_;
    std::string path_;
    struct stat stat_;
};

class SysFsDirectory : public SysFsElement {
public:
    using SysFsElement::SysFsElement;
    std::string getValue() const override;
};

class SysFsAttrib : public SysFsElement {
public:
    using SysFsElement::SysFsElement;
    // Reads the file now (under the path root); false when it can't be read.
    bool readData();
    std::string getValue() const override;

private:
    std::string data_;
};

class SysFsLink : public SysFsElement {
public:
    SysFsLink(std::string name, std::string path, const struct stat& st, std::string target);
    std::string getValue() const override;

private:
    std::string target_;
};

class SysFsTreeElement {
public:
    SysFsTreeElement() = default;
    explicit SysFsTreeElement(std::unique_ptr<SysFsElement> element);
    void setElement(std::unique_ptr<SysFsElement> element);
    SysFsElement* getElement() const;
    SysFsTreeElement* addChildtoBack(std::unique_ptr<SysFsTreeElement> child);
    const std::vector<std::unique_ptr<SysFsTreeElement>>& getChildren() const;
    SysFsTreeElement* findChild(const std::string& name) const;
    // Drops the children, for a rebuild of the part below this element.
    void clearChildren();

private:
    std::unique_ptr<SysFsElement> element_;
    std::vector<std::unique_ptr<SysFsTreeElement>> children_;
};

class SysFs {
public:
    SysFs();
    // Rebuilds the part of the tree under 'path' ("/sys/class/scsi_device")
    // from the file system; false when the path can't be read.
    bool synchronize(const std::string& path);
    // True when 'path' is in the tree (links followed on the way).
    bool existsPath(const std::string& path) const;
    // True when an element named 'name' lies anywhere under 'path'.
    bool exists(const std::string& path, const std::string& name) const;
    // True when some attribute named "class" under the tree holds "0x%04x00".
    bool existsDeviceClass(unsigned int deviceClass) const;
    // Host paths of the elements named 'name' under 'path'.
    std::vector<std::string> getPaths(const std::string& path, const std::string& name) const;
    // The value at 'path' (an attribute's content without its trailing newline,
    // a link's target), following links on the way: through the tree, and
    // through the file system where a link leads out of what was synchronized;
    // false when absent or unreadable.
    bool getValue(const std::string& path, std::string& value) const;
    // Names of the entries of the directory at 'path' (links followed), in
    // the order the file system gave them.
    std::vector<std::string> dirList(const std::string& path) const;
    // The host path a link at 'path' resolves to ("../" parts resolved against
    // the link's own directory); the path itself when it is no link.
    std::string resolve(const std::string& path) const;
    void deleteAll();
    void toCout(std::ostream& out) const;
    // Counts of directories, attributes and links, as one line of text.
    std::string stats() const;

private:
    std::unique_ptr<SysFsTreeElement> root_;
};
