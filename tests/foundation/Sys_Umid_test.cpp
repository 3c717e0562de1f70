#include "Sys_Umid.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>

TEST(Sys_Umid, NoIDIsAllZero) {
    EXPECT_TRUE(Sys_Umid::NoID().IsNoID());
    EXPECT_EQ(Sys_Umid::NoID().AsHexString(), std::string(32, '0'));
    EXPECT_EQ(Sys_Umid(), Sys_Umid::NoID());
}

TEST(Sys_Umid, HexStringIsLowercaseByteOrder) {
    Sys_Umid::Bytes bytes{};
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 0x11);
    bytes[15] = 0xAB;
    EXPECT_EQ(Sys_Umid(bytes).AsHexString(), "00112233445566778899aabbccddeeab");
}

TEST(Sys_Umid, CreatedIdsAreDistinctAndNeverEmpty) {
    std::set<Sys_Umid> seen;
    for (int i = 0; i < 1000; ++i) {
        Sys_Umid id = Sys_Umid::Create();
        EXPECT_FALSE(id.IsNoID());
        EXPECT_TRUE(seen.insert(id).second);
    }
}

TEST(Sys_Umid, CreateFromManyThreads) {
    Sys_Umid a, b;
    std::thread first([&] { a = Sys_Umid::Create(); });
    std::thread second([&] { b = Sys_Umid::Create(); });
    first.join();
    second.join();
    EXPECT_NE(a, b);
}
