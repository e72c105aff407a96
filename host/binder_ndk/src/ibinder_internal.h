// Private: binder objects (local and proxy), classes, weak references and death recipients.
#pragma once

#include <android/binder_ibinder.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct AIBinder_Class {
    std::string mDescriptor;
    AIBinder_Class_onCreate mOnCreate = nullptr;
    AIBinder_Class_onDestroy mOnDestroy = nullptr;
    AIBinder_Class_onTransact mOnTransact = nullptr;
    std::atomic<AIBinder_onDump> mOnDump{nullptr};
    std::atomic<AIBinder_handleShellCommand> mOnShellCommand{nullptr};
};

namespace binder_host {

class ABBinder;
class ABpBinder;
class Peer;

// Stability levels, as bit sets of the partitions that may rely on an object:
// a level satisfies a requirement when it holds all of the required bits.
constexpr int32_t kStabilityUndeclared = 0;
constexpr int32_t kStabilityVendor = 0b000011;
constexpr int32_t kStabilitySystem = 0b001100;
constexpr int32_t kStabilityVintf = 0b111111;

}  // namespace binder_host

/**
 * Base of binder objects. Memory lives while weak references exist; the
 * strong references together hold one weak reference, and the object is
 * "alive" (onDestroy not yet run) while strong references exist.
 */
struct AIBinder {
  public:
    virtual ~AIBinder() = default;
    AIBinder(const AIBinder&) = delete;
    AIBinder& operator=(const AIBinder&) = delete;

    void incStrong() { mStrong.fetch_add(1, std::memory_order_relaxed); }
    void decStrong();
    /** Adds a strong reference unless the last one is already gone. */
    bool tryIncStrong();
    void incWeak() { mWeak.fetch_add(1, std::memory_order_relaxed); }
    void decWeak();
    int32_t strongCount() const { return mStrong.load(std::memory_order_relaxed); }

    const AIBinder_Class* getClass() const { return mClass.load(std::memory_order_acquire); }

    /** The stability mark; a proxy carries the one its object was sent with. */
    int32_t stability() const { return mStability.load(std::memory_order_relaxed); }
    void setStability(int32_t level) { mStability.store(level, std::memory_order_relaxed); }

    virtual bool isRemote() const = 0;
    virtual bool associateClass(const AIBinder_Class* clazz) = 0;
    /** The descriptor of the object's interface (a proxy knows it from its owner). */
    virtual const std::string& descriptor() const = 0;

    binder_host::ABBinder* asLocal();
    binder_host::ABpBinder* asProxy();

  protected:
    explicit AIBinder(const AIBinder_Class* clazz) : mClass(clazz) {}
    /** Runs when the last strong reference goes, before the weak count drops. */
    virtual void onLastStrongRef() = 0;

    std::atomic<const AIBinder_Class*> mClass;

  private:
    std::atomic<int32_t> mStability{binder_host::kStabilityUndeclared};
    std::atomic<int32_t> mStrong{1};
    std::atomic<int32_t> mWeak{1};
};

struct AIBinder_Weak {
    AIBinder* mBinder;  // holds one weak reference
};

namespace binder_host {

/** An owning strong reference for the runtime's own use (movable). */
class BinderRef {
  public:
    BinderRef() = default;
    /** Adopts one strong reference. */
    static BinderRef adopt(AIBinder* binder) {
        BinderRef ref;
        ref.mBinder = binder;
        return ref;
    }
    /** Adds a strong reference. */
    static BinderRef share(AIBinder* binder) {
        if (binder != nullptr) {
            binder->incStrong();
        }
        return adopt(binder);
    }
    BinderRef(const BinderRef& other) : mBinder(share(other.mBinder).release()) {}
    BinderRef(BinderRef&& other) noexcept : mBinder(other.release()) {}
    BinderRef& operator=(BinderRef other) noexcept {
        std::swap(mBinder, other.mBinder);
        return *this;
    }
    ~BinderRef() { reset(); }

