// A stand-in for the I/O card matrix library (libvekcardmatrix.so), for tests
// and simulated hosts. Its databases are JSON documents of cards (see
// README.md); the hash each must have comes from the scenario file
// $VEK_ROOT/sim/libvekcardmatrix.json, {"hashes": {"vekIOMatrix_v3.db": N}},
// as the real library carries the hashes of the databases it ships with.

#include "vekIOMatrixLibrary.h"

#include <json/json.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>

namespace {

class Card : public vekIODevice {
public:
    explicit Card(Json::Value properties) : properties_(std::move(properties)) {}
    std::string getProperty(const std::string& name) const override
    {
        const Json::Value& value = properties_[name];
        return value.isString() ? value.asString() : value.isNumeric() ? value.asString() : "";
    }

private:
    Json::Value properties_;
};

class Loader : public ioMatrixLoader {
public:
    unsigned long expectedHash(const std::string& databaseName) override
    {
        const char* root = getenv("VEK_ROOT");
        std::ifstream in(std::string(root != nullptr ? root : "") + "/sim/libvekcardmatrix.json");
        Json::Value scenario;
        Json::CharReaderBuilder reader;
        std::string errors;
        if (!in || !Json::parseFromStream(reader, in, &scenario, &errors)) {
            return 0;
        }
        return scenario["hashes"].get(databaseName, 0).asUInt64();
    }

    bool load(const std::string& decoded, std::string& error) override
    {
        Json::Value root;
        Json::CharReaderBuilder reader;
        std::istringstream in(decoded);
        if (!Json::parseFromStream(reader, in, &root, &error)) {
            return false;
        }
        if (!root.isObject() || !root["cards"].isArray()) {
            error = "no list of cards";
            return false;
        }
        for (const Json::Value& card : root["cards"]) {
            if (!card.isObject() || !card["key"].isString()) {
                error = "a card without its key";
                cards_.clear();
                return false;
            }
            cards_[card["key"].asString()].reset(new Card(card));
        }
        return true;
    }

    std::map<std::string, vekIODevice*> devices() override
    {
        std::map<std::string, vekIODevice*> out;
        for (const auto& card : cards_) {
            out[card.first] = card.second.get();
        }
        return out;
    }

private:
    std::map<std::string, std::unique_ptr<Card>> cards_;
};

} // namespace

extern "C" ioMatrixLoader* createObject()
{
    return new Loader();
}

extern "C" void destroyObject(ioMatrixLoader* loader)
{
    delete loader;
}
