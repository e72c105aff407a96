// Local binder objects: classes, user data, references, weak references,
// class association, transaction argument checks, death recipient edge cases.
#include <android/binder_auto_utils.h>
#include <android/binder_host.h>
#include <android/binder_ibinder.h>
#include <android/binder_interface_utils.h>
#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>

#include "TestBinders.h"

namespace bindertest {
namespace {

int gCreated = 0;
int gDestroyed = 0;
void* gLastDestroyed = nullptr;
transaction_code_t gLastCode = 0;

void* countingCreate(void* args) {
    ++gCreated;
    return args;
}

void countingDestroy(void* userData) {
    ++gDestroyed;
    gLastDestroyed = userData;
}

// Echoes an int32 and records the code.
binder_status_t countingTransact(AIBinder*, transaction_code_t code, const AParcel* in,
                                 AParcel* out) {
    gLastCode = code;
    int32_t value = 0;
    binder_status_t status = AParcel_readInt32(in, &value);
    return status == STATUS_OK ? AParcel_writeInt32(out, value + 1) : status;
}

AIBinder_Class* countingClass() {
    static AIBinder_Class* clazz = AIBinder_Class_define("binder.test.ICounting", countingCreate,
                                                         countingDestroy, countingTransact);
    return clazz;
}

// Defined from a static initialiser, as generated code does.
AIBinder_Class* const kStaticClass = AIBinder_Class_define("binder.test.IStatic", countingCreate,
                                                           countingDestroy, countingTransact);

TEST(IBinderTest, ClassDefineNeedsEveryArgument) {
    EXPECT_NE(kStaticClass, nullptr);
    EXPECT_EQ(AIBinder_Class_define(nullptr, countingCreate, countingDestroy, countingTransact),
              nullptr);
    EXPECT_EQ(AIBinder_Class_define("d", nullptr, countingDestroy, countingTransact), nullptr);
    EXPECT_EQ(AIBinder_Class_define("d", countingCreate, nullptr, countingTransact), nullptr);
    EXPECT_EQ(AIBinder_Class_define("d", countingCreate, countingDestroy, nullptr), nullptr);
    EXPECT_EQ(AIBinder_new(nullptr, nullptr), nullptr);
}

TEST(IBinderTest, NewCreatesAtOnceAndLastStrongReferenceDestroys) {
    int data = 0;
    AIBinder* binder = AIBinder_new(countingClass(), &data);
    ASSERT_NE(binder, nullptr);
    EXPECT_EQ(gCreated, 1);
    EXPECT_EQ(AIBinder_getUserData(binder), &data);
    EXPECT_EQ(AIBinder_getClass(binder), countingClass());
    EXPECT_EQ(AIBinder_debugGetRefCount(binder), 1);
    EXPECT_FALSE(AIBinder_isRemote(binder));
    EXPECT_TRUE(AIBinder_isAlive(binder));
    EXPECT_EQ(AIBinder_ping(binder), STATUS_OK);

    AIBinder_incStrong(binder);
    EXPECT_EQ(AIBinder_debugGetRefCount(binder), 2);
    AIBinder_decStrong(binder);
    EXPECT_EQ(gDestroyed, 0);
    AIBinder_decStrong(binder);
    EXPECT_EQ(gDestroyed, 1);
    EXPECT_EQ(gLastDestroyed, &data);

    AIBinder_incStrong(nullptr);
    AIBinder_decStrong(nullptr);
    EXPECT_EQ(AIBinder_debugGetRefCount(nullptr), -1);
    EXPECT_FALSE(AIBinder_isRemote(nullptr));
    EXPECT_EQ(AIBinder_getUserData(nullptr), nullptr);
}

TEST(IBinderTest, WeakReferencesPromoteOnlyWhileAlive) {
    EXPECT_EQ(AIBinder_Weak_new(nullptr), nullptr);
    EXPECT_EQ(AIBinder_Weak_promote(nullptr), nullptr);
    AIBinder_Weak_delete(nullptr);

    ndk::SpAIBinder binder(AIBinder_new(countingClass(), nullptr));
    ndk::ScopedAIBinder_Weak weak(AIBinder_Weak_new(binder.get()));
    ndk::ScopedAIBinder_Weak second(AIBinder_Weak_new(binder.get()));
    {
        ndk::SpAIBinder promoted = weak.promote();
        EXPECT_EQ(promoted.get(), binder.get());
        EXPECT_EQ(AIBinder_debugGetRefCount(binder.get()), 2);
    }
    binder.set(nullptr);
    EXPECT_EQ(gDestroyed, 1);
    EXPECT_EQ(weak.promote().get(), nullptr);
    EXPECT_EQ(second.promote().get(), nullptr);
}

TEST(IBinderTest, AssociateClassOnLocalObjects) {
    ndk::SpAIBinder binder(AIBinder_new(countingClass(), nullptr));
    AIBinder_Class* sameDescriptor = AIBinder_Class_define("binder.test.ICounting", countingCreate,
                                                           countingDestroy, countingTransact);
    EXPECT_TRUE(AIBinder_associateClass(binder.get(), countingClass()));
    EXPECT_FALSE(AIBinder_associateClass(binder.get(), sameDescriptor));
    EXPECT_FALSE(AIBinder_associateClass(binder.get(), echoClass()));
    EXPECT_FALSE(AIBinder_associateClass(nullptr, countingClass()));
    EXPECT_FALSE(AIBinder_associateClass(binder.get(), nullptr));
}

TEST(IBinderTest, TransactOnLocalObjectRunsOnCallingThread) {
    ndk::SpAIBinder binder(AIBinder_new(countingClass(), nullptr));
    ndk::ScopedAParcel in;
    ASSERT_EQ(AIBinder_prepareTransaction(binder.get(), in.getR()), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt32(in.get(), 41), STATUS_OK);
    ndk::ScopedAParcel out;
    ASSERT_EQ(AIBinder_transact(binder.get(), FIRST_CALL_TRANSACTION + 4, in.getR(), out.getR(), 0),
              STATUS_OK);
    EXPECT_EQ(in.get(), nullptr);
    EXPECT_EQ(gLastCode, FIRST_CALL_TRANSACTION + 4);
    int32_t value = 0;
    ASSERT_EQ(AParcel_readInt32(out.get(), &value), STATUS_OK);
    EXPECT_EQ(value, 42);
}

struct TransactCase {
    const char* name;
    transaction_code_t code;
    binder_flags_t flags;
    bool nullOut;
    binder_status_t expected;
};

TEST(IBinderTest, TransactRejectsBadArgumentsAndAlwaysTakesTheRequest) {
    const TransactCase cases[] = {
            {"code 0", 0, 0, false, STATUS_UNKNOWN_TRANSACTION},
            {"code past last", LAST_CALL_TRANSACTION + 1, 0, false, STATUS_UNKNOWN_TRANSACTION},
            {"unknown flag", FIRST_CALL_TRANSACTION, 0x10, false, STATUS_BAD_VALUE},
            {"null out", FIRST_CALL_TRANSACTION, 0, true, STATUS_UNEXPECTED_NULL},
            {"handler error", FIRST_CALL_TRANSACTION, FLAG_ONEWAY, false, STATUS_NOT_ENOUGH_DATA},
    };
    ndk::SpAIBinder binder(AIBinder_new(countingClass(), nullptr));
    for (const TransactCase& c : cases) {
        SCOPED_TRACE(c.name);
        AParcel* in = nullptr;
        ASSERT_EQ(AIBinder_prepareTransaction(binder.get(), &in), STATUS_OK);
        AParcel* out = reinterpret_cast<AParcel*>(0x1);
        EXPECT_EQ(AIBinder_transact(binder.get(), c.code, &in, c.nullOut ? nullptr : &out, c.flags),
                  c.expected);
        EXPECT_EQ(in, nullptr);  // taken (ASan reports a leak otherwise)
        if (!c.nullOut) {
            EXPECT_EQ(out, nullptr);
        }
    }

    // A request prepared for another object is refused.
    ndk::SpAIBinder other(AIBinder_new(countingClass(), nullptr));
    AParcel* in = nullptr;
    ASSERT_EQ(AIBinder_prepareTransaction(other.get(), &in), STATUS_OK);
    AParcel* out = nullptr;
    EXPECT_EQ(AIBinder_transact(binder.get(), FIRST_CALL_TRANSACTION, &in, &out, 0),
              STATUS_BAD_VALUE);
    EXPECT_EQ(AIBinder_transact(nullptr, FIRST_CALL_TRANSACTION, &in, &out, 0),
              STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(AIBinder_prepareTransaction(nullptr, &in), STATUS_UNEXPECTED_NULL);
}

TEST(IBinderTest, DeathRecipientEdgeCases) {
    EXPECT_EQ(AIBinder_DeathRecipient_new(nullptr), nullptr);
    AIBinder_DeathRecipient_delete(nullptr);
    ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new([](void*) {}));
    ndk::SpAIBinder binder(AIBinder_new(countingClass(), nullptr));
    EXPECT_EQ(AIBinder_linkToDeath(binder.get(), recipient.get(), nullptr),
              STATUS_INVALID_OPERATION);
    EXPECT_EQ(AIBinder_linkToDeath(nullptr, recipient.get(), nullptr), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(AIBinder_linkToDeath(binder.get(), nullptr, nullptr), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(ABinderHost_killLocalBinder(nullptr), STATUS_UNEXPECTED_NULL);
    // Killing an object no other endpoint knows leaves it usable locally.
    EXPECT_EQ(ABinderHost_killLocalBinder(binder.get()), STATUS_OK);
    EXPECT_TRUE(AIBinder_isAlive(binder.get()));
}

// ndk::SharedRefBase / BnCInterface: the binder keeps the object alive and
// is created once while someone holds it.
class Counting : public ndk::BnCInterface<ndk::ICInterface> {
  protected:
    ndk::SpAIBinder createBinder() override {
        return ndk::SpAIBinder(AIBinder_new(countingClass(), this));
    }
};

TEST(IBinderTest, BnCInterfaceCachesItsBinderWeakly) {
    std::shared_ptr<Counting> object = ndk::SharedRefBase::make<Counting>();
    ndk::SpAIBinder first = object->asBinder();
    ndk::SpAIBinder second = object->asBinder();
    EXPECT_EQ(first.get(), second.get());
    EXPECT_FALSE(object->isRemote());
    EXPECT_EQ(gCreated, 1);
    first.set(nullptr);
    second.set(nullptr);
    EXPECT_EQ(gDestroyed, 1);
    ndk::SpAIBinder third = object->asBinder();
    EXPECT_EQ(gCreated, 2);
    EXPECT_EQ(object->ref<Counting>().get(), object.get());
}

}  // namespace
}  // namespace bindertest
