#include "standin_slave/ScenarioParser.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace quelta {

const char* const defaultInfoSteps =
    "connect\n"
    "authenticating\n"
    "wait 100\n"
    "info\n"
    "wait 300\n"
    "exit 0\n";

// The wait after `info` gives the daemon, which polls the status every 100 ms, time to see it.
const char* const defaultRunSteps =
    "connect\n"
    "authenticating\n"
    "wait 200\n"
    "info\n"
    "wait 300\n"
    "beat 1000\n";

namespace {

using Action = ScenarioStep::Action;
using Words = std::vector<std::string_view>;

constexpr auto anyNumber = std::numeric_limits<uint32_t>::max();
constexpr std::string_view blanks = " \t\r";

Words splitIntoWords(std::string_view line)
{
    line = line.substr(0, line.find('#'));
    Words words;

    for (size_t begin = 0;
         (begin = line.find_first_not_of(blanks, begin)) != std::string_view::npos;)
    {
        const auto end = std::min(line.find_first_of(blanks, begin), line.size());
        words.push_back(line.substr(begin, end - begin));
        begin = end;
    }

    return words;
}

/** Quotes a word of the file for an error text, shortened and with unprintable bytes replaced. */
std::string quoteWord(std::string_view word)
{
    constexpr size_t maxLength = 40;
    std::string quoted = "'";

    for (const auto c : word.substr(0, maxLength))
        quoted += c >= 0x20 && c < 0x7f ? c : '?';

    return quoted + (word.size() > maxLength ? "...'" : "'");
}

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';

    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;

    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

/** Parses one line into the runs that it applies to. Every parse function returns false after
    setting `error`. */
class LineParser
{
public:
    LineParser(const Words& lineWords, std::string& errorText) : words(lineWords), error(errorText)
    {}

    /** Applies the line to `run` as a setting, or appends it as a step. */
    bool parseInto(RunScenario& run)
    {
        const auto name = words[0];

        if (name == "on-stop")
            return parseOnStop(run);

        if (name == "on-lost")
            return parseOnLost(run);

        if (name == "version")
            return expectWords(2, 2) && parseNumber(1, anyNumber, run.version);

        if (name == "gpus")
            return expectWords(2, 2) && parseNumber(1, anyNumber, run.numGpus);

        ScenarioStep step;

        if (!parseStep(step))
            return false;

        run.steps.push_back(std::move(step));
        return true;
    }

private:
    bool fail(const std::string& reason)
    {
        error = reason;
        return false;
    }

    bool expectWords(size_t min, size_t max)
    {
        if (words.size() < min)
            return fail(quoteWord(words[0]) + " needs more words");

        if (words.size() > max)
            return fail("unexpected " + quoteWord(words[max]));

        return true;
    }

    bool parseNumber(size_t index, uint32_t max, uint32_t& number)
    {
        const auto word = words[index];
        const auto* end = word.data() + word.size();
        const auto [stop, result] = std::from_chars(word.data(), end, number);

        if (stop != end || result != std::errc() || number > max)
            return fail(quoteWord(word) + " is not a number from 0 to " + std::to_string(max));

        return true;
    }

    bool parseNumber(size_t index, uint32_t max, std::optional<uint32_t>& number)
    {
        return parseNumber(index, max, number.emplace());
    }

    bool parseOnStop(RunScenario& run)
    {
        if (!expectWords(2, 3))
            return false;

        if (words[1] == "exit")
        {
            run.onStop = RunScenario::OnStop::exit;
            run.stopStatus = 0;
            return words.size() == 2 || parseNumber(2, anyNumber, run.stopStatus);
        }

        if (words[1] == "exit-after")
        {
            run.onStop = RunScenario::OnStop::exitAfter;
            run.stopStatus = 0;
            return expectWords(3, 3) && parseNumber(2, maxScenarioMilliseconds, run.stopDelay);
        }

        run.onStop = RunScenario::OnStop::ignore;
        return words[1] == "ignore" ? expectWords(2, 2) : failUnknown(1);
    }

    bool parseOnLost(RunScenario& run)
    {
        if (!expectWords(2, 2))
            return false;

        run.exitOnLost = words[1] == "exit";
        return run.exitOnLost || words[1] == "ignore" || failUnknown(1);
    }

    bool failUnknown(size_t index) { return fail("unknown word " + quoteWord(words[index])); }

    bool parseStep(ScenarioStep& step)
    {
        struct Name
        {
            std::string_view text;
            Action action;
            bool (LineParser::*parse)(ScenarioStep&);
        };

        static constexpr Name names[] = {
            {"connect", Action::connect, &LineParser::parseNothing},
            {"disconnect", Action::disconnect, &LineParser::parseNothing},
            {"second-connection", Action::secondConnection, &LineParser::parseNothing},
            {"authenticating", Action::authenticating, &LineParser::parseNothing},
            {"info", Action::info, &LineParser::parseInfo},
            {"status", Action::status, &LineParser::parseNothing},
            {"beat", Action::beat, &LineParser::parseBeat},
            {"wait", Action::wait, &LineParser::parseWait},
            {"frame", Action::frame, &LineParser::parseBytes},
            {"raw", Action::raw, &LineParser::parseBytes},
            {"hang", Action::hang, &LineParser::parseNothing},
            {"crash", Action::crash, &LineParser::parseNothing},
            {"exit", Action::exit, &LineParser::parseExit},
        };

        for (const auto& name : names)
        {
            if (name.text != words[0])
                continue;

            step.action = name.action;
            return (this->*name.parse)(step);
        }

        return failUnknown(0);
    }

