#include "util/FileName.h"

#include <algorithm>

#include "log/Log.h"
#include "platform/Paths.h"
#include "util/ValidUtf8.h"

namespace quelta {

namespace {

constexpr std::string_view separators = "\\/";
constexpr std::string_view parent = "..";

bool isSeparator(char c)
{
    return separators.find(c) != std::string_view::npos;
}

} // namespace

FileName::FileName(const char* path)
{
    if (path == nullptr || *path == '\0')
        return;

    auto rest = parseRoot(path);

    if (!rest.empty() && isSeparator(rest.front()))
    {
        absolute = true;
        rest.remove_prefix(1);
    }

    parseComponents(rest);
    removeLeadingParentReferences();

    if (!absolute && !root.empty())
    {
        logError("relative path with root given (%s). root '%s' will be cleared.", path,
                 root.c_str());
        root.clear();
    }
}

/** Parses a leading drive or server name; returns the rest of the path. */
std::string_view FileName::parseRoot(std::string_view path)
{
    if (path.size() >= 2 && path[1] == ':')
    {
        root = path.substr(0, 2);
        return path.substr(2);
    }

    if (path.size() >= 2 && isSeparator(path[0]) && isSeparator(path[1]))
    {
        const auto end = std::min(path.find_first_of(separators, 2), path.size());

        if (end > 2)
        {
            root = "\\\\";
            root += path.substr(2, end - 2);
            absolute = true;
            return path.substr(end);
        }
    }

    return path;
}

void FileName::parseComponents(std::string_view path)
{
    while (!path.empty())
    {
        const auto end = std::min(path.find_first_of(separators), path.size());
        const auto piece = path.substr(0, end);

        if (piece == parent && endsInOrdinaryComponent())
            components.pop_back();
        else if (!piece.empty())
            components.emplace_back(piece);

        path.remove_prefix(std::min(end + 1, path.size()));
    }
}

bool FileName::endsInOrdinaryComponent() const
{
    return !components.empty() && components.back() != parent;
}

void FileName::removeLeadingParentReferences()
{
    if (!absolute || components.empty() || components.front() != parent)
        return;

    logError(
        "Absolute path specified, but after normalization there are still some '..' left. Removing "
        "these...");

    const auto firstToKeep = std::find_if(components.begin(), components.end(),
                                          [](const auto& c) { return c != parent; });
    components.erase(components.begin(), firstToKeep);
}

void FileName::append(const FileName& other)
{
    if (other.absolute)
    {
        if (!other.root.empty())
            root = other.root;

        components = other.components;
        absolute = true;
        return;
    }

    for (const auto& component : std::vector<std::string>(other.components))
    {
        if (component == parent && endsInOrdinaryComponent())
            components.pop_back();
        else if (component != parent || !absolute)
            components.push_back(component);
    }

    removeLeadingParentReferences();
}

FileName FileName::combine(const FileName& base, const FileName& relative)
{
    auto result = base;
    result.append(relative);
    return result;
}

std::string FileName::toString() const
{
    return join('\\');
}

std::string FileName::join(char separator) const
{
    size_t length = root.size() + 1;

    for (const auto& component : components)
        length += component.size() + 1;

    std::string text;
    text.reserve(length);
    text += root;

    if (absolute)
        text += separator;

    for (size_t i = 0; i < components.size(); ++i)
    {
        if (i > 0)
            text += separator;

        text += components[i];
    }

    return text;
}

juce::File FileName::toJuceFile() const
{
    if (!absolute && components.empty() && root.empty())
        return {};

    if (!absolute || (root.empty() && platform::absolutePathsHaveRoot()))
    {
        logError("FileName::toJuceFile() can be called only on absolute file names");
        return {};
    }

    const auto path = root.empty() ? join(platform::nativeSeparator()) : toString();
    return juce::File(juce::String::fromUTF8(toValidUtf8(path).c_str()));
}

} // namespace quelta
