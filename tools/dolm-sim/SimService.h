// The IDolm binder service of the simulator: turns each call into one call
// of the behaviour model and reports it.
#pragma once

#include <aidl/vendor/tarvo/hardware/dolm/BnDolm.h>

#include <memory>
#include <string>
#include <vector>

#include "SimModel.h"

namespace dolmsim {

using ::aidl::vendor::tarvo::hardware::dolm::DolmRequestParcel;

class SimService : public ::aidl::vendor::tarvo::hardware::dolm::BnDolm {
  public:
    SimService(Model& model, Reporter reporter);

    ::ndk::ScopedAStatus init() override;
    ::ndk::ScopedAStatus request(const DolmRequestParcel& parcel, int32_t* result) override;
    ::ndk::ScopedAStatus release(int32_t handle, int32_t* result) override;
    ::ndk::ScopedAStatus getData(const DolmRequestParcel& parcel,
                                 std::vector<DolmRequestData>* result) override;
    ::ndk::ScopedAStatus registerListener(const DolmRequestParcel& parcel,
                                          const std::shared_ptr<IDolmCallback>& callback,
                                          int32_t* result) override;
    ::ndk::ScopedAStatus unregisterListener(int32_t handle, int32_t* result) override;
    ::ndk::ScopedAStatus getProperty(const std::string& key, std::string* result) override;
    ::ndk::ScopedAStatus setProperty(const std::string& key, const std::string& value,
                                     int32_t* result) override;
    ::ndk::ScopedAStatus registerThermalListener(const std::vector<int32_t>& ids,
                                                 const std::shared_ptr<IDolmCallback>& callback,
                                                 int32_t* result) override;
    ::ndk::ScopedAStatus unregisterThermalListener(int32_t handle, int32_t* result) override;
    ::ndk::ScopedAStatus reserved(const DolmRequestParcel& parcel, int32_t* result) override;
    ::ndk::ScopedAStatus setRelatedSysInfo(int32_t type, const std::string& info,
                                           int32_t* result) override;
    ::ndk::ScopedAStatus ruleCtl(int32_t ruleId, int32_t status,
                                 const std::vector<DolmRequestData>& data, int32_t* result) override;

  private:
    int32_t control(const DolmRequestParcel& parcel);
    /** Reports a refusal and gives the number to answer with (the negative code). */
    int32_t refuse(const std::string& op, int32_t code, const std::string& why);
    ::ndk::ScopedAStatus refuseStatus(const std::string& op, int32_t code, const std::string& why);
    void call(const std::string& line, const nlohmann::json& fields);

    Model& mModel;
    const Reporter mReporter;
};

/** Names of the nine dumps by code. */
const char* dumpName(int32_t code);

}  // namespace dolmsim
