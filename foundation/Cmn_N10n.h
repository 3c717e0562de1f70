// Notifications: process-wide, typed, synchronous messages.
// A message is a class derived from Cmn_MsgBase; its Cmn_MsgId is its type (typeid), so each
// message class is its own channel. Cmn_N10nCenter::Sender() is the one sender of the process.
// Send(msg) calls, on the sending thread, every handler subscribed for that message class, in
// subscription order. A handler is a Cmn_MsgFunctionImpl<TMsg>; one registered for another
// class under this id is reported ("Can't cast to correct Cmn_MsgFunctionImpl< TMsg >") and
// skipped. Cmn_Subscribable<TMsg> subscribes on construction and unsubscribes on destruction.
// Threads: Subscribe, Unsubscribe and Send may be called from any thread. A delivery holds the
// sender's (recursive) lock, so once Unsubscribe returns its handler is never called again,
// and a handler may itself subscribe, unsubscribe or send. A handler must not wait for another
// thread that subscribes or sends. Not for real-time use: it locks and allocates.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <type_traits>
#include <typeindex>
#include <typeinfo>
#include <utility>
#include <vector>

#include <boost/function.hpp>
#include <boost/intrusive_ptr.hpp>

class Cmn_MsgBase {
public:
    virtual ~Cmn_MsgBase() = default;
};

class Cmn_MsgId {
public:
    explicit Cmn_MsgId(const std::type_info& iType) : mType(iType) {}
    template <class TMsg>
    static Cmn_MsgId Of() {
        static_assert(std::is_base_of_v<Cmn_MsgBase, TMsg>, "messages derive from Cmn_MsgBase");
        return Cmn_MsgId(typeid(TMsg));
    }
    const char* GetName() const { return mType.name(); }
    bool operator==(const Cmn_MsgId& iOther) const { return mType == iOther.mType; }
    bool operator<(const Cmn_MsgId& iOther) const { return mType < iOther.mType; }

private:
    std::type_index mType;
};

// A subscribed handler, of any message class.
class Cmn_MsgFunction {
public:
    virtual ~Cmn_MsgFunction() = default;
};

template <class TMsg>
class Cmn_MsgFunctionImpl : public Cmn_MsgFunction {
public:
    explicit Cmn_MsgFunctionImpl(boost::function<void(const TMsg&)> iFunction) : mFunction(std::move(iFunction)) {}
    void Call(const TMsg& iMsg) const {
        if (mFunction) mFunction(iMsg);
    }

private:
    boost::function<void(const TMsg&)> mFunction;
};

class Cmn_MsgSender {
public:
    using SubscriptionId = uint64_t;

    Cmn_MsgSender() = default;
    Cmn_MsgSender(const Cmn_MsgSender&) = delete;
    Cmn_MsgSender& operator=(const Cmn_MsgSender&) = delete;

    template <class TMsg>
    SubscriptionId Subscribe(boost::function<void(const TMsg&)> iFunction) {
        return Subscribe(Cmn_MsgId::Of<TMsg>(), std::make_shared<Cmn_MsgFunctionImpl<TMsg>>(std::move(iFunction)));
    }
    // The general form: iFunction should be a Cmn_MsgFunctionImpl of the class iId names.
    SubscriptionId Subscribe(const Cmn_MsgId& iId, std::shared_ptr<Cmn_MsgFunction> iFunction);
    // Unknown or already removed ids are ignored.
    void Unsubscribe(SubscriptionId iSubscription);
    size_t GetSubscriberCount(const Cmn_MsgId& iId) const;

    template <class TMsg>
    void Send(const TMsg& iMsg) {
        Deliver(Cmn_MsgId::Of<TMsg>(), iMsg, &Dispatch<TMsg>);
    }

    friend void intrusive_ptr_add_ref(Cmn_MsgSender* iSenderP) { iSenderP->mRefCount.fetch_add(1, std::memory_order_relaxed); }
    friend void intrusive_ptr_release(Cmn_MsgSender* iSenderP) {
        if (iSenderP->mRefCount.fetch_sub(1, std::memory_order_acq_rel) == 1) delete iSenderP;
    }

private:
    struct Subscription {
        SubscriptionId mId;
        std::shared_ptr<Cmn_MsgFunction> mFunction;
        bool mActive = true;
    };
    using Dispatcher = void (*)(const Cmn_MsgFunction&, const Cmn_MsgBase&);

    template <class TMsg>
    static void Dispatch(const Cmn_MsgFunction& iFunction, const Cmn_MsgBase& iMsg) {
        auto* implP = dynamic_cast<const Cmn_MsgFunctionImpl<TMsg>*>(&iFunction);
        if (!implP) {
            ReportWrongHandler();
            return;
        }
        implP->Call(static_cast<const TMsg&>(iMsg));
    }
    static void ReportWrongHandler();
    void Deliver(const Cmn_MsgId& iId, const Cmn_MsgBase& iMsg, Dispatcher iDispatch);

    mutable std::recursive_mutex mMutex;
    std::map<Cmn_MsgId, std::vector<std::shared_ptr<Subscription>>> mSubscriptions;
    SubscriptionId mNextId = 1;
    std::atomic<int32_t> mRefCount{0};
};

class Cmn_N10nCenter {
public:
    // The process-wide sender; it lives until the process ends.
    static boost::intrusive_ptr<Cmn_MsgSender> Sender();
};

// Subscribes iFunction to TMsg at the process-wide sender for this object's lifetime.
template <class TMsg>
class Cmn_Subscribable {
public:
    explicit Cmn_Subscribable(boost::function<void(const TMsg&)> iFunction)
        : mSenderP(Cmn_N10nCenter::Sender()), mSubscription(mSenderP->template Subscribe<TMsg>(std::move(iFunction))) {}
    ~Cmn_Subscribable() { mSenderP->Unsubscribe(mSubscription); }
    Cmn_Subscribable(const Cmn_Subscribable&) = delete;
    Cmn_Subscribable& operator=(const Cmn_Subscribable&) = delete;

private:
    boost::intrusive_ptr<Cmn_MsgSender> mSenderP;
    Cmn_MsgSender::SubscriptionId mSubscription;
};
