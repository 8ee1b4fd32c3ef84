// A Windows path name in parsed, normalised form. The same rules hold on every system: both
// separators are understood, drives and servers are roots, ".." is resolved against what stands
// before it.
//
// A value; no thread owns it. Paths are byte strings, taken as UTF-8 where the framework's strings
// begin.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <juce_core/juce_core.h>

namespace quelta {

class FileName
{
public:
    FileName() = default;

    /** Parses `path`; null and "" give the empty relative name. Never fails; what had to be dropped
        is logged as an error. */
    explicit FileName(const char* path);

    /** Joins `other` onto this name. An absolute `other` takes its place, but without a root of its
        own it stays on this name's root. */
    void append(const FileName& other);

    /** `base` with `relative` appended. */
    static FileName combine(const FileName& base, const FileName& relative);

    /** The name with backslashes. */
    std::string toString() const;

    /** The file of an absolute name with a root. Where absolute paths have no root (any system but
        Windows), an absolute name without one is a file of that system. The empty name gives an
        empty file; anything else gives an empty file and an error line. Bytes that are not UTF-8
        are taken for Latin-1. */
    juce::File toJuceFile() const;

    /** Drops ".." at the front of an absolute name; an error line says so, once. */
    void removeLeadingParentReferences();

    const std::string& getRoot() const { return root; }
    bool isAbsolute() const { return absolute; }
    const std::vector<std::string>& getComponents() const { return components; }

private:
    std::string_view parseRoot(std::string_view path);
    void parseComponents(std::string_view path);
    bool endsInOrdinaryComponent() const;
    std::string join(char separator) const;

    std::string root;      ///< "", "C:" or "\\server".
    bool absolute = false; ///< Whether the path begins at its root.
    std::vector<std::string>
        components; ///< None empty, none with a separator; ".." only at the front.
};

} // namespace quelta
