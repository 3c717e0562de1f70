#include "Vela_N10n.h"

#include <gtest/gtest.h>

TEST(Vela_N10n, ZeroOnVelocityNoticeReachesSubscribersWhileTheyAreSubscribed) {
    int received = 0;
    {
        Cmn_Subscribable<Vela_N10n_MIDIZeroOnVelocitiesFound> subscription(
            [&received](const Vela_N10n_MIDIZeroOnVelocitiesFound&) { ++received; });
        Cmn_N10nCenter::Sender()->Send(Vela_N10n_MIDIZeroOnVelocitiesFound());
        EXPECT_EQ(received, 1);
    }
    Cmn_N10nCenter::Sender()->Send(Vela_N10n_MIDIZeroOnVelocitiesFound());
    EXPECT_EQ(received, 1);
}
