// Binder objects: classes, local objects and proxies, references, weak
// references, death recipients and the transaction entry points.
#include <android/binder_ibinder.h>
#include <android/binder_stability.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <vector>

#include "ibinder_internal.h"

namespace binder_host {
namespace {

std::atomic<const ObjectHooks*> gHooks{nullptr};

// Classes live for the rest of the process; the list keeps them reachable.
std::vector<AIBinder_Class*>& classes() {
    static auto* list = new std::vector<AIBinder_Class*>;
    return *list;
}

std::mutex& classesMutex() {
    static auto* mutex = new std::mutex;
    return *mutex;
}

}  // namespace

void setObjectHooks(const ObjectHooks* hooks) {
    gHooks.store(hooks, std::memory_order_release);
}

// ---- references ----------------------------------------------------------------

}  // namespace binder_host

void AIBinder::decStrong() {
    if (mStrong.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        onLastStrongRef();
        decWeak();
    }
}

bool AIBinder::tryIncStrong() {
    int32_t count = mStrong.load(std::memory_order_relaxed);
    while (count > 0) {
        if (mStrong.compare_exchange_weak(count, count + 1, std::memory_order_acq_rel)) {
            return true;
        }
    }
    return false;
}

void AIBinder::decWeak() {
    if (mWeak.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete this;
    }
}

binder_host::ABBinder* AIBinder::asLocal() {
    return isRemote() ? nullptr : static_cast<binder_host::ABBinder*>(this);
}

binder_host::ABpBinder* AIBinder::asProxy() {
    return isRemote() ? static_cast<binder_host::ABpBinder*>(this) : nullptr;
}

namespace binder_host {

void ABBinder::onLastStrongRef() {
    if (const ObjectHooks* hooks = gHooks.load(std::memory_order_acquire)) {
        hooks->onLocalGone(this);
    }
    const AIBinder_Class* clazz = getClass();
    if (clazz->mOnDestroy != nullptr) {
        clazz->mOnDestroy(mUserData);
    }
}

// ---- proxies --------------------------------------------------------------------

bool ABpBinder::associateClass(const AIBinder_Class* clazz) {
    if (clazz->mDescriptor != mRemoteDescriptor) {
        return false;
    }
    const AIBinder_Class* expected = nullptr;
    if (mClass.compare_exchange_strong(expected, clazz, std::memory_order_acq_rel)) {
        return true;
    }
    return expected == clazz;
}

binder_status_t ABpBinder::linkToDeath(const std::shared_ptr<DeathRecipientState>& recipient,
                                       void* cookie) {
    std::lock_guard<std::mutex> lock(mLinksMutex);
    if (isDead()) {
        return STATUS_DEAD_OBJECT;
    }
    // Links of deleted recipients can never fire: drop them here.
    mLinks.erase(std::remove_if(mLinks.begin(), mLinks.end(),
                                [](const DeathLink& link) { return link.recipient->isDeleted(); }),
                 mLinks.end());
    mLinks.push_back(DeathLink{recipient, cookie});
    return STATUS_OK;
}

binder_status_t ABpBinder::unlinkToDeath(const std::shared_ptr<DeathRecipientState>& recipient,
                                         void* cookie) {
    std::lock_guard<std::mutex> lock(mLinksMutex);
    auto it = std::find_if(mLinks.begin(), mLinks.end(), [&](const DeathLink& link) {
        return link.recipient == recipient && link.cookie == cookie;
    });
    if (it == mLinks.end()) {
        return STATUS_NAME_NOT_FOUND;
    }
    mLinks.erase(it);
    return STATUS_OK;
}

std::vector<DeathLink> ABpBinder::markDead() {
    std::lock_guard<std::mutex> lock(mLinksMutex);
    if (mDead.exchange(true, std::memory_order_acq_rel)) {
        return {};
    }
    return std::move(mLinks);
}

void ABpBinder::onLastStrongRef() {
    if (const ObjectHooks* hooks = gHooks.load(std::memory_order_acquire)) {
        hooks->onProxyGone(this, mGranted.load(std::memory_order_relaxed));
    }
}

// ---- death recipients -----------------------------------------------------------

void DeathRecipientState::deliver(void* cookie) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mDeleted) {
            return;
        }
        mRunning.push_back(std::this_thread::get_id());
    }
    mOnDied(cookie);
    std::lock_guard<std::mutex> lock(mMutex);
    mRunning.erase(std::find(mRunning.begin(), mRunning.end(), std::this_thread::get_id()));
    mIdle.notify_all();
}

void DeathRecipientState::markDeleted() {
    std::unique_lock<std::mutex> lock(mMutex);
    mDeleted = true;
    // A callback may delete its own recipient; it cannot wait for itself.
    std::thread::id self = std::this_thread::get_id();
    mIdle.wait(lock, [&] {
        return std::all_of(mRunning.begin(), mRunning.end(),
                           [&](std::thread::id running) { return running == self; });
    });
}

bool DeathRecipientState::isDeleted() {
    std::lock_guard<std::mutex> lock(mMutex);
    return mDeleted;
}

}  // namespace binder_host

