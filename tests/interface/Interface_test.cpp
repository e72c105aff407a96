// The interface library through a real transaction: records round trip, the
// version operations, and the status kinds a proxy reports.
#include <aidl/vendor/tarvo/hardware/dolm/BnDolmCallback.h>
#include <aidl/vendor/tarvo/hardware/dolm/BpDolm.h>
#include <aidl/vendor/tarvo/hardware/dolm/IDolm.h>
#include <android/binder_manager.h>
#include <gtest/gtest.h>

#include "Describe.h"
#include "FakeDolmService.h"
#include "ParcelCases.h"
#include "RequestMatchers.h"

namespace zeltest {
namespace {

using ::aidl::vendor::tarvo::hardware::dolm::BnDolmCallback;
using ::aidl::vendor::tarvo::hardware::dolm::IDolm;

class NullCallback : public BnDolmCallback {
  public:
    ::ndk::ScopedAStatus onCallback(const std::vector<DolmRequestData>&) override {
        return ::ndk::ScopedAStatus::ok();
    }
};

class InterfaceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        mService = FakeDolmService::start();
        ASSERT_NE(mService, nullptr);
        ::ndk::SpAIBinder binder(AServiceManager_checkService(kDolmInstance));
        ASSERT_NE(binder.get(), nullptr);
        mProxy = IDolm::fromBinder(binder);
        ASSERT_NE(mProxy, nullptr);
    }

    std::shared_ptr<FakeDolmService> mService;
    std::shared_ptr<IDolm> mProxy;
};

TEST(RecordTest, DefaultParcelIsAllZeroEmptyAndAbsent) {
    const DolmRequestParcel p;
    EXPECT_EQ(describeParcel(p),
              "{requestType=0 data=[] flag=false option=0 clientArg=0 timeout=0 tags=null "
              "leadArg=0 callback=null pkg=null identity=null numbers=null}");
    EXPECT_EQ(describeData(DolmRequestData()), "{id=0 param=0 value=null path=null extra=null}");
}

TEST_F(InterfaceTest, FromBinderGivesAProxyOrTheLocalObjectAndRejectsOtherBinders) {
    EXPECT_TRUE(mProxy->isRemote());
    EXPECT_NE(mProxy, mService);
    EXPECT_TRUE(AIBinder_isRemote(mProxy->asBinder().get()));
    EXPECT_EQ(IDolm::fromBinder(::ndk::SpAIBinder()), nullptr);
    auto callback = ::ndk::SharedRefBase::make<NullCallback>();
    EXPECT_EQ(IDolm::fromBinder(callback->asBinder()), nullptr);
    // A local binder of the right class gives the object itself.
    EXPECT_EQ(IDolm::fromBinder(mService->asBinder()), mService);
}

TEST_F(InterfaceTest, RecordsRoundTripThroughATransaction) {
    const std::vector<ParcelCase> cases = parcelCases();
    for (const ParcelCase& c : cases) {
        SCOPED_TRACE(c.name);
        int32_t handle = -1;
        ASSERT_TRUE(mProxy->request(c.parcel, &handle).isOk());
    }
    const std::vector<Call> calls = mService->calls(Op::kRequest);
    ASSERT_EQ(calls.size(), cases.size());
    for (size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(describeParcel(calls[i].parcel), describeParcel(cases[i].parcel)) << cases[i].name;
    }
}

TEST_F(InterfaceTest, AnswersRoundTripThroughATransaction) {
    const std::vector<DolmRequestData> answer = parcelCases()[2].parcel.data;
    mService->setDataAnswer(answer);
    std::vector<DolmRequestData> received;
    ASSERT_TRUE(mProxy->getData(DolmRequestParcel(), &received).isOk());
    EXPECT_EQ(received, answer);

    mService->setPropertyAnswer("");
    std::string value = "stale";
    ASSERT_TRUE(mProxy->getProperty("key", &value).isOk());
    EXPECT_EQ(value, "");
}

