#include "Cmn_N10n.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "AssertCapture.h"

namespace {
struct TestMsg : Cmn_MsgBase {
    int mValue = 0;
};
struct OtherMsg : Cmn_MsgBase {};

size_t Subscribers() { return Cmn_N10nCenter::Sender()->GetSubscriberCount(Cmn_MsgId::Of<TestMsg>()); }
}  // namespace

TEST(Cmn_N10n, DeliversToEverySubscriberOfItsClassUntilItGoes) {
    int firstSum = 0;
    int secondSum = 0;
    TestMsg msg;
    msg.mValue = 5;
    {
        Cmn_Subscribable<TestMsg> first([&](const TestMsg& iMsg) { firstSum += iMsg.mValue; });
        {
            Cmn_Subscribable<TestMsg> second([&](const TestMsg& iMsg) { secondSum += iMsg.mValue; });
            EXPECT_EQ(Subscribers(), 2u);
            Cmn_N10nCenter::Sender()->Send(msg);
        }
        Cmn_N10nCenter::Sender()->Send(msg);
        Cmn_N10nCenter::Sender()->Send(OtherMsg());
    }
    Cmn_N10nCenter::Sender()->Send(msg);
    EXPECT_EQ(firstSum, 10);
    EXPECT_EQ(secondSum, 5);
    EXPECT_EQ(Subscribers(), 0u);
}

TEST(Cmn_N10n, HandlerOfTheWrongTypeIsReportedAndSkipped) {
    AssertCapture capture;
    int calls = 0;
    auto senderP = Cmn_N10nCenter::Sender();
    auto wrong = senderP->Subscribe(Cmn_MsgId::Of<TestMsg>(), std::make_shared<Cmn_MsgFunctionImpl<OtherMsg>>(
                                                                 [&](const OtherMsg&) { ++calls; }));
    Cmn_Subscribable<TestMsg> right([&](const TestMsg&) { ++calls; });
    senderP->Send(TestMsg());
    senderP->Unsubscribe(wrong);
    EXPECT_EQ(calls, 1);
    ASSERT_EQ(capture.Count(), 1u);
    EXPECT_EQ(capture.Condition(), "Can't cast to correct Cmn_MsgFunctionImpl< TMsg >");
}

TEST(Cmn_N10n, HandlerMayUnsubscribeAnotherDuringDelivery) {
    auto senderP = Cmn_N10nCenter::Sender();
    int laterCalls = 0;
    Cmn_MsgSender::SubscriptionId later = 0;
    auto first = senderP->Subscribe<TestMsg>([&](const TestMsg&) { senderP->Unsubscribe(later); });
    later = senderP->Subscribe<TestMsg>([&](const TestMsg&) { ++laterCalls; });
    senderP->Send(TestMsg());
    senderP->Unsubscribe(first);
    EXPECT_EQ(laterCalls, 0);
}

TEST(Cmn_N10n, ConcurrentSubscribeAndSendThreads) {
    std::atomic<bool> stop{false};
    std::thread sender([&] {
        while (!stop.load()) Cmn_N10nCenter::Sender()->Send(TestMsg());
    });
    std::atomic<int> delivered{0};  // written by the sender thread while subscribers come and go
    for (int i = 0; i < 200; ++i) Cmn_Subscribable<TestMsg> subscriber([&](const TestMsg&) { ++delivered; });
    stop = true;
    sender.join();
    EXPECT_EQ(Subscribers(), 0u);
}
