// AStatus and ndk::ScopedAStatus: constructors, getters, collapsing of
// unknown codes, descriptions.
#include <android/binder_auto_utils.h>
#include <android/binder_status.h>
#include <gtest/gtest.h>

#include <string>

namespace {

struct StatusCase {
    const char* name;
    AStatus* (*make)();
    bool ok;
    binder_exception_t exception;
    int32_t serviceSpecific;
    binder_status_t status;
    const char* message;
};

const StatusCase kCases[] = {
        {"ok", [] { return AStatus_newOk(); }, true, EX_NONE, 0, STATUS_OK, ""},
        {"fromStatus OK", [] { return AStatus_fromStatus(STATUS_OK); }, true, EX_NONE, 0, STATUS_OK,
         ""},
        {"exception", [] { return AStatus_fromExceptionCode(EX_ILLEGAL_STATE); }, false,
         EX_ILLEGAL_STATE, 0, STATUS_OK, ""},
        {"exception with message",
         [] { return AStatus_fromExceptionCodeWithMessage(EX_SECURITY, "denied"); }, false,
         EX_SECURITY, 0, STATUS_OK, "denied"},
        {"transaction failed exception",
         [] { return AStatus_fromExceptionCode(EX_TRANSACTION_FAILED); }, false,
         EX_TRANSACTION_FAILED, 0, STATUS_FAILED_TRANSACTION, ""},
        {"unknown exception collapses", [] { return AStatus_fromExceptionCode(-77); }, false,
         EX_TRANSACTION_FAILED, 0, STATUS_FAILED_TRANSACTION, ""},
        {"service specific 0 is not ok", [] { return AStatus_fromServiceSpecificError(0); }, false,
         EX_SERVICE_SPECIFIC, 0, STATUS_OK, ""},
        {"service specific with message",
         [] { return AStatus_fromServiceSpecificErrorWithMessage(-3, "busy"); }, false,
         EX_SERVICE_SPECIFIC, -3, STATUS_OK, "busy"},
        {"null message", [] { return AStatus_fromServiceSpecificErrorWithMessage(4, nullptr); },
         false, EX_SERVICE_SPECIFIC, 4, STATUS_OK, ""},
        {"transport status", [] { return AStatus_fromStatus(STATUS_DEAD_OBJECT); }, false,
         EX_TRANSACTION_FAILED, 0, STATUS_DEAD_OBJECT, ""},
        {"unknown status collapses", [] { return AStatus_fromStatus(-12345); }, false,
         EX_TRANSACTION_FAILED, 0, STATUS_UNKNOWN_ERROR, ""},
};

TEST(StatusTest, ConstructorsAndGetters) {
    for (const StatusCase& c : kCases) {
        SCOPED_TRACE(c.name);
        ndk::ScopedAStatus status(c.make());
        ASSERT_NE(status.get(), nullptr);
        EXPECT_EQ(status.isOk(), c.ok);
        EXPECT_EQ(AStatus_isOk(status.get()), c.ok);
        EXPECT_EQ(status.getExceptionCode(), c.exception);
        EXPECT_EQ(status.getServiceSpecificError(), c.serviceSpecific);
        EXPECT_EQ(status.getStatus(), c.status);
        EXPECT_STREQ(status.getMessage(), c.message);
    }
}

TEST(StatusTest, DescriptionNamesTheError) {
    const char* description = AStatus_getDescription(
            ndk::ScopedAStatus::fromServiceSpecificErrorWithMessage(7, "busy").get());
    ASSERT_NE(description, nullptr);
    std::string text(description);
    AStatus_deleteDescription(description);
    EXPECT_NE(text.find("EX_SERVICE_SPECIFIC"), std::string::npos) << text;
    EXPECT_NE(text.find('7'), std::string::npos) << text;
    EXPECT_NE(text.find("busy"), std::string::npos) << text;

    std::string dead = ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT).getDescription();
    EXPECT_NE(dead.find("STATUS_DEAD_OBJECT"), std::string::npos) << dead;
    AStatus_deleteDescription(nullptr);
    AStatus_delete(nullptr);
}

TEST(StatusTest, ScopedStatusWithoutObjectIsNotOk) {
    ndk::ScopedAStatus empty;
    EXPECT_FALSE(empty.isOk());
    ndk::ScopedAStatus moved = ndk::ScopedAStatus::ok();
    ndk::ScopedAStatus target(std::move(moved));
    EXPECT_TRUE(target.isOk());
    EXPECT_EQ(moved.get(), nullptr);  // NOLINT(bugprone-use-after-move): moved-from state
}

}  // namespace