    AIBinder* get() const { return mBinder; }
    AIBinder* operator->() const { return mBinder; }
    explicit operator bool() const { return mBinder != nullptr; }
    AIBinder* release() {
        AIBinder* binder = mBinder;
        mBinder = nullptr;
        return binder;
    }
    void reset() {
        if (mBinder != nullptr) {
            release()->decStrong();
        }
    }

  private:
    AIBinder* mBinder = nullptr;
};

/** A local object: created by AIBinder_new, served by its class's onTransact. */
class ABBinder : public AIBinder {
  public:
    ABBinder(const AIBinder_Class* clazz, void* userData) : AIBinder(clazz), mUserData(userData) {}

    bool isRemote() const override { return false; }
    bool associateClass(const AIBinder_Class* clazz) override { return clazz == getClass(); }
    const std::string& descriptor() const override { return getClass()->mDescriptor; }
    void* userData() const { return mUserData; }

    /** Node id under which remote processes know this object (0: none yet). Guarded by the runtime. */
    uint64_t mNodeId = 0;

  protected:
    void onLastStrongRef() override;

  private:
    void* mUserData;
};

/** Shared state of a death recipient; links hold it so that delete can race with a death. */
class DeathRecipientState {
  public:
    explicit DeathRecipientState(AIBinder_DeathRecipient_onBinderDied onDied) : mOnDied(onDied) {}

    /** Runs the callback unless the recipient was deleted. */
    void deliver(void* cookie);
    /** Stops all future callbacks and waits for running ones (except on this thread). */
    void markDeleted();
    bool isDeleted();

  private:
    AIBinder_DeathRecipient_onBinderDied mOnDied;
    std::mutex mMutex;
    std::condition_variable mIdle;
    bool mDeleted = false;
    std::vector<std::thread::id> mRunning;
};

struct DeathLink {
    std::shared_ptr<DeathRecipientState> recipient;
    void* cookie;
};

/** A proxy for object \p nodeId of another endpoint (possibly this process's own). */
class ABpBinder : public AIBinder {
  public:
    ABpBinder(std::shared_ptr<Peer> peer, uint64_t nodeId, std::string descriptor)
        : AIBinder(nullptr),
          mPeer(std::move(peer)),
          mNodeId(nodeId),
          mRemoteDescriptor(std::move(descriptor)) {}

    bool isRemote() const override { return true; }
    bool associateClass(const AIBinder_Class* clazz) override;
    const std::string& descriptor() const override { return mRemoteDescriptor; }

    const std::shared_ptr<Peer>& peer() const { return mPeer; }
    uint64_t nodeId() const { return mNodeId; }
    bool isDead() const { return mDead.load(std::memory_order_acquire); }

    /** Counts one more reference the owner granted to this process for this object. */
    void addGrant() { mGranted.fetch_add(1, std::memory_order_relaxed); }

    binder_status_t linkToDeath(const std::shared_ptr<DeathRecipientState>& recipient, void* cookie);
    binder_status_t unlinkToDeath(const std::shared_ptr<DeathRecipientState>& recipient,
                                  void* cookie);

    /**
     * Marks the proxy dead. Returns the links to notify (empty if it was
     * already dead); the caller delivers them on a binder thread.
     */
    std::vector<DeathLink> markDead();

  protected:
    void onLastStrongRef() override;

  private:
    std::shared_ptr<Peer> mPeer;
    const uint64_t mNodeId;
    const std::string mRemoteDescriptor;
    std::atomic<int32_t> mGranted{0};
    std::atomic<bool> mDead{false};
    std::mutex mLinksMutex;
    std::vector<DeathLink> mLinks;
};

}  // namespace binder_host

struct AIBinder_DeathRecipient {
    std::shared_ptr<binder_host::DeathRecipientState> mState;
};

namespace binder_host {

/**
 * What the runtime does when an object loses its last strong reference: it
 * forgets the object's node, or tells the owner that this process dropped
 * the proxy. Set when the runtime is created; nothing to do before.
 */
struct ObjectHooks {
    void (*onLocalGone)(ABBinder* binder);
    void (*onProxyGone)(ABpBinder* proxy, int32_t grants);
};
void setObjectHooks(const ObjectHooks* hooks);

}  // namespace binder_host
