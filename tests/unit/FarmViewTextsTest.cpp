// The exact texts of the farm view: JSON, server-sent events and metrics.
#include <gtest/gtest.h>

#include "farm_view/FarmJson.h"
#include "farm_view/Metrics.h"
#include "support/FarmView.h"

namespace quelta::farmview {

namespace {

using namespace std::chrono_literals;

constexpr auto ownedJson =
    R"({"node":"a:1","state":"owned","alias":"demo","gpus":2,"slaveVersion":4000000,)"
    R"("owner":"10.0.0.2:21000","ownerText":"render","since":"2026-11-20T23:15:17.702Z",)"
    R"("lastChange":"2026-11-20T23:15:17.702Z","roundTripMs":0.25})";

constexpr auto waitingJson =
    R"({"node":"b:2","state":"no answer","alias":null,"gpus":null,"slaveVersion":null,)"
    R"("owner":null,"ownerText":null,"since":"2026-11-20T23:15:16.702Z",)"
    R"("lastChange":"2026-11-20T23:15:16.702Z","roundTripMs":null})";

/** Node a:1, which was free for a second and then owned, and b:2, which has not answered. */
FarmModel makeModel()
{
    FarmModel model(sampleTime());
    model.setExpectedNodes(2);
    model.update(freeNode(), sampleTime());
    model.update({"b:2", NodeState::noAnswer, {}, {}}, sampleTime());
    model.update(ownedNode(), sampleTime() + 1s);
    model.addRoundTrip("a:1", 250us);
    return model;
}

TEST(FarmViewTime, IsUtcWithMilliseconds)
{
    EXPECT_EQ(formatTime(sampleTime()), "2026-11-20T23:15:16.702Z");
    EXPECT_EQ(formatTime(Time(0ms)), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(formatTime(Time(951782399007ms)), "2000-02-28T23:59:59.007Z");
    EXPECT_DOUBLE_EQ(toSeconds(Time(1500ms)), 1.5);
}

TEST(FarmViewJson, ListsNodes)
{
    EXPECT_EQ(formatNodes(makeModel(), sampleTime() + 2s),
              std::string(R"({"time":"2026-11-20T23:15:18.702Z","nodes":[)") + ownedJson + "," +
                  waitingJson + "]}");
    EXPECT_EQ(formatNodes(FarmModel(sampleTime()), sampleTime()),
              R"({"time":"2026-11-20T23:15:16.702Z","nodes":[]})");
}

TEST(FarmViewJson, HistoryOfANodeFollowsItsFields)
{
    const auto model = makeModel();
    const auto& record = model.getNodes().at("a:1");
    EXPECT_EQ(formatNode(record), ownedJson);
    EXPECT_EQ(formatNodeWithHistory(record),
              std::string(ownedJson).substr(0, std::string(ownedJson).size() - 1) +
                  R"(,"history":[{"time":"2026-11-20T23:15:16.702Z","state":"free","owner":null,)"
                  R"("ownerText":null},{"time":"2026-11-20T23:15:17.702Z","state":"owned",)"
                  R"("owner":"10.0.0.2:21000","ownerText":"render"}]})");
}

TEST(FarmViewJson, HistoryOfAllNodesSaysHowFarBackItGoes)
{
    FarmModel model(sampleTime());
    model.update(freeNode(), sampleTime());
    EXPECT_EQ(formatHistory(model, sampleTime() + 1s),
              R"({"time":"2026-11-20T23:15:17.702Z","since":"2026-11-20T23:15:16.702Z",)"
              R"("nodes":{"a:1":[{"time":"2026-11-20T23:15:16.702Z","state":"free",)"
              R"("owner":null,"ownerText":null}]}})");
}

TEST(FarmViewJson, HistoryOfAllNodesHasTheLatestChangesOfEach)
{
    FarmModel model(sampleTime());
    const size_t numNodes = maxChangesOfAllNodes / 2;

    for (size_t i = 0; i < numNodes; ++i)
        for (const auto state : {NodeState::waiting, NodeState::free, NodeState::silent})
            model.update(makeStatus(std::to_string(i), state), sampleTime());

    const auto text = formatHistory(model, sampleTime());
    EXPECT_EQ(text.find("waiting"), std::string::npos);
    EXPECT_NE(text.find(R"("7":[{"time":"2026-11-20T23:15:16.702Z","state":"free")"),
              std::string::npos);
    EXPECT_NE(text.find("silent"), std::string::npos);
}

TEST(FarmViewJson, EscapesTextsAndReplacesInvalidUtf8)
{
    FarmModel model(sampleTime());
    auto status = freeNode("a\xFF:1");
    status.slave->alias = "</script>\"\\";
    model.update(status, sampleTime());
    const auto text = formatNodes(model, sampleTime());
    EXPECT_NE(text.find("\"a\xEF\xBF\xBD:1\""), std::string::npos) << text;
    EXPECT_NE(text.find(R"("</script>\"\\")"), std::string::npos) << text;
}

TEST(FarmViewJson, SmallObjects)
{
    EXPECT_EQ(formatError("no \"such\" node"), R"({"error":"no \"such\" node"})");
    EXPECT_EQ(formatRemoved("a:1"), R"({"node":"a:1"})");
    EXPECT_EQ(formatClock(sampleTime()), R"({"time":"2026-11-20T23:15:16.702Z"})");
    EXPECT_EQ(formatServerSentEvent("time", "{}"), "event: time\ndata: {}\n\n");
}

constexpr auto nodeMetrics = R"(# HELP quelta_nodes_expected Nodes that the operator has named.
# TYPE quelta_nodes_expected gauge
quelta_nodes_expected 2
# HELP quelta_nodes Nodes by state.
# TYPE quelta_nodes gauge
quelta_nodes{state="waiting"} 0
quelta_nodes{state="no answer"} 1
quelta_nodes{state="free"} 0
quelta_nodes{state="owned"} 1
quelta_nodes{state="failed"} 0
quelta_nodes{state="silent"} 0
quelta_nodes{state="disconnected"} 0
# HELP quelta_node_up Whether the node's daemon answers.
# TYPE quelta_node_up gauge
quelta_node_up{node="a:1"} 1
quelta_node_up{node="b:2"} 0
# HELP quelta_node_gpus GPUs of the node, 0 until it has answered.
# TYPE quelta_node_gpus gauge
quelta_node_gpus{node="a:1"} 2
quelta_node_gpus{node="b:2"} 0
# HELP quelta_node_owned Whether the node answers and has an owner.
# TYPE quelta_node_owned gauge
quelta_node_owned{node="a:1"} 1
quelta_node_owned{node="b:2"} 0
# HELP quelta_node_state_seconds Time since the node's state or owner has changed.
# TYPE quelta_node_state_seconds gauge
quelta_node_state_seconds{node="a:1"} 1
quelta_node_state_seconds{node="b:2"} 2
# HELP quelta_node_info The node's alias and slave version; always 1.
# TYPE quelta_node_info gauge
quelta_node_info{node="a:1",alias="demo",version="4000000"} 1
# HELP quelta_node_changes_total Changes of any field of the node.
# TYPE quelta_node_changes_total counter
quelta_node_changes_total{node="a:1"} 1
quelta_node_changes_total{node="b:2"} 0
)";

constexpr auto roundTripMetrics = R"(# TYPE quelta_scan_round_trip_seconds histogram
quelta_scan_round_trip_seconds_bucket{le="0.0005"} 1
quelta_scan_round_trip_seconds_bucket{le="0.001"} 1
quelta_scan_round_trip_seconds_bucket{le="0.0025"} 1
quelta_scan_round_trip_seconds_bucket{le="0.005"} 1
quelta_scan_round_trip_seconds_bucket{le="0.01"} 1
quelta_scan_round_trip_seconds_bucket{le="0.025"} 1
quelta_scan_round_trip_seconds_bucket{le="0.05"} 1
quelta_scan_round_trip_seconds_bucket{le="0.1"} 1
quelta_scan_round_trip_seconds_bucket{le="0.25"} 1
quelta_scan_round_trip_seconds_bucket{le="0.5"} 1
quelta_scan_round_trip_seconds_bucket{le="1"} 1
quelta_scan_round_trip_seconds_bucket{le="2.5"} 1
quelta_scan_round_trip_seconds_bucket{le="5"} 1
quelta_scan_round_trip_seconds_bucket{le="+Inf"} 1
quelta_scan_round_trip_seconds_sum 0.00025
quelta_scan_round_trip_seconds_count 1
)";

constexpr auto processMetrics = R"(# HELP process_cpu_seconds_total User and system CPU time.
# TYPE process_cpu_seconds_total counter
process_cpu_seconds_total 1.5
# HELP process_start_time_seconds Start of the process since 1970.
# TYPE process_start_time_seconds gauge
process_start_time_seconds 100
# HELP process_resident_memory_bytes Resident memory.
# TYPE process_resident_memory_bytes gauge
process_resident_memory_bytes 4096
# HELP process_virtual_memory_bytes Virtual memory.
# TYPE process_virtual_memory_bytes gauge
process_virtual_memory_bytes 8192
# HELP process_open_fds Open file descriptors; on Windows handles.
# TYPE process_open_fds gauge
process_open_fds 9
# HELP process_max_fds Maximum number of open file descriptors.
# TYPE process_max_fds gauge
process_max_fds 1024
)";

