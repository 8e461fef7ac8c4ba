// A stand-in for libvekhostcore.so: the list of controller descriptors and
// the libraries' allocator. A descriptor is the controller's PCI address as
// text. The controllers listed are those of $VEK_ROOT/sim/libvekhostcore.json
// ({"controllers": ["0000:e6:00.0"]}), or, without that file, every
// controller of the storage library's scenario.

#include "fake_scenario.h"
#include "vekStorageCoreSDK.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct DescriptorList {
    std::vector<std::string> pci;
};

struct ListIterator {
    DescriptorList* list;
    size_t at;
};

char* duplicate(const std::string& text)
{
    char* copy = static_cast<char*>(malloc(text.size() + 1));
    if (copy != nullptr) {
        memcpy(copy, text.c_str(), text.size() + 1);
    }
    return copy;
}

} // namespace

extern "C" {

SA_BYTE InitializeSysCore(const char* accessString)
{
    if (accessString == nullptr || strcmp(accessString, kStorageCoreAccessString) != 0) {
        return 1;
    }
    return fakeReadScenario("libvekhostcore").get("failInitialize", false).asBool() ? 1 : kSysCoreOK;
}

void UnInitializeSysCore(void) {}

SC_DEVICE_LIST SC_CreateControllerDescriptorList(void)
{
    auto* list = new DescriptorList;
    Json::Value own = fakeReadScenario("libvekhostcore")["controllers"];
    if (own.isArray()) {
        for (const Json::Value& pci : own) {
            list->pci.push_back(pci.asString());
        }
    } else {
        for (const Json::Value& controller : fakeScenarioControllers()) {
            list->pci.push_back(controller.get("pci", "").asString());
        }
    }
    return list;
}

void SC_DestroyDeviceDescriptorList(SC_DEVICE_LIST list) { delete static_cast<DescriptorList*>(list); }

SC_DEVICE_LIST_ITERATOR SC_CreateDeviceListIterator(SC_DEVICE_LIST list)
{
    return new ListIterator{static_cast<DescriptorList*>(list), 0};
}

SA_BOOL SC_IsDeviceListIteratorEnd(SC_DEVICE_LIST_ITERATOR iterator)
{
    auto* it = static_cast<ListIterator*>(iterator);
    return it->at >= it->list->pci.size() ? 1 : 0;
}

SC_DEVICE_DESCRIPTOR SC_GetDeviceListItemAt(SC_DEVICE_LIST_ITERATOR iterator)
{
    auto* it = static_cast<ListIterator*>(iterator);
    return it->at < it->list->pci.size() ? const_cast<char*>(it->list->pci[it->at].c_str()) : nullptr;
}

void SC_MoveDeviceListIteratorNext(SC_DEVICE_LIST_ITERATOR iterator) { ++static_cast<ListIterator*>(iterator)->at; }

void SC_DestroyDeviceListIterator(SC_DEVICE_LIST_ITERATOR iterator) { delete static_cast<ListIterator*>(iterator); }

SC_DEVICE_DESCRIPTOR SC_CopyDeviceDescriptor(SC_DEVICE_DESCRIPTOR descriptor)
{
    return descriptor != nullptr ? duplicate(static_cast<const char*>(descriptor)) : nullptr;
}

void* _SA_malloc(size_t size, const char*, int) { return calloc(1, size); }

void _SA_free(void* memory, const char*, int) { free(memory); }

void* _SA_realloc(void* memory, size_t size, const char*, int) { return realloc(memory, size); }

} // extern "C"
