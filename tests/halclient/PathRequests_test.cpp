// Path-addressed requests: the tag, path entries, map key order, length
// checks, state queries by lists and by map, and path listening.
#include "HalclientTestSupport.h"

namespace halclienttest {
namespace {

using namespace dolmHalclient;
using PathList = std::vector<std::string>;
using PathMap = std::map<std::string, std::string>;

const std::optional<std::vector<std::optional<std::string>>> kTags =
        std::vector<std::optional<std::string>>{std::string("zdbdebug")};

DolmRequestData pathData(const std::string& path, std::optional<std::string> value) {
    return entry(0, std::move(value), path);
}

TEST(ZdbdebugTagTest, SetsOneTagWhateverWasThere) {
    DolmRequestParcel parcel;
    dolm_add_zdbdebug_for_request_parcel(parcel);
    EXPECT_EQ(parcel.tags, kTags);
    dolm_add_zdbdebug_for_request_parcel(parcel);
    EXPECT_EQ(parcel.tags, kTags);
    parcel.tags = std::vector<std::optional<std::string>>{std::nullopt, std::string("x")};
    dolm_add_zdbdebug_for_request_parcel(parcel);
    EXPECT_EQ(parcel.tags, kTags);
    EXPECT_EQ(parcel.requestType, 0);
    EXPECT_TRUE(parcel.data.empty());
}

// Every parcel a path function sends carries the tag: checked on each call
// the service received in the tests of this suite.
class PathRequestTest : public HalclientTest {
  protected:
    void TearDown() override {
        for (const zeltest::Call& call : mService->calls()) {
            if (call.op == Op::kUnregisterListener) continue;
            EXPECT_EQ(call.parcel.tags, kTags) << zeltest::opName(call.op);
        }
    }
};

TEST_F(PathRequestTest, ControlSendsPathEntriesAndTheScalars) {
    mService->setAnswer(Op::kRequest, Answer::ok(31));
    const int64_t timeout = int64_t{1} << 40;
    EXPECT_EQ(dolm_resctl_request_by_path(2, timeout, {"/b", "/a"}, {"1", ""}, 3, 1, 4), 31);
    DolmRequestParcel parcel = requestParcel();
    EXPECT_EQ(parcel.requestType, 1);
    EXPECT_EQ(parcel.leadArg, 2);
    EXPECT_EQ(parcel.timeout, timeout);
    EXPECT_EQ(parcel.option, 3);
    EXPECT_TRUE(parcel.flag);
    EXPECT_EQ(parcel.clientArg, 4);
    EXPECT_EQ(parcel.callback, nullptr);
    EXPECT_EQ(parcel.data, (std::vector<DolmRequestData>{pathData("/b", "1"), pathData("/a", "")}));
    EXPECT_EQ(mLog.lines(), std::vector<LogLine>{info("dolm client dolm_resctl_request")});
}

TEST_F(PathRequestTest, LengthMismatchIsRefusedWithEachVariantsText) {
    EXPECT_EQ(dolm_resctl_request_by_path(0, 0, {"a", "b"}, {"1"}, 0, 0, 0), -1);
    EXPECT_EQ(dolm_resctl_request_with_callback_by_path(0, 0, {"a", "b"}, {"1"}, 0, 0, 0,
                                                        std::make_shared<RecordingPathCallback>()),
              -1);
    EXPECT_TRUE(mService->calls().empty());
    EXPECT_EQ(requestCallbackCount(), 0u);
    EXPECT_EQ(mLog.count(error("dolm_resctl_request ERROR: size unmatched for paths and value ")),
              1u);
    EXPECT_EQ(mLog.count(error("dolm client dolm_resctl_request ERROR: size unmatched for id and "
                               "value ")),
              1u);
}

TEST_F(PathRequestTest, ControlWithCallbackDeliversValuesThenPaths) {
    auto callback = std::make_shared<RecordingPathCallback>();
    EXPECT_EQ(dolm_resctl_request_with_callback_by_path(1, -2, {"p"}, {"v"}, 3, 0, 5, callback), 0);
    DolmRequestParcel parcel = requestParcel();
    EXPECT_NE(parcel.callback, nullptr);
    EXPECT_FALSE(parcel.flag);
    EXPECT_EQ(parcel.timeout, -2);
    EXPECT_EQ(parcel.data, std::vector<DolmRequestData>{pathData("p", "v")});
    EXPECT_EQ(mLog.lines(),
              (std::vector<LogLine>{info("dolm client dolm_resctl_request_with_callback"),
                                    info("new std::shared_ptr DolmCallbackClient callback"),
                                    info("dolm client dolm_resctl_request_with_callback add to "
                                         "request_callbacks")}));
    EXPECT_EQ(requestCallbackCount(), 1u);

    mLog.clear();
    ASSERT_TRUE(mService->deliver(0, {entry(0, "7", "/x"), entry(0, std::nullopt, "/y")}).isOk());
    std::vector<RecordingPathCallback::Delivery> deliveries = callback->deliveries();
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0].values, (PathList{"7", ""}));
    EXPECT_EQ(deliveries[0].paths, (PathList{"/x", "/y"}));
    EXPECT_EQ(requestCallbackCount(), 0u);
    EXPECT_EQ(mLog.lines(),
              (std::vector<LogLine>{
                      cbInfo("DolmCallbackClient::onCallback res_Id /x res_Value 7 is_register 0"),
                      calledBack(0), found(), removed(1, 0)}));
}

