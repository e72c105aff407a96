// Private: the AStatus object and the normalisation of status and exception codes.
#pragma once

#include <android/binder_status.h>

#include <string>

struct AStatus {
    binder_exception_t mException = EX_NONE;
    int32_t mServiceSpecific = 0;
    binder_status_t mStatus = STATUS_OK;
    std::string mMessage;
};

namespace binder_host {

/** \p status if it is one of the STATUS_* values, else STATUS_UNKNOWN_ERROR. */
binder_status_t normalizeStatus(int32_t status);

/** \p exception if it is one of the EX_* values, else EX_TRANSACTION_FAILED. */
binder_exception_t normalizeException(int32_t exception);

}  // namespace binder_host
