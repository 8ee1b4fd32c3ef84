#include "exec_slave/CheckText.h"

#include <algorithm>
#include <cctype>

#include "exec_slave/CleanText.h"
#include "exec_slave/Duration.h"
#include "exec_slave/Wording.h"

namespace quelta::execslave {

namespace {

/** Rows of a name and a text. The text of a row without a name continues the row above. */
class Rows
{
public:
    void add(const std::string& name, const std::string& row)
    {
        constexpr size_t width = 13;
        text += name + std::string(width - name.size(), ' ') + row + '\n';
    }

    std::string text;
};

bool isUnquotedCharacter(char c)
{
    return static_cast<unsigned char>(c) >= 0x80 || (std::isalnum(c) != 0) ||
           std::string_view("_-./:=@%+,\\").find(c) != std::string_view::npos;
}

std::string formatWord(const std::string& word)
{
    if (!word.empty() && std::all_of(word.begin(), word.end(), isUnquotedCharacter))
        return word;

    std::string quoted = "'";

    for (const auto c : cleanText(word))
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);

    return quoted + '\'';
}

std::string formatSize(int64_t bytes)
{
    constexpr std::string_view units = "KMG";
    size_t unit = 0;

    while (unit < units.size() && bytes % 1024 == 0)
    {
        bytes /= 1024;
        ++unit;
    }

    return std::to_string(bytes) + (unit > 0 ? std::string(1, units[unit - 1]) : " bytes");
}

std::string describeReadiness(const ReadyCondition& ready)
{
    const auto limit = ", within " + describeSeconds(ready.timeout);

    if (!ready.line.empty())
        return "when a line of output matches " + formatWord(ready.line) + limit;

    if (!ready.tcp.empty())
        return "when " + ready.tcp + " accepts a connection" + limit;

    if (!ready.command.empty())
        return "when this command ends with 0" + limit + ": " + formatCommand(ready.command);

    return "when the program has run for " + describeSeconds(ready.after);
}

void describeHealth(const AliveCondition& alive, Rows& rows)
{
    std::vector<std::string> conditions;
    const auto period = ", checked every " + describeSeconds(alive.period);

    if (!alive.tcp.empty())
        conditions.push_back("while " + alive.tcp + " accepts connections" + period);

    if (!alive.command.empty())
        conditions.push_back("while this command ends with 0" + period + ": " +
                             formatCommand(alive.command));

    if (alive.silence)
        conditions.push_back("while the program prints a line every " +
                             describeSeconds(*alive.silence));

    if (conditions.empty())
        conditions.emplace_back("while the program runs");

    for (size_t i = 0; i < conditions.size(); ++i)
        rows.add(i == 0 ? "alive" : "", (i == 0 ? "" : "and ") + conditions[i]);
}

void describeStop(const StopLadder& stop, Rows& rows)
{
    const auto signal = "send SIG" + stop.signal + " (on Windows Ctrl-Break)";

    if (stop.command.empty())
        rows.add("stop", signal);
    else
    {
        rows.add("stop", "run " + formatCommand(stop.command));
        rows.add("", "after " + describeSeconds(stop.grace / 2) + ", or if that fails, " + signal);
    }

    rows.add("", "after " + describeSeconds(stop.grace) + " kill");
}

void describeOutput(const OutputSettings& output, Rows& rows)
{
    rows.add("output", "to standard output" +
                           (output.prefix.empty() ? "" : ", after " + quoteText(output.prefix)));

    if (!output.file.empty())
        rows.add("", "to " + output.file + ", up to " + formatSize(output.maxSize) +
                         "; older files kept: " + std::to_string(output.keep));
}

void describeEnvironment(const std::map<std::string, std::string>& environment, Rows& rows)
{
    auto name = "environment";

    for (const auto& [variable, value] : environment)
    {
        rows.add(name, value.empty() ? variable + " is removed" : variable + '=' + value);
        name = "";
    }
}

void describeGpus(const CheckFacts& facts, const std::optional<uint32_t>& configured, Rows& rows)
{
    const auto& detected = facts.detected;
    rows.add("GPUs", std::to_string(detected.names.size()) + " found" +
                         (detected.source.empty() ? "" : " by " + detected.source) +
                         (configured ? ", " + std::to_string(*configured) + " configured" : ""));

    for (size_t i = 0; i < detected.names.size(); ++i)
        rows.add("", std::to_string(i) + ": " + detected.names[i]);

    for (const auto& note : detected.notes)
        rows.add("", "note: " + note);

    if (!facts.selection.error.empty())
        rows.add("", "error: " + facts.selection.error);
}

void describeVersion(const Configuration& configuration, Rows& rows)
{
    if (configuration.versionCommand.empty())
        return rows.add("version", std::to_string(configuration.version));

    rows.add("version", "from " + formatCommand(configuration.versionCommand));
    rows.add("", "by the pattern " + formatWord(configuration.versionPattern));
}

} // namespace

std::string formatCommand(const Command& command)
{
    std::string text;

    for (const auto& word : command)
    {
        if (!text.empty())
            text += ' ';

        text += formatWord(word);
    }

    return text;
}

std::string describeRun(const Configuration& configuration, const PlaceholderValues& example,
                        const CheckFacts& facts)
{
    const auto run = expandPlaceholders(configuration, example);
    Rows rows;
    rows.add("file", facts.fileName);
    rows.add("example", "master " + example.masterAddress + ':' +
                            std::to_string(example.masterPort) + ", alias " +
                            quoteText(example.alias));
    rows.add("command", formatCommand(run.command));
    rows.add("program", facts.program.empty() ? "not found" : facts.program);
    rows.add("folder", (run.folder.empty() ? "the folder of quelta_exec_slave" : run.folder) +
                           (facts.folderExists ? "" : " (does not exist)"));

    auto environment = run.environment;
    environment.merge(std::map(facts.selection.environment));
    describeEnvironment(environment, rows);
    describeVersion(run, rows);
    describeGpus(facts, configuration.gpus, rows);
    rows.add("ready", describeReadiness(run.ready));
    describeHealth(run.alive, rows);

    for (size_t i = 0; i < run.errors.size(); ++i)
        rows.add(i == 0 ? "errors" : "", "a line that matches " + formatWord(run.errors[i]));

    describeStop(run.stop, rows);
    describeOutput(run.output, rows);
    rows.add("containment", facts.containment);
    return rows.text;
}

} // namespace quelta::execslave
