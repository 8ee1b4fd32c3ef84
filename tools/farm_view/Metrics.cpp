#include "farm_view/Metrics.h"

#include <array>
#include <charconv>
#include <initializer_list>
#include <utility>

namespace quelta::farmview {

namespace {

std::string number(double value)
{
    std::array<char, 400> text{}; // the largest double has 309 digits
    const auto result =
        std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
    return {text.data(), result.ptr};
}

std::string number(uint64_t value)
{
    return std::to_string(value);
}

std::string quoted(std::string_view value)
{
    std::string text = "\"";

    for (const char c : value)
    {
        if (c == '\\' || c == '"')
            text += '\\';

        text += c == '\n' ? std::string("\\n") : std::string(1, c);
    }

    return text + "\"";
}

using Labels = std::initializer_list<std::pair<std::string_view, std::string_view>>;

class Page
{
public:
    /** Begins a metric family. */
    void begin(std::string_view familyName, std::string_view type, std::string_view help)
    {
        name = familyName;
        text.append("# HELP ").append(name).append(" ").append(help);
        text.append("\n# TYPE ").append(name).append(" ").append(type).append("\n");
    }

    /** Adds a sample to the family. */
    void add(Labels labels, const std::string& value, std::string_view suffix = {})
    {
        text.append(name).append(suffix);
        char separator = '{';

        for (const auto& [label, labelValue] : labels)
        {
            text.append(1, std::exchange(separator, ',')).append(label).append("=");
            text += quoted(labelValue);
        }

        text.append(labels.size() > 0 ? "} " : " ").append(value).append("\n");
    }

    /** Adds a sample for every node: value(record) as its value. */
    template <typename Value>
    void addNodes(const FarmModel& model, Value value)
    {
        for (const auto& [node, record] : model.getNodes())
            add({{"node", node}}, number(value(record)));
    }

    std::string take() { return std::move(text); }

private:
    std::string text;
    std::string_view name;
};

void addTotals(Page& page, const FarmModel& model)
{
    page.begin("quelta_nodes_expected", "gauge", "Nodes that the operator has named.");
    page.add({}, number(uint64_t{model.getExpectedNodes()}));

    std::array<uint64_t, stateNames.size()> totals{};

    for (const auto& [node, record] : model.getNodes())
        ++totals[static_cast<size_t>(record.status.state)];

    page.begin("quelta_nodes", "gauge", "Nodes by state.");

    for (size_t i = 0; i < totals.size(); ++i)
        page.add({{"state", stateNames[i]}}, number(totals[i]));
}

void addNodeStates(Page& page, const FarmModel& model, Time now)
{
    page.begin("quelta_node_up", "gauge", "Whether the node's daemon answers.");
    page.addNodes(
        model, [](const NodeRecord& record) { return uint64_t{isAnswering(record.status.state)}; });

    page.begin("quelta_node_gpus", "gauge", "GPUs of the node, 0 until it has answered.");
    page.addNodes(model, [](const NodeRecord& record) {
        return uint64_t{record.status.slave ? record.status.slave->gpus : 0};
    });

    page.begin("quelta_node_owned", "gauge", "Whether the node answers and has an owner.");
    page.addNodes(model, [](const NodeRecord& record) {
        return uint64_t{isAnswering(record.status.state) && record.status.owner};
    });

    page.begin("quelta_node_state_seconds", "gauge",
               "Time since the node's state or owner has changed.");
    page.addNodes(model, [now](const NodeRecord& record) {
        return std::max(toSeconds(now) - toSeconds(record.since), 0.0);
    });

    page.begin("quelta_node_info", "gauge", "The node's alias and slave version; always 1.");

    for (const auto& [node, record] : model.getNodes())
        if (const auto& slave = record.status.slave)
            page.add({{"node", node},
                      {"alias", slave->alias},
                      {"version", std::to_string(slave->version)}},
                     "1");
}

void addCounters(Page& page, const FarmModel& model)
{
    page.begin("quelta_node_changes_total", "counter", "Changes of any field of the node.");
    page.addNodes(model, [](const NodeRecord& record) { return record.counters.changes; });

    page.begin("quelta_node_failures_total", "counter",
               "Ownerships that ended within 30 s, which is the trace of a failing slave: a daemon "
               "reports failures to the owner only.");
    page.addNodes(model, [](const NodeRecord& record) { return record.counters.failures; });

    page.begin("quelta_node_steals_total", "counter", "Changes from one owner to another.");
    page.addNodes(model, [](const NodeRecord& record) { return record.counters.steals; });

    page.begin("quelta_node_lost_connections_total", "counter",
               "Connections of the node's daemon that were lost.");
    page.addNodes(model, [](const NodeRecord& record) { return record.counters.lostConnections; });
}

void addRoundTrips(Page& page, const RoundTripHistogram& roundTrips)
{
    page.begin("quelta_scan_round_trip_seconds", "histogram",
               "Time from a scan request to its answer.");

    for (size_t i = 0; i < RoundTripHistogram::limits.size(); ++i)
        page.add({{"le", number(RoundTripHistogram::limits[i])}}, number(roundTrips.countUpTo(i)),
                 "_bucket");

    page.add({{"le", "+Inf"}}, number(roundTrips.getCount()), "_bucket");
    page.add({}, number(roundTrips.getSumSeconds()), "_sum");
    page.add({}, number(roundTrips.getCount()), "_count");
}

void addProcess(Page& page, const ProcessFigures& process)
{
    page.begin("process_cpu_seconds_total", "counter", "User and system CPU time.");
    page.add({}, number(process.cpuSeconds));
    page.begin("process_start_time_seconds", "gauge", "Start of the process since 1970.");
    page.add({}, number(process.startSeconds));
    page.begin("process_resident_memory_bytes", "gauge", "Resident memory.");
    page.add({}, number(process.residentBytes));
    page.begin("process_virtual_memory_bytes", "gauge", "Virtual memory.");
    page.add({}, number(process.virtualBytes));
    page.begin("process_open_fds", "gauge", "Open file descriptors; on Windows handles.");
    page.add({}, number(process.openFiles));

    if (!process.maxFiles)
        return;

    page.begin("process_max_fds", "gauge", "Maximum number of open file descriptors.");
    page.add({}, number(*process.maxFiles));
}

} // namespace

std::string formatMetrics(const FarmModel& model, const ProcessFigures& process, Time now)
{
    Page page;
    addTotals(page, model);
    addNodeStates(page, model, now);
    addCounters(page, model);
    addRoundTrips(page, model.getRoundTrips());
    addProcess(page, process);
    return page.take();
}

} // namespace quelta::farmview
