#include "Sys_Umid.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

TEST(Sys_Umid, NoIDIsAllZeroAndHexIsLowercaseInByteOrder) {
    EXPECT_TRUE(Sys_Umid::NoID().IsNoID());
    EXPECT_EQ(Sys_Umid(), Sys_Umid::NoID());
    EXPECT_EQ(Sys_Umid::NoID().AsHexString(), std::string(32, '0'));
    Sys_Umid::Bytes bytes{};
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 0x11);
    bytes[15] = 0xAB;
    EXPECT_EQ(Sys_Umid(bytes).AsHexString(), "00112233445566778899aabbccddeeab");
}

TEST(Sys_Umid, IdsCreatedOnTwoThreadsAreDistinctAndNeverEmpty) {
    std::vector<Sys_Umid> mine(500), theirs(500);
    auto create = [](std::vector<Sys_Umid>* oIdsP) {
        for (Sys_Umid& id : *oIdsP) id = Sys_Umid::Create();
    };
    std::thread other(create, &theirs);
    create(&mine);
    other.join();
    std::set<Sys_Umid> seen;
    for (const auto* idsP : {&mine, &theirs})
        for (const Sys_Umid& id : *idsP) EXPECT_TRUE(!id.IsNoID() && seen.insert(id).second) << id.AsHexString();
}
