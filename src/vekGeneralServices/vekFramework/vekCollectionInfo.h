#pragma once

#include <string>

// When and how an inventory was collected: the "CollectionInfo" of a
// manager's inventory.
class vekCollectionInfo {
public:
    const std::string& getCollectionType() const;
    void setCollectionType(const std::string& type);

    // Minutes between two full pushes of the inventory.
    int getCollectionFrequencyMin() const;
    void setCollectionFrequencyMin(int minutes);

    // UTC time text of the collection.
    const std::string& getLastCollection() const;
    void setLastCollection(const std::string& utcTime);

private:
    std::string collectionType_;
    int collectionFrequencyMin_ = 0;
    std::string lastCollection_;
};
