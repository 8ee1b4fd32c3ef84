#include "platform/Paths.h"

#include <gtest/gtest.h>

#include "support/TemporaryFolder.h"

using quelta::platform::currentFolder;
using quelta::platform::executableFile;
using quelta::platform::resolvePath;
using quelta::platform::temporaryFolder;

TEST(PathsTest, TheExecutableFileIsTheRunningProgram)
{
    EXPECT_TRUE(executableFile().existsAsFile());
    EXPECT_EQ(executableFile().getFileNameWithoutExtension(), juce::String("quelta_unit_tests"));
}

TEST(PathsTest, ARelativePathIsResolvedFromTheCurrentFolder)
{
    EXPECT_EQ(resolvePath("folder/file"),
              currentFolder().getChildFile("folder").getChildFile("file"));
    EXPECT_EQ(resolvePath("../file"), currentFolder().getSiblingFile("file"));
    EXPECT_TRUE(currentFolder().isDirectory());
}

TEST(PathsTest, AnAbsolutePathIsKept)
{
    const auto path = executableFile().getFullPathName();
    EXPECT_EQ(resolvePath(path).getFullPathName(), path);
}

TEST(PathsTest, JucesTemporaryFilesAreInTheTemporaryFolder)
{
    const quelta::test::TemporaryFolder folder; // created where JUCE creates temporary files
    EXPECT_TRUE(temporaryFolder().isDirectory());
    EXPECT_TRUE(folder.getChild("file").isAChildOf(temporaryFolder()));
}
