// A Windows path name in parsed, normalised form. The rules are the same on every system: both
// separators are accepted, drives and servers are roots, and ".." removes the preceding component.
//
// A value type. Paths are byte strings; conversion to JUCE strings interprets them as UTF-8.
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

    /** Parses `path`; null and "" give the empty relative name. Never fails: logs an error if it
        has to drop a part. */
    explicit FileName(const char* path);

    /** Appends `other`. An absolute `other` replaces this name, but keeps this name's root if it
        has none of its own. */
    void append(const FileName& other);

    /** Returns `base` with `relative` appended. */
    static FileName combine(const FileName& base, const FileName& relative);

    /** Returns the name with backslashes as separators. */
    std::string toString() const;

    /** Converts an absolute name with a root to a file. On systems where absolute paths have no
        root (all but Windows), an absolute name without a root is a native path. The empty name
        gives an empty file; any other name gives an empty file and logs an error. Bytes that are
        not valid UTF-8 are interpreted as Latin-1. */
    juce::File toJuceFile() const;

    /** Removes leading ".." components of an absolute name, and logs one error if there are any. */
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

    /** Not empty and without separators; ".." only at the front. */
    std::vector<std::string> components;
};

} // namespace quelta