TEST_F(InterfaceTest, CallbackInTheRecordArrivesAsAProxyToTheSameObject) {
    auto callback = ::ndk::SharedRefBase::make<NullCallback>();
    DolmRequestParcel parcel;
    parcel.callback = callback;
    int32_t handle = -1;
    ASSERT_TRUE(mProxy->request(parcel, &handle).isOk());
    ASSERT_EQ(mService->callbacks().size(), 1u);
    // Within one process the binder comes back as the local object.
    EXPECT_EQ(mService->callbacks()[0], callback);
}

TEST_F(InterfaceTest, VersionAndHashFromProxyAndStubAndDeadObjectOnceTheServiceDied) {
    const auto expectVersionAndHash = [](IDolm& dolm) {
        int32_t version = 0;
        std::string hash;
        EXPECT_TRUE(dolm.getInterfaceVersion(&version).isOk());
        EXPECT_TRUE(dolm.getInterfaceHash(&hash).isOk());
        EXPECT_EQ(version, 1);
        EXPECT_EQ(hash, "cae43655eaf0af39cbb6d273c5e2206eebe33a10");
    };
    expectVersionAndHash(*mProxy);
    expectVersionAndHash(*mService);
    EXPECT_EQ(int32_t{IDolm::version}, 1);
    EXPECT_EQ(IDolm::hash, ::aidl::vendor::tarvo::hardware::dolm::IDolmCallback::hash);

    // The proxy caches what it read: it still answers after the service died,
    // while calls report the dead object.
    mService->kill();
    expectVersionAndHash(*mProxy);
    int32_t handle = -1;
    ::ndk::ScopedAStatus status = mProxy->request(DolmRequestParcel(), &handle);
    EXPECT_EQ(status.getExceptionCode(), EX_TRANSACTION_FAILED);
    EXPECT_EQ(status.getStatus(), STATUS_DEAD_OBJECT);
}

TEST(DefaultImplTest, ALaterDefaultReplacesAnEarlierOne) {
    const auto first =
            ::ndk::SharedRefBase::make<::aidl::vendor::tarvo::hardware::dolm::IDolmDefault>();
    const auto second =
            ::ndk::SharedRefBase::make<::aidl::vendor::tarvo::hardware::dolm::IDolmDefault>();
    EXPECT_TRUE(IDolm::setDefaultImpl(first));
    EXPECT_TRUE(IDolm::setDefaultImpl(second));
    EXPECT_EQ(IDolm::getDefaultImpl(), second);
    EXPECT_FALSE(IDolm::setDefaultImpl(nullptr));
    EXPECT_EQ(IDolm::getDefaultImpl(), second);
}

TEST_F(InterfaceTest, ScriptedAnswersReachTheProxyAsTheRightStatusKind) {
    mService->setAnswer(Op::kRequest, Answer::ok(77));
    int32_t handle = -1;
    EXPECT_TRUE(mProxy->request(DolmRequestParcel(), &handle).isOk());
    EXPECT_EQ(handle, 77);

    mService->setAnswer(Op::kRequest, Answer::serviceSpecific(5));
    handle = -1;
    ::ndk::ScopedAStatus specific = mProxy->request(DolmRequestParcel(), &handle);
    EXPECT_FALSE(specific.isOk());
    EXPECT_EQ(specific.getExceptionCode(), EX_SERVICE_SPECIFIC);
    EXPECT_EQ(specific.getServiceSpecificError(), 5);
    EXPECT_EQ(handle, -1) << "no result travels with a failed status";

    mService->setAnswer(Op::kRelease, Answer::transportFailure(STATUS_BAD_VALUE));
    int32_t result = -1;
    ::ndk::ScopedAStatus failed = mProxy->release(1, &result);
    EXPECT_FALSE(failed.isOk());
    EXPECT_EQ(failed.getExceptionCode(), EX_TRANSACTION_FAILED);
    EXPECT_EQ(failed.getStatus(), STATUS_BAD_VALUE);
    EXPECT_EQ(result, -1);
}

}  // namespace
}  // namespace zeltest
