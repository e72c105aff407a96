// AStatus: the result of a call (exception, service-specific error, transport status, message).
#include <android/binder_status.h>

#include <cstring>
#include <string>

#include "status_internal.h"

namespace binder_host {
namespace {

struct CodeName {
    int32_t code;
    const char* name;
};

constexpr CodeName kStatusNames[] = {
        {STATUS_OK, "STATUS_OK"},
        {STATUS_UNKNOWN_ERROR, "STATUS_UNKNOWN_ERROR"},
        {STATUS_NO_MEMORY, "STATUS_NO_MEMORY"},
        {STATUS_INVALID_OPERATION, "STATUS_INVALID_OPERATION"},
        {STATUS_BAD_VALUE, "STATUS_BAD_VALUE"},
        {STATUS_BAD_TYPE, "STATUS_BAD_TYPE"},
        {STATUS_NAME_NOT_FOUND, "STATUS_NAME_NOT_FOUND"},
        {STATUS_PERMISSION_DENIED, "STATUS_PERMISSION_DENIED"},
        {STATUS_NO_INIT, "STATUS_NO_INIT"},
        {STATUS_ALREADY_EXISTS, "STATUS_ALREADY_EXISTS"},
        {STATUS_DEAD_OBJECT, "STATUS_DEAD_OBJECT"},
        {STATUS_FAILED_TRANSACTION, "STATUS_FAILED_TRANSACTION"},
        {STATUS_BAD_INDEX, "STATUS_BAD_INDEX"},
        {STATUS_NOT_ENOUGH_DATA, "STATUS_NOT_ENOUGH_DATA"},
        {STATUS_WOULD_BLOCK, "STATUS_WOULD_BLOCK"},
        {STATUS_TIMED_OUT, "STATUS_TIMED_OUT"},
        {STATUS_UNKNOWN_TRANSACTION, "STATUS_UNKNOWN_TRANSACTION"},
        {STATUS_FDS_NOT_ALLOWED, "STATUS_FDS_NOT_ALLOWED"},
        {STATUS_UNEXPECTED_NULL, "STATUS_UNEXPECTED_NULL"},
};

constexpr CodeName kExceptionNames[] = {
        {EX_NONE, "EX_NONE"},
        {EX_SECURITY, "EX_SECURITY"},
        {EX_BAD_PARCELABLE, "EX_BAD_PARCELABLE"},
        {EX_ILLEGAL_ARGUMENT, "EX_ILLEGAL_ARGUMENT"},
        {EX_NULL_POINTER, "EX_NULL_POINTER"},
        {EX_ILLEGAL_STATE, "EX_ILLEGAL_STATE"},
        {EX_NETWORK_MAIN_THREAD, "EX_NETWORK_MAIN_THREAD"},
        {EX_UNSUPPORTED_OPERATION, "EX_UNSUPPORTED_OPERATION"},
        {EX_SERVICE_SPECIFIC, "EX_SERVICE_SPECIFIC"},
        {EX_PARCELABLE, "EX_PARCELABLE"},
        {EX_TRANSACTION_FAILED, "EX_TRANSACTION_FAILED"},
};

template <size_t N>
const char* findName(const CodeName (&table)[N], int32_t code) {
    for (const CodeName& entry : table) {
        if (entry.code == code) {
            return entry.name;
        }
    }
    return nullptr;
}

AStatus* makeStatus(binder_exception_t exception, int32_t serviceSpecific, binder_status_t status,
                    const char* message) {
    auto* result = new AStatus;
    result->mException = exception;
    result->mServiceSpecific = serviceSpecific;
    result->mStatus = status;
    if (message != nullptr) {
        result->mMessage = message;
    }
    return result;
}

// Every OK status is the same immutable object: no status is ever changed
// after its creation, so sharing it saves an allocation per call. It is
// never deleted (binder threads may still use it while the process exits).
AStatus* okStatus() {
    static AStatus* const ok = new AStatus;
    return ok;
}

AStatus* fromException(binder_exception_t exception, const char* message) {
    exception = normalizeException(exception);
    binder_status_t status =
            exception == EX_TRANSACTION_FAILED ? STATUS_FAILED_TRANSACTION : STATUS_OK;
    return makeStatus(exception, 0, status, message);
}

}  // namespace

binder_status_t normalizeStatus(int32_t status) {
    return findName(kStatusNames, status) != nullptr ? status : STATUS_UNKNOWN_ERROR;
}

binder_exception_t normalizeException(int32_t exception) {
    return findName(kExceptionNames, exception) != nullptr ? exception : EX_TRANSACTION_FAILED;
}

}  // namespace binder_host

using binder_host::fromException;
using binder_host::makeStatus;

AStatus* AStatus_newOk() {
    return binder_host::okStatus();
}

AStatus* AStatus_fromExceptionCode(binder_exception_t exception) {
    return fromException(exception, nullptr);
}

AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception, const char* message) {
    return fromException(exception, message);
}

AStatus* AStatus_fromServiceSpecificError(int32_t serviceSpecific) {
    return makeStatus(EX_SERVICE_SPECIFIC, serviceSpecific, STATUS_OK, nullptr);
}

AStatus* AStatus_fromServiceSpecificErrorWithMessage(int32_t serviceSpecific, const char* message) {
    return makeStatus(EX_SERVICE_SPECIFIC, serviceSpecific, STATUS_OK, message);
}

AStatus* AStatus_fromStatus(binder_status_t status) {
    if (status == STATUS_OK) {
        return AStatus_newOk();
    }
    return makeStatus(EX_TRANSACTION_FAILED, 0, binder_host::normalizeStatus(status), nullptr);
}

bool AStatus_isOk(const AStatus* status) {
    return status != nullptr && status->mException == EX_NONE;
}

binder_exception_t AStatus_getExceptionCode(const AStatus* status) {
    return status != nullptr ? status->mException : EX_NONE;
}

int32_t AStatus_getServiceSpecificError(const AStatus* status) {
    return status != nullptr && status->mException == EX_SERVICE_SPECIFIC ? status->mServiceSpecific
                                                                          : 0;
}

binder_status_t AStatus_getStatus(const AStatus* status) {
    return status != nullptr && status->mException == EX_TRANSACTION_FAILED ? status->mStatus
                                                                            : STATUS_OK;
}

const char* AStatus_getMessage(const AStatus* status) {
    return status != nullptr ? status->mMessage.c_str() : "";
}

const char* AStatus_getDescription(const AStatus* status) {
    std::string text;
    if (status == nullptr) {
        text = "(null status)";
    } else if (status->mException == EX_NONE) {
        text = "No error";
    } else {
        const char* exName = binder_host::findName(binder_host::kExceptionNames, status->mException);
        text = "Status(" + std::to_string(status->mException) + ", " + exName + "): '";
        if (status->mException == EX_SERVICE_SPECIFIC) {
            text += std::to_string(status->mServiceSpecific) + ": ";
        } else if (status->mException == EX_TRANSACTION_FAILED) {
            text += std::string(binder_host::findName(binder_host::kStatusNames, status->mStatus)) +
                    ": ";
        }
        text += status->mMessage + "'";
    }
    char* copy = new char[text.size() + 1];
    std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

void AStatus_deleteDescription(const char* description) {
    delete[] description;
}

void AStatus_delete(AStatus* status) {
    if (status != binder_host::okStatus()) {
        delete status;
    }
}
