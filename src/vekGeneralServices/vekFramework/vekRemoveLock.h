#pragma once

// Marker bases for objects whose removal must wait for their users. They
// carry no data; a derived class holds whatever its removal needs.

class vekRemoveLock {
public:
    virtual ~vekRemoveLock() {}
};

class vekRemoveLockEx {
public:
    virtual ~vekRemoveLockEx() {}
};