    bool parseNothing(ScenarioStep&) { return expectWords(1, 1); }

    bool parseInfo(ScenarioStep& step)
    {
        if (words.size() == 1)
            return true;

        return expectWords(3, 3) && parseNumber(1, anyNumber, step.firstNumber) &&
               parseNumber(2, anyNumber, step.secondNumber);
    }

    bool parseBeat(ScenarioStep& step)
    {
        if (!expectWords(2, 4) || !parseNumber(1, maxScenarioMilliseconds, step.firstNumber))
            return false;

        if (step.firstNumber == 0u)
            return fail("'beat' needs at least 1 ms");

        if (words.size() == 2)
            return true;

        if (words[2] != "for")
            return failUnknown(2);

        return expectWords(4, 4) && parseNumber(3, maxScenarioMilliseconds, step.secondNumber);
    }

    bool parseWait(ScenarioStep& step)
    {
        return expectWords(2, 2) && parseNumber(1, maxScenarioMilliseconds, step.firstNumber);
    }

    bool parseExit(ScenarioStep& step)
    {
        return expectWords(2, 2) && parseNumber(1, anyNumber, step.firstNumber);
    }

    bool parseBytes(ScenarioStep& step)
    {
        size_t index = 1;

        for (; index < words.size() && words[index] != "times"; ++index)
        {
            if (!appendHex(words[index], step.bytes))
                return fail(quoteWord(words[index]) + " is not made of pairs of hex digits");
        }

        if (index == words.size())
            return true;

        if (words.size() < index + 2)
            return fail("'times' needs a number");

        if (words.size() > index + 2)
            return fail("unexpected " + quoteWord(words[index + 2]));

        if (!parseNumber(index + 1, anyNumber, step.firstNumber))
            return false;

        if (uint64_t{*step.firstNumber} * step.bytes.size() > maxStepBytes)
            return fail("more than " + std::to_string(maxStepBytes) + " bytes");

        return true;
    }

    static bool appendHex(std::string_view digits, std::vector<uint8_t>& bytes)
    {
        if (digits.size() % 2 != 0)
            return false;

        for (size_t i = 0; i < digits.size(); i += 2)
        {
            const auto high = hexDigit(digits[i]);
            const auto low = hexDigit(digits[i + 1]);

            if (high < 0 || low < 0)
                return false;

            bytes.push_back(static_cast<uint8_t>(high * 16 + low));
        }

        return true;
    }

    const Words& words;
    std::string& error;
};

/** Parses all lines into `scenario`. On an error `lineNumber` is the number of the wrong line. */
bool parseLines(std::string_view text, Scenario& scenario, size_t& lineNumber, std::string& error)
{
    std::vector<RunScenario*> runs{&scenario.info, &scenario.run};

    while (!text.empty())
    {
        const auto end = std::min(text.find('\n'), text.size());
        const auto words = splitIntoWords(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        ++lineNumber;

        if (words.empty())
            continue;

        if (words.size() == 1 && words[0] == "[info]")
            runs = {&scenario.info};
        else if (words.size() == 1 && words[0] == "[run]")
            runs = {&scenario.run};
        else if (!std::all_of(runs.begin(), runs.end(), [&](RunScenario* run) {
                     return LineParser(words, error).parseInto(*run);
                 }))
            return false;
    }

    return true;
}

} // namespace

bool parseScenario(std::string_view text, Scenario& scenario, std::string& error)
{
    if (text.size() > maxScenarioSize)
    {
        error = "line 1: the scenario is longer than " + std::to_string(maxScenarioSize) + " bytes";
        return false;
    }

    // Windows editors begin UTF-8 files with a byte order mark.
    if (constexpr std::string_view mark = "\xEF\xBB\xBF"; text.substr(0, mark.size()) == mark)
        text.remove_prefix(mark.size());

    Scenario parsed;
    size_t lineNumber = 0;

    if (!parseLines(text, parsed, lineNumber, error))
    {
        error = "line " + std::to_string(lineNumber) + ": " + error;
        return false;
    }

    Scenario defaults;
    parseLines(std::string("[info]\n") + defaultInfoSteps + "[run]\n" + defaultRunSteps, defaults,
               lineNumber, error);

    if (parsed.info.steps.empty())
        parsed.info.steps = std::move(defaults.info.steps);

    if (parsed.run.steps.empty())
        parsed.run.steps = std::move(defaults.run.steps);

    scenario = std::move(parsed);
    return true;
}

} // namespace quelta
