#include "util/CommandLineSplitter.h"

namespace quelta {

namespace {

bool isBlank(char c)
{
    return c == ' ' || c == '\t';
}

void skipBlanks(std::string_view& text)
{
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
}

std::string takeProgramName(std::string_view& text)
{
    std::string name;

    for (bool quoted = false; !text.empty() && (quoted || !isBlank(text.front()));
         text.remove_prefix(1))
    {
        if (text.front() == '"')
            quoted = !quoted;
        else
            name += text.front();
    }

    return name;
}

/** Consumes a run of backslashes. Returns true if it also consumed a quote that they escape. */
bool takeBackslashes(std::string_view& text, std::string& argument)
{
    size_t count = 0;

    while (count < text.size() && text[count] == '\\')
        ++count;

    text.remove_prefix(count);

    if (text.empty() || text.front() != '"')
    {
        argument.append(count, '\\');
        return false;
    }

    argument.append(count / 2, '\\');

    if (count % 2 == 0)
        return false;

    argument += '"';
    text.remove_prefix(1);
    return true;
}

std::string takeArgument(std::string_view& text)
{
    std::string argument;

    for (bool quoted = false; !text.empty() && (quoted || !isBlank(text.front()));)
    {
        if (text.front() == '\\' && takeBackslashes(text, argument))
            continue;

        if (text.empty() || (!quoted && isBlank(text.front())))
            break;

        if (text.front() != '"')
            argument += text.front();
        else if (quoted && text.size() > 1 && text[1] == '"')
        {
            argument += '"';
            text.remove_prefix(1);
        }
        else
            quoted = !quoted;

        text.remove_prefix(1);
    }

    return argument;
}

} // namespace

std::vector<std::string> splitCommandLine(std::string_view commandLine)
{
    std::vector<std::string> arguments{takeProgramName(commandLine)};

    for (skipBlanks(commandLine); !commandLine.empty(); skipBlanks(commandLine))
        arguments.push_back(takeArgument(commandLine));

    return arguments;
}

} // namespace quelta
