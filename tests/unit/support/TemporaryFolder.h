// A temporary folder for one test, removed with its contents.
#pragma once

#include <string>
#include <string_view>

#include <juce_core/juce_core.h>

namespace quelta::test {

class TemporaryFolder
{
public:
    TemporaryFolder() : folder(juce::File::createTempFile("folder")) { folder.createDirectory(); }
    ~TemporaryFolder() { folder.deleteRecursively(); }

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    juce::File getChild(const char* name) const { return folder.getChildFile(name); }
    std::string getPath() const { return folder.getFullPathName().toStdString(); }

private:
    juce::File folder;
};

inline void writeBytes(const juce::File& file, std::string_view bytes)
{
    file.replaceWithData(bytes.data(), bytes.size());
}

/** The bytes of the file; empty if it does not exist. */
inline std::string readBytes(const juce::File& file)
{
    juce::MemoryBlock bytes;
    file.loadFileAsData(bytes);
    return {static_cast<const char*>(bytes.getData()), bytes.getSize()};
}

} // namespace quelta::test
