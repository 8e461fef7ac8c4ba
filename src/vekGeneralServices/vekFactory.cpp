#include "vekFactory.h"

vekResourceManager* vekFactory::createInstance(int id)
{
    // One case per manager (ids of vekResourceIds), each returning its
    // getInstance(). This switch is the one place that knows which ids have
    // a manager.
    switch (id) {
    default:
        return nullptr;
    }
}
