#include "console_master/Display.h"

#include <ostream>

#include <juce_core/juce_core.h>

#include "console_master/Report.h"

namespace quelta {

namespace {

constexpr uint32_t tableDelayMs = 250;

std::string timeText()
{
    return juce::Time::getCurrentTime().toISO8601(true).toStdString();
}

} // namespace

Display::Display(const Options& givenOptions, std::ostream& output)
    : options(givenOptions), out(output)
{}

void Display::showListening(const std::set<MasterAddress>& addresses)
{
    if (options.command == Command::scan || options.command == Command::stop)
        return;

    for (const auto& self : addresses)
        showLine(options.json ? formatJsonListening(self, timeText()) : formatListening(self));
}

void Display::showServing(const MasterAddress& address)
{
    showLine(options.json ? formatJsonServing(address, timeText()) : formatServing(address));
}

void Display::showEvent(const Node& node, NodeEvent event, uint32_t now)
{
    lastEventAt = now;
    tableIsOutdated = true;

    if (options.command != Command::scan)
        showLine(options.json ? formatJsonEvent(node, event, timeText())
                              : formatEvent(node, event));
}

void Display::showOutdatedTable(const std::vector<Node>& nodes, uint32_t now)
{
    if (options.command != Command::watch || options.json || !tableIsOutdated ||
        now - lastEventAt < tableDelayMs)
        return;

    tableIsOutdated = false;
    out << "\n" << formatTable(nodes) << std::endl;
}

void Display::showResult(const std::vector<Node>& nodes)
{
    if (options.command != Command::scan)
        return;

    if (options.json || !nodes.empty())
        out << (options.json ? formatJson(nodes) : formatTable(nodes)) << std::flush;
}

/** A watch or a server may run for days, so its lines begin with the time. JSON objects contain it
    already. */
void Display::showLine(const std::string& line)
{
    const bool isLasting = options.command == Command::watch || options.command == Command::serve;

    if (isLasting && !options.json)
        out << juce::Time::getCurrentTime().formatted("%Y-%m-%d %H:%M:%S ").toStdString();

    out << line << std::endl;
}

} // namespace quelta
