#include "farm_view/FarmJson.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace quelta::farmview {

namespace {

using Json = nlohmann::ordered_json;

/** Replaces invalid UTF-8, which host names from the command line may contain. */
std::string dump(const Json& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void addOwner(Json& json, const std::optional<Owner>& owner)
{
    json["owner"] = owner ? Json(formatAddress(owner->address)) : Json();
    json["ownerText"] = owner ? Json(owner->text) : Json();
}

Json makeNode(const NodeRecord& record)
{
    const auto& [name, state, slave, owner] = record.status;
    auto json = Json::object();
    json["node"] = name;
    json["state"] = nameOf(state);
    json["alias"] = slave ? Json(slave->alias) : Json();
    json["gpus"] = slave ? Json(slave->gpus) : Json();
    json["slaveVersion"] = slave ? Json(slave->version) : Json();
    addOwner(json, owner);
    json["since"] = formatTime(record.since);
    json["lastChange"] = formatTime(record.lastChange);
    json["roundTripMs"] =
        record.roundTrip ? Json(static_cast<double>(record.roundTrip->count()) / 1000) : Json();
    return json;
}

Json makeHistory(const NodeHistory& history, size_t maxCount)
{
    auto array = Json::array();
    const auto& changes = history.getChanges();
    const auto count = std::min(changes.size(), maxCount);

    for (auto change = changes.end() - static_cast<std::ptrdiff_t>(count); change != changes.end();
         ++change)
    {
        auto json = Json::object();
        json["time"] = formatTime(change->getTime());
        json["state"] = nameOf(change->getState());
        addOwner(json, change->getOwner());
        array.push_back(std::move(json));
    }

    return array;
}

} // namespace

std::string formatNodes(const FarmModel& model, Time now)
{
    auto nodes = Json::array();

    for (const auto& [name, record] : model.getNodes())
        nodes.push_back(makeNode(record));

    return dump(Json{{"time", formatTime(now)}, {"nodes", std::move(nodes)}});
}

std::string formatNode(const NodeRecord& record)
{
    return dump(makeNode(record));
}

std::string formatNodeWithHistory(const NodeRecord& record)
{
    auto json = makeNode(record);
    json["history"] = makeHistory(record.history, NodeHistory::maxChanges);
    return dump(json);
}

std::string formatHistory(const FarmModel& model, Time now)
{
    const auto share = maxChangesOfAllNodes / std::max<size_t>(model.getNodes().size(), 1);
    auto nodes = Json::object();

    for (const auto& [name, record] : model.getNodes())
        nodes[name] = makeHistory(record.history, std::max<size_t>(share, 1));

    return dump(Json{{"time", formatTime(now)},
                     {"since", formatTime(model.historyBegin(now))},
                     {"nodes", std::move(nodes)}});
}

std::string formatError(const std::string& text)
{
    return dump(Json{{"error", text}});
}

std::string formatRemoved(const std::string& node)
{
    return dump(Json{{"node", node}});
}

std::string formatClock(Time now)
{
    return dump(Json{{"time", formatTime(now)}});
}

std::string formatServerSentEvent(const std::string& name, const std::string& data)
{
    return "event: " + name + "\ndata: " + data + "\n\n";
}

} // namespace quelta::farmview
