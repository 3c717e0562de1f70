#include "Cmn_N10n.h"

#include <algorithm>

#include "Cmn_Assert.h"

void Cmn_MsgSender::ReportWrongHandler() {
    Cmn_Assert::HandleMagicAssert(false, "Can't cast to correct Cmn_MsgFunctionImpl< TMsg >" CMN_ASSERT_MARKER __FILE__,
                                  __LINE__);
}

Cmn_MsgSender::SubscriptionId Cmn_MsgSender::Subscribe(const Cmn_MsgId& iId, std::shared_ptr<Cmn_MsgFunction> iFunction) {
    std::lock_guard lock(mMutex);
    SubscriptionId id = mNextId++;
    mSubscriptions[iId].push_back(std::make_shared<Subscription>(Subscription{id, std::move(iFunction)}));
    return id;
}

void Cmn_MsgSender::Unsubscribe(SubscriptionId iSubscription) {
    std::lock_guard lock(mMutex);
    for (auto& [msgId, list] : mSubscriptions) {
        auto found = std::find_if(list.begin(), list.end(), [&](const auto& iEntry) { return iEntry->mId == iSubscription; });
        if (found == list.end()) continue;
        // A delivery in progress on this thread may hold a copy of the list: mark it too.
        (*found)->mActive = false;
        list.erase(found);
        return;
    }
}

size_t Cmn_MsgSender::GetSubscriberCount(const Cmn_MsgId& iId) const {
    std::lock_guard lock(mMutex);
    auto found = mSubscriptions.find(iId);
    return found == mSubscriptions.end() ? 0 : found->second.size();
}

void Cmn_MsgSender::Deliver(const Cmn_MsgId& iId, const Cmn_MsgBase& iMsg, Dispatcher iDispatch) {
    std::lock_guard lock(mMutex);
    auto found = mSubscriptions.find(iId);
    if (found == mSubscriptions.end()) return;
    // Handlers may subscribe or unsubscribe while we deliver: walk a snapshot, and skip
    // entries removed since it was taken. Entries added meanwhile wait for the next message.
    std::vector<std::shared_ptr<Subscription>> snapshot = found->second;
    for (const std::shared_ptr<Subscription>& entry : snapshot)
        if (entry->mActive && entry->mFunction) iDispatch(*entry->mFunction, iMsg);
}

boost::intrusive_ptr<Cmn_MsgSender> Cmn_N10nCenter::Sender() {
    // Never destroyed, so subscribers that outlive static destruction can still unsubscribe.
    static Cmn_MsgSender* const sSenderP = [] {
        auto* senderP = new Cmn_MsgSender;
        intrusive_ptr_add_ref(senderP);
        return senderP;
    }();
    return boost::intrusive_ptr<Cmn_MsgSender>(sSenderP);
}