TEST_F(PathRequestTest, StateByListsSendsValuesOnlyWhenTheyPairUp) {
    mService->setDataAnswer({entry(0, "1", "a"), entry(0, std::nullopt, "b")});
    PathList out{"x", "y", "z"};
    EXPECT_EQ(dolm_res_state_request_by_path({"a", "b"}, {"1"}, 6, out), 5);
    EXPECT_EQ(out, (PathList{"x", "y", "z", "1", ""}));
    EXPECT_EQ(dolm_res_state_request_by_path({"a", "b"}, {"1", "2"}, 6, out), 7);

    std::vector<zeltest::Call> calls = mService->calls(Op::kGetData);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].parcel.requestType, 0);
    EXPECT_EQ(calls[0].parcel.clientArg, 6);
    EXPECT_EQ(calls[0].parcel.data, (std::vector<DolmRequestData>{pathData("a", std::nullopt),
                                                                  pathData("b", std::nullopt)}));
    EXPECT_EQ(calls[1].parcel.data,
              (std::vector<DolmRequestData>{pathData("a", "1"), pathData("b", "2")}));
    EXPECT_EQ(mLog.count(error("dolm_resctl_request ERROR: size unmatched for paths and value ")),
              0u);
    EXPECT_EQ(mLog.count(info("dolm client dolm_res_state_request size 5")), 1u);
}

TEST_F(PathRequestTest, StateQueriesFailOnAnEmptyAnswer) {
    PathList list;
    PathMap map;
    EXPECT_EQ(dolm_res_state_request_by_path({"a"}, {}, 0, list), -1);
    EXPECT_EQ(dolm_res_state_request_map_by_path({}, 0, map), -1);
    EXPECT_TRUE(list.empty());
    EXPECT_TRUE(map.empty());
}

TEST_F(PathRequestTest, StateMapSendsKeyOrderAndKeepsCompleteAnswers) {
    mService->setDataAnswer({entry(0, "9", "b"), entry(0, "8", std::nullopt),
                             entry(0, std::nullopt, "c"), entry(0, "7", "z")});
    PathMap out{{"b", "old"}, {"k", "kept"}};
    EXPECT_EQ(dolm_res_state_request_map_by_path({{"b", "2"}, {"B", ""}, {"a", "1"}}, 3, out), 3);
    EXPECT_EQ(out, (PathMap{{"b", "9"}, {"k", "kept"}, {"z", "7"}}));
    DolmRequestParcel parcel = mService->calls(Op::kGetData).at(0).parcel;
    EXPECT_EQ(parcel.clientArg, 3);
    EXPECT_EQ(parcel.data, (std::vector<DolmRequestData>{pathData("B", ""), pathData("a", "1"),
                                                         pathData("b", "2")}));
    EXPECT_EQ(mLog.lines(),
              (std::vector<LogLine>{info("dolm client dolm_res_state_request_map"),
                                    error("res_Path: b, res_Value:9"),
                                    error("res_Path: z, res_Value:7"),
                                    info("dolm client dolm_res_state_request_map size 3")}));
}

TEST_F(PathRequestTest, ListeningByPathRefusesTheSameList) {
    auto callback = std::make_shared<RecordingPathCallback>();
    mService->setAnswer(Op::kRegisterListener, Answer::ok(21));
    EXPECT_EQ(dolm_res_listening_register_by_path({"a", "b"}, 5, callback), 21);
    EXPECT_EQ(dolm_res_listening_register_by_path({"a", "b"}, 5, callback), -1);
    EXPECT_EQ(dolm_res_listening_register_by_path({"b", "a"}, 5, callback), 21);
    // The map's keys in key order are the same list as the first one.
    EXPECT_EQ(dolm_res_listening_register_map_by_path({{"b", "2"}, {"a", "1"}}, 5, callback), -1);
    EXPECT_EQ(mLog.count(error("Same callback interface registered already")), 2u);

    std::vector<zeltest::Call> calls = mService->calls(Op::kRegisterListener);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_NE(calls[0].callback, nullptr);
    EXPECT_EQ(calls[0].parcel.clientArg, 5);
    EXPECT_EQ(calls[0].parcel.requestType, 0);
    EXPECT_EQ(calls[0].parcel.data, (std::vector<DolmRequestData>{pathData("a", std::nullopt),
                                                                  pathData("b", std::nullopt)}));
    EXPECT_EQ(mLog.count(info("A callback has been registered to Dolm HAL ")), 2u);

    EXPECT_EQ(dolmResListeningUnRegister(21), 0);
    EXPECT_EQ(mLog.count(info("a callback has been unregistered to Dolm HAL handle 21")), 2u);
    EXPECT_EQ(dolm_res_listening_register_map_by_path({{"b", "2"}, {"a", "1"}}, 5, callback), 21);
    EXPECT_EQ(mService->calls(Op::kRegisterListener).back().parcel.data,
              (std::vector<DolmRequestData>{pathData("a", "1"), pathData("b", "2")}));
}

TEST_F(PathRequestTest, PathListenerGetsEveryDelivery) {
    auto callback = std::make_shared<RecordingPathCallback>();
    dolm_res_listening_register_by_path({"p"}, 0, callback);
    mLog.clear();
    ASSERT_TRUE(mService->deliver(0, {entry(3, "v", "p")}).isOk());
    ASSERT_TRUE(mService->deliver(0, {}).isOk());
    ASSERT_EQ(callback->deliveries().size(), 1u);
    EXPECT_EQ(mLog.lines(),
              (std::vector<LogLine>{
                      cbInfo("DolmCallbackClient::onCallback res_Id p res_Value v is_register 1"),
                      calledBack(1)}));
}

}  // namespace
}  // namespace halclienttest
