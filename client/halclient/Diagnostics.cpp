// Maintenance requests: table dumps, the request-history switch, and the
// service's generic properties.
#include <cstring>

#include "RequestBuilding.h"

using halclient::DolmRequestData;
using halclient::DolmRequestParcel;
using halclient::IDolm;

namespace {

// Size of the array dolmPropertyGet returns; also the bound of its copy.
constexpr size_t kPropertyValueSize = 256;

// One diagnostics request: its dump code and its name, which is both the
// failure label and, after "dolm client ", the entry line.
struct Diagnostic {
    int32_t code;
    const char* name;
};

// Sends a diagnostics request; 0 when the service answered 1 or more.
int runDiagnostic(const Diagnostic& diagnostic) {
    DOLM_LOGI("dolm client %s", diagnostic.name);
    const int32_t result = halclient::sendRequest(diagnostic.name, [&](DolmRequestParcel& parcel) {
        parcel.requestType = halclient::DOLM_REQ_DIAG;
        parcel.option = 1;
        DolmRequestData entry;
        entry.id = diagnostic.code;
        parcel.data = {entry};
        return true;
    });
    return result < 1 ? -1 : 0;
}

}  // namespace

namespace dolmHalclient {

int dolmDumpToDoQueue() {
    return runDiagnostic({0, "dolmDumpToDoQueue"});
}

int dolmDumpRunMap() {
    return runDiagnostic({1, "dolmDumpRunMap"});
}

int dolmDumpActiveResMap() {
    return runDiagnostic({2, "dolmDumpActiveResMap"});
}

int dolmDumpResRequest() {
    return runDiagnostic({3, "dolmDumpResRequest"});
}

int dolmDumpResInfo() {
    return runDiagnostic({4, "dolmDumpResInfo"});
}

int dolmDumpSAInfo() {
    return runDiagnostic({5, "dolmDumpSAInfo"});
}

int dolmDumpPidFdList() {
    return runDiagnostic({6, "dolmDumpPidFdList"});
}

int dolmDumpPidfdMonitorMap() {
    return runDiagnostic({7, "dolmDumpPidfdMonitorMap"});
}

int dolmDumpResRecordList() {
    return runDiagnostic({8, "dolmDumpResRecordList"});
}

int dolmHistoryRequestRecordOn() {
    return runDiagnostic({10, "dolmHistoryRequestRecordOn"});
}

int dolmHistoryRequestRecordOff() {
    return runDiagnostic({11, "dolmHistoryRequestRecordOff"});
}

char* dolmPropertyGet(const std::string& key) {
    DOLM_LOGI("dolm client dolmPropertyGet");
    // Ownership passes to the caller, who frees the array with delete[].
    char* value = new char[kPropertyValueSize];
    value[0] = '\0';
    std::string text;
    halclient::callInFrame("dolmPropertyGet", [&](IDolm& hal) {
        ::ndk::ScopedAStatus status = hal.getProperty(key, &text);
        // A checked copy: a value that does not fit aborts the process, as a
        // fortified copy does, instead of being cut.
        __builtin___strcpy_chk(value, text.c_str(), kPropertyValueSize);
        return status;
    });
    DOLM_LOGI("dolmPropertyGet %s ", value);
    return value;
}

int dolmPropertySet(const std::string& key, const std::string& value) {
    DOLM_LOGI("dolm client dolmPropertySet");
    return halclient::callForResult("dolmPropertySet", [&](IDolm& hal, int32_t* result) {
        return hal.setProperty(key, value, result);
    });
}

}  // namespace dolmHalclient