TEST(FarmViewMetrics, HaveOneSampleForEveryNodeAndState)
{
    const auto text = formatMetrics(makeModel(), {}, sampleTime() + 2s);
    EXPECT_EQ(text.substr(0, std::string(nodeMetrics).size()), nodeMetrics);
}

TEST(FarmViewMetrics, EndWithRoundTripsAndTheProcess)
{
    const ProcessFigures process{1.5, 100, 4096, 8192, 9, 1024};
    const auto text = formatMetrics(makeModel(), process, sampleTime() + 2s);
    EXPECT_NE(text.find(roundTripMetrics), std::string::npos) << text;
    ASSERT_GT(text.size(), std::string(processMetrics).size());
    EXPECT_EQ(text.substr(text.size() - std::string(processMetrics).size()), processMetrics);
}

TEST(FarmViewMetrics, LeaveOutAnUnlimitedNumberOfFiles)
{
    EXPECT_EQ(formatMetrics(makeModel(), {}, sampleTime()).find("max_fds"), std::string::npos);
}

TEST(FarmViewMetrics, CountersFollowTheirNodes)
{
    FarmModel model(sampleTime());
    model.update(ownedNode(21000), sampleTime());
    model.update(ownedNode(21001), sampleTime());
    model.update(freeNode(), sampleTime() + 1s);
    model.update(lostNode(), sampleTime() + 1s);
    const auto text = formatMetrics(model, {}, sampleTime() + 1s);

    for (const auto* sample : {"\nquelta_node_changes_total{node=\"a:1\"} 3\n",
                               "\nquelta_node_failures_total{node=\"a:1\"} 1\n",
                               "\nquelta_node_steals_total{node=\"a:1\"} 1\n",
                               "\nquelta_node_lost_connections_total{node=\"a:1\"} 1\n"})
        EXPECT_NE(text.find(sample), std::string::npos) << sample;
}

TEST(FarmViewMetrics, EscapeLabels)
{
    FarmModel model(sampleTime());
    auto status = freeNode();
    status.slave->alias = "a\"b\\c\nd";
    model.update(status, sampleTime());
    EXPECT_NE(formatMetrics(model, {}, sampleTime()).find(R"(alias="a\"b\\c\nd")"),
              std::string::npos);
}

} // namespace

} // namespace quelta::farmview