using binder_host::ABBinder;
using binder_host::ABpBinder;

// ---- C API -------------------------------------------------------------------------

AIBinder_Class* AIBinder_Class_define(const char* interfaceDescriptor,
                                      AIBinder_Class_onCreate onCreate,
                                      AIBinder_Class_onDestroy onDestroy,
                                      AIBinder_Class_onTransact onTransact) {
    if (interfaceDescriptor == nullptr || onCreate == nullptr || onDestroy == nullptr ||
        onTransact == nullptr) {
        return nullptr;
    }
    auto* clazz = new AIBinder_Class;
    clazz->mDescriptor = interfaceDescriptor;
    clazz->mOnCreate = onCreate;
    clazz->mOnDestroy = onDestroy;
    clazz->mOnTransact = onTransact;
    std::lock_guard<std::mutex> lock(binder_host::classesMutex());
    binder_host::classes().push_back(clazz);
    return clazz;
}

void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump onDump) {
    if (clazz != nullptr) {
        clazz->mOnDump.store(onDump);
    }
}

void AIBinder_Class_setHandleShellCommand(AIBinder_Class* clazz,
                                          AIBinder_handleShellCommand handleShellCommand) {
    if (clazz != nullptr) {
        clazz->mOnShellCommand.store(handleShellCommand);
    }
}

AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* args) {
    if (clazz == nullptr) {
        return nullptr;
    }
    void* userData = clazz->mOnCreate(args);
    return new ABBinder(clazz, userData);
}

bool AIBinder_isRemote(const AIBinder* binder) {
    return binder != nullptr && binder->isRemote();
}

bool AIBinder_isAlive(const AIBinder* binder) {
    if (binder == nullptr) {
        return false;
    }
    const ABpBinder* proxy = binder->isRemote() ? static_cast<const ABpBinder*>(binder) : nullptr;
    return proxy == nullptr || !proxy->isDead();
}

binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t numArgs) {
    if (binder == nullptr) {
        return STATUS_UNEXPECTED_NULL;
    }
    ABBinder* local = binder->asLocal();
    if (local == nullptr) {
        return STATUS_OK;
    }
    AIBinder_onDump onDump = local->getClass()->mOnDump.load();
    return onDump != nullptr ? onDump(binder, fd, args, numArgs) : STATUS_OK;
}

namespace {

// Death links exist on proxies only: local objects cannot die apart from their process.
template <typename Operation>
binder_status_t onProxyLinks(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                             Operation operation) {
    if (binder == nullptr || recipient == nullptr) {
        return STATUS_UNEXPECTED_NULL;
    }
    ABpBinder* proxy = binder->asProxy();
    return proxy != nullptr ? operation(proxy, recipient->mState) : STATUS_INVALID_OPERATION;
}

}  // namespace

binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie) {
    return onProxyLinks(binder, recipient, [cookie](ABpBinder* proxy, const auto& state) {
        return proxy->linkToDeath(state, cookie);
    });
}

binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie) {
    return onProxyLinks(binder, recipient, [cookie](ABpBinder* proxy, const auto& state) {
        return proxy->unlinkToDeath(state, cookie);
    });
}

void AIBinder_incStrong(AIBinder* binder) {
    if (binder != nullptr) {
        binder->incStrong();
    }
}

void AIBinder_decStrong(AIBinder* binder) {
    if (binder != nullptr) {
        binder->decStrong();
    }
}

int32_t AIBinder_debugGetRefCount(AIBinder* binder) {
    return binder != nullptr ? binder->strongCount() : -1;
}

bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz) {
    if (binder == nullptr || clazz == nullptr) {
        return false;
    }
    return binder->associateClass(clazz);
}

const AIBinder_Class* AIBinder_getClass(AIBinder* binder) {
    return binder != nullptr ? binder->getClass() : nullptr;
}

void* AIBinder_getUserData(AIBinder* binder) {
    ABBinder* local = binder != nullptr ? binder->asLocal() : nullptr;
    return local != nullptr ? local->userData() : nullptr;
}

AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder) {
    if (binder == nullptr) {
        return nullptr;
    }
    binder->incWeak();
    return new AIBinder_Weak{binder};
}

void AIBinder_Weak_delete(AIBinder_Weak* weakBinder) {
    if (weakBinder != nullptr) {
        weakBinder->mBinder->decWeak();
        delete weakBinder;
    }
}

AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder) {
    if (weakBinder == nullptr || !weakBinder->mBinder->tryIncStrong()) {
        return nullptr;
    }
    return weakBinder->mBinder;
}

AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(
        AIBinder_DeathRecipient_onBinderDied onBinderDied) {
    if (onBinderDied == nullptr) {
        return nullptr;
    }
    return new AIBinder_DeathRecipient{
            std::make_shared<binder_host::DeathRecipientState>(onBinderDied)};
}

void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient) {
    if (recipient != nullptr) {
        recipient->mState->markDeleted();
        delete recipient;
    }
}
