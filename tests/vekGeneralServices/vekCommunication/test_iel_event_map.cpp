// The RMC's numbers of the internal event ids, per platform generation.

#include "IELEvent.h"

#include <gtest/gtest.h>

#include <map>
#include <stdexcept>

namespace {

using IELEVENT::IELEventId;

// Every id the resolver answers, found by asking it for a wide range; the
// others raise "IEL Event Not Matching".
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

TEST(IELEventMapTest, TablesOfTheTwoPlatformGenerations)
{
    // The numbers both tables share.
    const std::map<int, int> shared = {
        {2, 434},   {3, 435},   {4, 356},   {5, 359},   {6, 360},   {7, 397},   {8, 398},   {9, 835},
        {10, 837},  {11, 836},  {12, 540},  {13, 538},  {14, 539},  {15, 383},  {16, 384},  {17, 385},
        {18, 386},  {19, 388},  {20, 390},  {21, 1391}, {22, 681},  {23, 683},  {24, 1385}, {25, 1387},
        {26, 1388}, {27, 680},  {28, 678},  {29, 1384}, {30, 1390}, {31, 708},  {32, 1138}, {33, 1139},
        {34, 1150}, {36, 1152}, {37, 1148}, {38, 1151}, {39, 1179}, {40, 1180}, {41, 1181}, {42, 1182},
        {43, 1183}, {44, 1337}, {45, 1338},
    };
    std::map<int, int> trb = shared;
    trb.insert({{35, 1978}, {46, 1750}, {47, 1751}, {48, 1752}, {49, 1968}, {50, 1969}});
    std::map<int, int> preTrb = shared;
    preTrb.insert({{35, 1501}, {46, 1441}, {47, 1442}, {48, 1443}});

    IELEventMap::IELEventTRB trbMap;
    IELEventMap::IELEventPreTRB preTrbMap;
    EXPECT_EQ(resolvedIds(trbMap), trb);
    EXPECT_EQ(resolvedIds(preTrbMap), preTrb);
}

} // namespace
