#include "IELEvent.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

using IELEVENT::IELEventId;

// Every id the resolver answers, found by asking it for a wide range.
std::map<int, int> resolvedIds(IELEventResolver& resolver)
{
    std::map<int, int> resolved;
    for (int id = -5; id <= 100; ++id) {
        try {
            resolved[id] = resolver(static_cast<IELEventId>(id));
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "IEL Event Not Matching") << id;
        }
    }
    return resolved;
}

// The numbers both tables share.
const std::map<int, int> kShared = {
    {2, 434},   {3, 435},   {4, 356},   {5, 359},   {6, 360},   {7, 397},   {8, 398},   {9, 835},
    {10, 837},  {11, 836},  {12, 540},  {13, 538},  {14, 539},  {15, 383},  {16, 384},  {17, 385},
    {18, 386},  {19, 388},  {20, 390},  {21, 1391}, {22, 681},  {23, 683},  {24, 1385}, {25, 1387},
    {26, 1388}, {27, 680},  {28, 678},  {29, 1384}, {30, 1390}, {31, 708},  {32, 1138}, {33, 1139},
    {34, 1150}, {36, 1152}, {37, 1148}, {38, 1151}, {39, 1179}, {40, 1180}, {41, 1181}, {42, 1182},
    {43, 1183}, {44, 1337}, {45, 1338},
};

TEST(IELEventMapTest, TablesOfTheTwoPlatformGenerations)
{
    std::map<int, int> trb = kShared;
    trb.insert({{35, 1978}, {46, 1750}, {47, 1751}, {48, 1752}, {49, 1968}, {50, 1969}});
    std::map<int, int> preTrb = kShared;
    preTrb.insert({{35, 1501}, {46, 1441}, {47, 1442}, {48, 1443}});

    IELEventMap::IELEventTRB trbMap;
    IELEventMap::IELEventPreTRB preTrbMap;
    EXPECT_EQ(resolvedIds(trbMap), trb);
    EXPECT_EQ(resolvedIds(preTrbMap), preTrb);
    EXPECT_EQ(trb.size(), 49u);
    EXPECT_EQ(preTrb.size(), 47u);
}

TEST(IELEventMapTest, IdsAbsentBeforeTrbRaise)
{
    std::unique_ptr<IELEventResolver> resolver(new IELEventMap::IELEventPreTRB);
    for (IELEventId id : {IELEVENT::IEL_EVENT_49, IELEVENT::IEL_EVENT_50, static_cast<IELEventId>(0),
                          static_cast<IELEventId>(1), static_cast<IELEventId>(51)}) {
        try {
            (*resolver)(id);
            ADD_FAILURE() << "id " << static_cast<int>(id) << " resolved";
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "IEL Event Not Matching");
        }
    }
    std::unique_ptr<IELEventResolver> trb(new IELEventMap::IELEventTRB);
    EXPECT_EQ((*trb)(IELEVENT::IEL_EVENT_49), 1968);
    EXPECT_THROW((*trb)(static_cast<IELEventId>(1)), std::runtime_error);
}

TEST(IELEventMapTest, NamedKindsOfTheResourceFamilies)
{
    IELEventMap::IELEventTRB trb;
    IELEventMap::IELEventPreTRB preTrb;
    const struct {
        IELEventId id;
        int number;
    } cases[] = {
        {IELEVENT::IEL_NIC_PORT_OK, 680},          {IELEVENT::IEL_NIC_PORT_ERROR, 678},
        {IELEVENT::IEL_NIC_PORT_LINK_DOWN, 1384},  {IELEVENT::IEL_NIC_PORT_LINK_UP, 1390},
        {IELEVENT::IEL_FC_PORT_LINK_UP, 1391},     {IELEVENT::IEL_DRIVE_PREDICTIVE_FAILURE, 539},
        {IELEVENT::IEL_STORAGE_CONTROLLER_OK, 397}, {IELEVENT::IEL_CONSISTENCY_CHECK_PASSED, 1388},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(trb(c.id), c.number) << static_cast<int>(c.id);
        EXPECT_EQ(preTrb(c.id), c.number) << static_cast<int>(c.id);
    }
    EXPECT_EQ(static_cast<int>(IELEVENT::IEL_NIC_PORT_OK), 27);
    EXPECT_EQ(static_cast<int>(IELEVENT::IEL_NIC_PORT_LINK_UP), 30);
}

} // namespace
