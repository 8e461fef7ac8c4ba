#include "storage_model.h"

#include <json/json.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>

namespace simstorage {

namespace {

// One table of fields per record kind: its JSON name, how to read it from
// JSON, how to write it, and how to set it from the text of an assignment.
template <typename T>
struct Field {
    const char* name;
    std::function<void(T&, const Json::Value&)> read;
    std::function<Json::Value(const T&)> write;
    std::function<void(T&, const std::string&)> set;
};

long long toInteger(const std::string& key, const std::string& text)
{
    try {
        size_t used = 0;
        long long value = std::stoll(text, &used, 0);
        if (used == text.size()) {
            return value;
        }
    } catch (const std::exception&) {
    }
    throw ModelError("'" + key + "' needs a whole number, not '" + text + "'");
}

bool toBool(const std::string& key, const std::string& text)
{
    if (text == "true") {
        return true;
    }
    if (text == "false") {
        return false;
    }
    throw ModelError("'" + key + "' needs true or false, not '" + text + "'");
}

long long jsonInteger(const char* key, const Json::Value& value)
{
    if (!value.isIntegral()) {
        throw ModelError(std::string("'") + key + "' must be a whole number");
    }
    return value.isUInt64() ? static_cast<long long>(value.asUInt64()) : value.asInt64();
}

template <typename T, typename M>
Field<T> stringField(const char* name, M T::*member)
{
    return {name,
            [=](T& r, const Json::Value& v) {
                if (!v.isString()) {
                    throw ModelError(std::string("'") + name + "' must be a string");
                }
                r.*member = v.asString();
            },
            [=](const T& r) { return Json::Value(r.*member); },
            [=](T& r, const std::string& text) { r.*member = text; }};
}

template <typename T, typename M>
Field<T> integerField(const char* name, M T::*member)
{
    return {name, [=](T& r, const Json::Value& v) { r.*member = static_cast<M>(jsonInteger(name, v)); },
            [=](const T& r) { return Json::Value(static_cast<Json::Int64>(r.*member)); },
            [=](T& r, const std::string& text) { r.*member = static_cast<M>(toInteger(name, text)); }};
}

template <typename T>
Field<T> boolField(const char* name, bool T::*member)
{
    return {name,
            [=](T& r, const Json::Value& v) {
                if (!v.isBool()) {
                    throw ModelError(std::string("'") + name + "' must be true or false");
                }
                r.*member = v.asBool();
            },
            [=](const T& r) { return Json::Value(r.*member); },
            [=](T& r, const std::string& text) { r.*member = toBool(name, text); }};
}

const std::vector<Field<Hba>>& hbaFields()
{
    static const std::vector<Field<Hba>> fields = {
        stringField("id", &Hba::id),
        stringField("pci", &Hba::pci),
        integerField("host", &Hba::host),
        stringField("procName", &Hba::procName),
        stringField("firmware", &Hba::firmware),
        stringField("serial", &Hba::serial),
        stringField("state", &Hba::state),
        integerField("vendorId", &Hba::vendorId),
        integerField("deviceId", &Hba::deviceId),
        integerField("subVendorId", &Hba::subVendorId),
        integerField("subDeviceId", &Hba::subDeviceId),
        boolField("present", &Hba::present),
        integerField("ataPorts", &Hba::ataPorts),
        integerField("ataBase", &Hba::ataBase),
    };
    return fields;
}

const std::vector<Field<Device>>& deviceFields()
{
    static const std::vector<Field<Device>> fields = {
        stringField("id", &Device::id),
        stringField("hba", &Device::hba),
        integerField("target", &Device::target),
        integerField("sg", &Device::sg),
        stringField("block", &Device::block),
        integerField("deviceType", &Device::deviceType),
        stringField("transport", &Device::transport),
        stringField("vendor", &Device::vendor),
        stringField("model", &Device::model),
        stringField("revision", &Device::revision),
        stringField("serial", &Device::serial),
        stringField("wwn", &Device::wwn),
        integerField("blocks", &Device::blocks),
        integerField("blockSize", &Device::blockSize),
        integerField("rotationRate", &Device::rotationRate),
        integerField("temperature", &Device::temperature),
        integerField("maxTemperature", &Device::maxTemperature),
        integerField("wear", &Device::wear),
        integerField("powerOnHours", &Device::powerOnHours),
        stringField("health", &Device::health),
        integerField("smartErrors", &Device::smartErrors),
        stringField("state", &Device::state),
        integerField("bay", &Device::bay),
        integerField("bays", &Device::bays),
        boolField("present", &Device::present),
    };
    return fields;
}

template <typename T>
T readRecord(const Json::Value& object, const std::vector<Field<T>>& fields, const char* what)
{
    if (!object.isObject()) {
        throw ModelError(std::string("every ") + what + " must be an object");
    }
    T record;
    std::set<std::string> known;
    for (const auto& field : fields) {
        known.insert(field.name);
        if (object.isMember(field.name)) {
            field.read(record, object[field.name]);
        }
    }
    for (const auto& name : object.getMemberNames()) {
        if (known.count(name) == 0) {
            throw ModelError(std::string("unknown key '") + name + "' in a " + what);
        }
    }
    return record;
}

template <typename T>
Json::Value writeRecord(const T& record, const std::vector<Field<T>>& fields)
{
    Json::Value object(Json::objectValue);
    for (const auto& field : fields) {
        object[field.name] = field.write(record);
    }
    return object;
}

template <typename T>
void setField(T& record, const std::vector<Field<T>>& fields, const std::string& key, const std::string& text)
{
    for (const auto& field : fields) {
        if (key == field.name) {
            if (key == "id") {
                throw ModelError("an id can't be changed");
            }
            field.set(record, text);
            return;
        }
    }
    throw ModelError("unknown key '" + key + "'");
}

void check(const Storage& storage)
{
    std::set<std::string> ids;
    std::set<int> hosts;
    for (const auto& hba : storage.hbas) {
        if (hba.id.empty() || !ids.insert(hba.id).second) {
            throw ModelError("adapter id '" + hba.id + "' is empty or used twice");
        }
        if (hba.ataPorts < 0 || hba.ataBase < 1) {
            throw ModelError("adapter '" + hba.id + "': ataPorts must not be negative, ataBase at least 1");
        }
        for (int port = 0; port < std::max(hba.ataPorts, 1); ++port) {
            if (!hosts.insert(hba.host + port).second) {
                throw ModelError("host number " + std::to_string(hba.host + port) + " is used twice");
            }
        }
    }
    std::set<int> sgs;
    for (const auto& device : storage.devices) {
        if (device.id.empty() || !ids.insert(device.id).second) {
            throw ModelError("device id '" + device.id + "' is empty or used twice");
        }
        if (storage.findHba(device.hba) == nullptr) {
            throw ModelError("device '" + device.id + "' names no known adapter ('" + device.hba + "')");
        }
        if (device.sg < 0 || !sgs.insert(device.sg).second) {
            throw ModelError("device '" + device.id + "': sg number " + std::to_string(device.sg) +
                             " is negative or used twice");
        }
    }
}

} // namespace

const Hba* Storage::findHba(const std::string& id) const
{
    for (const auto& hba : hbas) {
        if (hba.id == id) {
            return &hba;
        }
    }
    return nullptr;
}

Hba* Storage::findHba(const std::string& id)
{
    return const_cast<Hba*>(static_cast<const Storage*>(this)->findHba(id));
}

Device* Storage::findDevice(const std::string& id)
{
    for (auto& device : devices) {
        if (device.id == id) {
            return &device;
        }
    }
    return nullptr;
}

std::string descriptionPath(const std::string& root) { return root + "/sim/disks.json"; }

Storage parse(const std::string& text)
{
    Json::CharReaderBuilder builder;
    Json::Value document;
    std::string errors;
    std::istringstream in(text);
    if (!Json::parseFromStream(builder, in, &document, &errors)) {
        throw ModelError("not JSON: " + errors);
    }
    if (!document.isObject()) {
        throw ModelError("the description must be an object with \"hbas\" and \"devices\"");
    }
    Storage storage;
    for (const auto& hba : document["hbas"]) {
        storage.hbas.push_back(readRecord(hba, hbaFields(), "adapter"));
    }
    for (const auto& device : document["devices"]) {
        storage.devices.push_back(readRecord(device, deviceFields(), "device"));
    }
    check(storage);
    return storage;
}

Storage load(const std::string& path)
{
    std::ifstream in(path);
    if (!in) {
        throw ModelError("can't read " + path);
    }
    std::ostringstream text;
    text << in.rdbuf();
    return parse(text.str());
}

std::string render(const Storage& storage)
{
    Json::Value document(Json::objectValue);
    document["hbas"] = Json::Value(Json::arrayValue);
    document["devices"] = Json::Value(Json::arrayValue);
    for (const auto& hba : storage.hbas) {
        document["hbas"].append(writeRecord(hba, hbaFields()));
    }
    for (const auto& device : storage.devices) {
        document["devices"].append(writeRecord(device, deviceFields()));
    }
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "  ";
    return Json::writeString(writer, document) + "\n";
}

void save(const std::string& path, const Storage& storage)
{
    check(storage);
    // A name of this process's own, so that two writers never share one.
    const std::string temporary = path + ".new." + std::to_string(getpid());
    {
        std::ofstream out(temporary, std::ios::trunc);
        out << render(storage);
        out.flush();
        if (!out) {
            throw ModelError("can't write " + temporary);
        }
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        std::remove(temporary.c_str());
        throw ModelError("can't replace " + path);
    }
}

void apply(Storage& storage, const std::string& id, const std::string& assignment)
{
    const size_t equals = assignment.find('=');
    if (equals == std::string::npos || equals == 0) {
        throw ModelError("'" + assignment + "' is no key=value");
    }
    const std::string key = assignment.substr(0, equals);
    const std::string text = assignment.substr(equals + 1);
    if (Device* device = storage.findDevice(id)) {
        setField(*device, deviceFields(), key, text);
    } else if (Hba* hba = storage.findHba(id)) {
        setField(*hba, hbaFields(), key, text);
    } else {
        throw ModelError("no adapter or device '" + id + "'");
    }
    check(storage);
}

} // namespace simstorage
