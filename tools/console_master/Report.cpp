#include "console_master/Report.h"

#include <algorithm>
#include <array>

#include <juce_core/juce_core.h>
#include <nlohmann/json.hpp>

#include "util/ValidUtf8.h"

namespace quelta {

namespace {

using Json = nlohmann::ordered_json;
using Row = std::array<juce::String, 7>;

/** A field's text with control characters, and all bytes of invalid UTF-8, replaced by question
    marks. */
juce::String readable(const std::string& field)
{
    const auto text = std::string(textBeforeNul(field));
    juce::String shown;

    if (isValidUtf8(text))
    {
        const auto whole = juce::String::fromUTF8(text.c_str());

        for (auto character = whole.getCharPointer(); !character.isEmpty(); ++character)
        {
            const auto code = static_cast<uint32_t>(*character);
            const bool isControl = code < 0x20 || (code >= 0x7F && code < 0xA0);
            shown += isControl ? juce::juce_wchar('?') : *character;
        }
    }
    else
    {
        for (const char c : text)
            shown += c >= 0x20 && c < 0x7F ? juce::juce_wchar(c) : juce::juce_wchar('?');
    }

    return shown;
}

std::string quoted(const std::string& field)
{
    return ("\"" + readable(field) + "\"").toStdString();
}

std::string ownerPhrase(const Node& node)
{
    return formatAddress(node.state->masterAddress) + " (" + quoted(node.state->masterText) + ")";
}

std::string describe(const Node& node)
{
    const auto& state = *node.state;
    return "alias " + quoted(state.slaveAlias) + ", " + std::to_string(state.numGpus) +
           (state.numGpus == 1 ? " GPU" : " GPUs") + ", version " +
           std::to_string(state.slaveVersion) + ", " +
           (node.isOwned() ? "owned by " + ownerPhrase(node) : "free");
}

const char* eventName(NodeEvent event)
{
    switch (event)
    {
        case NodeEvent::found:
            return "found";
        case NodeEvent::changed:
            return "changed";
        case NodeEvent::starting:
            return "starting";
        case NodeEvent::running:
            return "running";
        case NodeEvent::failed:
            return "failed";
        case NodeEvent::stopped:
            return "stopped";
        case NodeEvent::refused:
            return "refused";
        case NodeEvent::stolen:
            return "stolen";
        case NodeEvent::lost:
            return "lost";
        case NodeEvent::disconnected:
            return "disconnected";
        case NodeEvent::noAnswer:
            return "no answer";
        case NodeEvent::silent:
            return "silent";
        case NodeEvent::invalidRecord:
            return "invalid record";
    }

    return "";
}

std::string eventDetail(const Node& node, NodeEvent event)
{
    switch (event)
    {
        case NodeEvent::found:
        case NodeEvent::changed:
            return ": " + describe(node);
        case NodeEvent::starting:
            return " for " + formatAddress(node.self);
        case NodeEvent::stopped:
            return ": the node is free";
        case NodeEvent::refused:
            return node.isOwned() ? ": owned by " + ownerPhrase(node)
                                  : ": the slave was not started";
        case NodeEvent::stolen:
            return " by " + ownerPhrase(node);
        case NodeEvent::lost:
            return node.connected ? ": the slave is no longer ours"
                                  : ": the daemon does not come back";
        case NodeEvent::running:
        case NodeEvent::failed:
        case NodeEvent::disconnected:
        case NodeEvent::noAnswer:
        case NodeEvent::silent:
        case NodeEvent::invalidRecord:
            break;
    }

    return {};
}

Row makeRow(const Node& node)
{
    Row row{node.name, "", "", "", stateName(node), "", ""};

    if (node.state)
    {
        row[1] = readable(node.state->slaveAlias);
        row[2] = juce::String(node.state->numGpus);
        row[3] = juce::String(node.state->slaveVersion);
    }

    if (node.isOwned())
    {
        row[5] = juce::String(formatAddress(node.state->masterAddress));
        row[6] = readable(node.state->masterText);
    }

    return row;
}

void addNodeFields(Json& json, const Node& node)
{
    const bool known = node.state.has_value();
    const bool owned = node.isOwned();
    json["node"] = node.name;
    json["state"] = stateName(node);
    json["alias"] = known ? Json(readable(node.state->slaveAlias).toStdString()) : Json();
    json["gpus"] = known ? Json(node.state->numGpus) : Json();
    json["slaveVersion"] = known ? Json(node.state->slaveVersion) : Json();
    json["owner"] = owned ? Json(formatAddress(node.state->masterAddress)) : Json();
    json["ownerText"] = owned ? Json(readable(node.state->masterText).toStdString()) : Json();
}

/** Replaces invalid UTF-8, which host names from the command line may contain. */
std::string dump(const Json& json, int indent = -1)
{
    return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

} // namespace

std::string readableText(const std::string& field)
{
    return readable(field).toStdString();
}

const char* stateName(const Node& node)
{
    if (!node.state)
        return node.phase == NodePhase::ended || node.silent ? "no answer" : "waiting";

    if (!node.connected)
        return node.phase == NodePhase::ended ? "gone" : "disconnected";

    if (node.silent)
        return "silent";

    if (node.phase == NodePhase::starting)
        return "starting";

    if (node.phase == NodePhase::running)
        return "running";

    if (node.phase == NodePhase::releasing)
        return "stopping";

    if (node.slaveFailed)
        return "failed";

    return node.isOwned() ? "owned" : "free";
}

std::string formatTable(const std::vector<Node>& nodes)
{
    std::vector<Row> rows{{"NODE", "ALIAS", "GPUS", "VERSION", "STATE", "OWNER", "OWNER'S TEXT"}};

    for (const auto& node : nodes)
        rows.push_back(makeRow(node));

    juce::String table;

    for (const auto& row : rows)
    {
        juce::String line;

        for (size_t column = 0; column < row.size(); ++column)
        {
            int width = 0;

            for (const auto& other : rows)
                width = std::max(width, other[column].length());

            line << row[column].paddedRight(' ', width + 2);
        }

        table << line.trimEnd() << "\n";
    }

    return table.toStdString();
}

std::string formatJson(const std::vector<Node>& nodes)
{
    auto array = Json::array();

    for (const auto& node : nodes)
    {
        auto object = Json::object();
        addNodeFields(object, node);
        array.push_back(object);
    }

    return dump(array, 2) + "\n";
}

std::string formatEvent(const Node& node, NodeEvent event)
{
    return node.name + " " + eventName(event) + eventDetail(node, event);
}

std::string formatJsonEvent(const Node& node, NodeEvent event, const std::string& time)
{
    Json json{{"time", time}, {"event", eventName(event)}};
    addNodeFields(json, node);
    return dump(json);
}

std::string formatListening(const MasterAddress& self)
{
    return "listening as " + formatAddress(self);
}

std::string formatJsonListening(const MasterAddress& self, const std::string& time)
{
    return dump(Json{{"time", time}, {"event", "listening"}, {"address", formatAddress(self)}});
}

std::string formatServing(const MasterAddress& address)
{
    return "serving at http://" + formatAddress(address) + "/";
}

std::string formatJsonServing(const MasterAddress& address, const std::string& time)
{
    return dump(Json{
        {"time", time}, {"event", "serving"}, {"url", "http://" + formatAddress(address) + "/"}});
}

} // namespace quelta
