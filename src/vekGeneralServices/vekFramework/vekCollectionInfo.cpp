#include "vekCollectionInfo.h"

const std::string& vekCollectionInfo::getCollectionType() const
{
    return collectionType_;
}

void vekCollectionInfo::setCollectionType(const std::string& type)
{
    collectionType_ = type;
}

int vekCollectionInfo::getCollectionFrequencyMin() const
{
    return collectionFrequencyMin_;
}

void vekCollectionInfo::setCollectionFrequencyMin(int minutes)
{
    collectionFrequencyMin_ = minutes;
}

const std::string& vekCollectionInfo::getLastCollection() const
{
    return lastCollection_;
}

void vekCollectionInfo::setLastCollection(const std::string& utcTime)
{
    lastCollection_ = utcTime;
}
