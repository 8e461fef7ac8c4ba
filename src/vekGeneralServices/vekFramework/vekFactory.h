#pragma once

class vekResourceManager;

// Maps a Resource Manager id to that manager's singleton. Stateless: callers
// make one just for the call, and the same id always gives the same instance.
class vekFactory {
public:
    virtual ~vekFactory() = default;

    // The manager of an id (see vekResourceIds), or a null pointer for an id
    // that has no manager.
    virtual vekResourceManager* createInstance(int id);
};
