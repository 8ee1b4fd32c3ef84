#include "util/FileName.h"

#include <gtest/gtest.h>

#include "platform/Paths.h"
#include "support/LogCapture.h"

namespace quelta::test {
namespace {

using Components = std::vector<std::string>;

const std::string parentsLeft =
    "Absolute path specified, but after normalization there are still some '..' left. Removing "
    "these...";
const std::string notAbsolute = "FileName::toJuceFile() can be called only on absolute file names";

class FileNameTest : public testing::Test
{
protected:
    static std::string normalise(const char* path) { return FileName(path).toString(); }

    static std::string join(const char* base, const char* relative)
    {
        return FileName::combine(FileName(base), FileName(relative)).toString();
    }

    enum class Kind
    {
        relative,
        absolute
    };

    static void expectParsed(const char* path, const char* root, Kind kind,
                             const Components& components)
    {
        const FileName name(path);
        EXPECT_EQ(name.getRoot(), root) << path;
        EXPECT_EQ(name.isAbsolute(), kind == Kind::absolute) << path;
        EXPECT_EQ(name.getComponents(), components) << path;
    }

    LogCapture log;
};

TEST_F(FileNameTest, NullAndEmptyTextsGiveTheEmptyRelativeName)
{
    expectParsed(nullptr, "", Kind::relative, {});
    expectParsed("", "", Kind::relative, {});
    EXPECT_EQ(normalise(nullptr), "");
    EXPECT_EQ(normalise(""), "");
    EXPECT_EQ(FileName().toString(), "");
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(FileNameTest, ADriveIsAnyFirstCharacterWithAColon)
{
    expectParsed("C:\\x\\y", "C:", Kind::absolute, {"x", "y"});
    expectParsed("d:/x", "d:", Kind::absolute, {"x"});
    expectParsed("1:/x", "1:", Kind::absolute, {"x"});
    expectParsed("/:/x", "/:", Kind::absolute, {"x"});
    expectParsed(":://x", "::", Kind::absolute, {"x"});
    expectParsed("C:\\", "C:", Kind::absolute, {});
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(FileNameTest, AColonElsewhereIsAnOrdinaryCharacter)
{
    expectParsed(":", "", Kind::relative, {":"});
    expectParsed("ab:\\c", "", Kind::relative, {"ab:", "c"});
    expectParsed("C:\\D:\\x", "C:", Kind::absolute, {"D:", "x"});
}

TEST_F(FileNameTest, ANetworkRootIsTwoSeparatorsAndAServer)
{
    expectParsed("\\\\srv\\share\\f", "\\\\srv", Kind::absolute, {"share", "f"});
    expectParsed("//srv/x", "\\\\srv", Kind::absolute, {"x"});
    expectParsed("/\\srv//x", "\\\\srv", Kind::absolute, {"x"});
    expectParsed("//s", "\\\\s", Kind::absolute, {});
    expectParsed("//../x", "\\\\..", Kind::absolute, {"x"});
    EXPECT_EQ(normalise("//srv/share/f"), "\\\\srv\\share\\f");
    EXPECT_EQ(normalise("//srv"), "\\\\srv\\");
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(FileNameTest, TwoSeparatorsWithoutAServerBeginAnAbsolutePath)
{
    expectParsed("//", "", Kind::absolute, {});
    expectParsed("///srv/x", "", Kind::absolute, {"srv", "x"});
    expectParsed("\\\\/x", "", Kind::absolute, {"x"});
    EXPECT_EQ(normalise("//"), "\\");
}

TEST_F(FileNameTest, ALeadingSeparatorMakesANameAbsolute)
{
    expectParsed("/a", "", Kind::absolute, {"a"});
    expectParsed("\\a", "", Kind::absolute, {"a"});
    expectParsed("/", "", Kind::absolute, {});
    expectParsed("a/b", "", Kind::relative, {"a", "b"});
}

TEST_F(FileNameTest, SeparatorsAreCollapsedAndPrintedAsBackslashes)
{
    EXPECT_EQ(normalise("C:/x//y/"), "C:\\x\\y");
    EXPECT_EQ(normalise("a\\\\/b\\"), "a\\b");
    EXPECT_EQ(normalise("\\a"), "\\a");
    EXPECT_EQ(normalise("a"), "a");
}

TEST_F(FileNameTest, AParentRemovesThePrecedingComponent)
{
    EXPECT_EQ(normalise("/a/b/../c"), "\\a\\c");
    EXPECT_EQ(normalise("a/b/c/../../d"), "a\\d");
    EXPECT_EQ(normalise("a/.."), "");
    EXPECT_EQ(normalise("a/./../b"), "a\\b");
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(FileNameTest, ARelativeNameKeepsLeadingParents)
{
    EXPECT_EQ(normalise("../../a"), "..\\..\\a");
    EXPECT_EQ(normalise("a/../../b"), "..\\b");
    EXPECT_EQ(normalise(".."), "..");
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(FileNameTest, OnlyExactlyTwoDotsAreAParent)
{
    EXPECT_EQ(normalise("a/./b"), "a\\.\\b");
    EXPECT_EQ(normalise("."), ".");
    EXPECT_EQ(normalise("a/..."), "a\\...");
    EXPECT_EQ(normalise("a/..b"), "a\\..b");
    EXPECT_EQ(normalise("a/.. /b"), "a\\.. \\b");
}

TEST_F(FileNameTest, ParentsAboveTheDriveAreDroppedWithOneWarning)
{
    expectParsed("C:\\..\\x", "C:", Kind::absolute, {"x"});
    EXPECT_EQ(log.lines(), Lines{parentsLeft});
}

TEST_F(FileNameTest, DroppingManyParentsWarnsOnce)
{
    EXPECT_EQ(normalise("\\..\\..\\x"), "\\x");
    EXPECT_EQ(log.lines(), Lines{parentsLeft});
    log.clear();
    EXPECT_EQ(normalise("/a/../../../b/.."), "\\");
    EXPECT_EQ(log.lines(), Lines{parentsLeft});
}

TEST_F(FileNameTest, ADriveWithoutSeparatorIsClearedWithAWarning)
{
    expectParsed("C:data", "", Kind::relative, {"data"});
    EXPECT_EQ(log.lines(),
              Lines{"relative path with root given (C:data). root 'C:' will be cleared."});
    log.clear();
    expectParsed("C:", "", Kind::relative, {});
    EXPECT_EQ(log.lines(), Lines{"relative path with root given (C:). root 'C:' will be cleared."});
    log.clear();
    expectParsed("D:../x//y", "", Kind::relative, {"..", "x", "y"});
    EXPECT_EQ(log.lines(),
              Lines{"relative path with root given (D:../x//y). root 'D:' will be cleared."});
}

TEST_F(FileNameTest, WarningsAreLoggedAsErrors)
{
    flags::logPrefix = 1;
    const FileName name("C:");
    EXPECT_EQ(log.lines(),
              Lines{"ERROR     : relative path with root given (C:). root 'C:' will be cleared."});
}

TEST_F(FileNameTest, BytesOfAnyValueAreKept)
{
    EXPECT_EQ(normalise("/M\xC3\xBCller/\xFF\x01"), "\\M\xC3\xBCller\\\xFF\x01");
    const std::string longName(100'000, 'n');
    EXPECT_EQ(normalise(("/" + longName).c_str()), "\\" + longName);
}

TEST_F(FileNameTest, ARelativeNameIsAppended)
{
    EXPECT_EQ(join("C:\\a", "b\\c"), "C:\\a\\b\\c");
    EXPECT_EQ(join("a", "b"), "a\\b");
    EXPECT_EQ(join("a", "."), "a\\.");
    EXPECT_EQ(join("", "b"), "b");
    EXPECT_EQ(join("/opt/x", ""), "\\opt\\x");
}

TEST_F(FileNameTest, AppendedParentsRemoveComponentsAndNeverClimbAboveTheRoot)
{
    EXPECT_EQ(join("C:\\a", "..\\..\\y"), "C:\\y");
    EXPECT_EQ(join("C:\\a\\b", "..\\y"), "C:\\a\\y");
    EXPECT_EQ(join("\\", ".."), "\\");
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(FileNameTest, AppendedParentsAccumulateInFrontOfARelativeName)
{
    EXPECT_EQ(join("a", "..\\..\\..\\y"), "..\\..\\y");
    EXPECT_EQ(join("..", "..\\y"), "..\\..\\y");
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(FileNameTest, AnAbsoluteNameWithoutRootKeepsTheRootItIsAppendedTo)
{
    EXPECT_EQ(join("C:\\a\\b", "\\z"), "C:\\z");
    EXPECT_EQ(join("//srv/a", "/z"), "\\\\srv\\z");
    EXPECT_EQ(join("a\\b", "\\z"), "\\z");
}

TEST_F(FileNameTest, AnAbsoluteNameWithRootReplacesTheNameItIsAppendedTo)
{
    EXPECT_EQ(join("C:\\a\\b", "D:\\z"), "D:\\z");
    EXPECT_EQ(join("a", "\\\\srv\\z"), "\\\\srv\\z");
    EXPECT_EQ(join("C:\\a", "D:\\"), "D:\\");
}

TEST_F(FileNameTest, ANameCanBeAppendedToItself)
{
    FileName name("a\\b");
    name.append(name);
    EXPECT_EQ(name.toString(), "a\\b\\a\\b");
}

TEST_F(FileNameTest, CombiningDoesNotChangeTheBase)
{
    const FileName base("C:\\a");
    EXPECT_EQ(FileName::combine(base, FileName("b")).toString(), "C:\\a\\b");
    EXPECT_EQ(base.toString(), "C:\\a");
}

TEST_F(FileNameTest, TheEmptyNameGivesAnEmptyFileWithoutALogLine)
{
    EXPECT_EQ(FileName().toJuceFile(), juce::File());
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(FileNameTest, ARelativeNameGivesNoFile)
{
    EXPECT_EQ(FileName("x\\y").toJuceFile(), juce::File());
    EXPECT_EQ(log.lines(), Lines{notAbsolute});
}

TEST_F(FileNameTest, AnAbsoluteNameWithARootGivesAFile)
{
    if (!platform::absolutePathsHaveRoot())
        GTEST_SKIP() << "there are no drives here";

    EXPECT_EQ(FileName("C:/x/M\xC3\xBCller/").toJuceFile().getFullPathName(),
              juce::String::fromUTF8("C:\\x\\M\xC3\xBCller"));
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(FileNameTest, AnAbsoluteNameWithoutRootGivesNoFileOnWindows)
{
    if (!platform::absolutePathsHaveRoot())
        GTEST_SKIP() << "absolute paths have no root here";

    EXPECT_EQ(FileName("\\x\\y").toJuceFile(), juce::File());
    EXPECT_EQ(log.lines(), Lines{notAbsolute});
}

TEST_F(FileNameTest, AnAbsoluteNameWithoutRootGivesANativeFileOnLinux)
{
    if (platform::absolutePathsHaveRoot())
        GTEST_SKIP() << "absolute paths have a root here";

    EXPECT_EQ(FileName("/opt/M\xC3\xBCller//x").toJuceFile().getFullPathName(),
              juce::String::fromUTF8("/opt/M\xC3\xBCller/x"));
    EXPECT_EQ(FileName("/opt/a\\b").toJuceFile().getFullPathName(), juce::String("/opt/a/b"));
    EXPECT_EQ(FileName("/").toJuceFile().getFullPathName(), juce::String("/"));
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(FileNameTest, InvalidUtf8IsReadAsLatin1InAFile)
{
    const std::string root = platform::absolutePathsHaveRoot() ? "C:\\" : "/";
    std::string overlong;
    std::string latin1;

    for (int i = 0; i < 100; ++i) // enough to overrun a string that is too short
    {
        overlong += "\xC0\xAF";
        latin1 += "\xC3\x80\xC2\xAF";
    }

    EXPECT_EQ(FileName((root + overlong).c_str()).toJuceFile().getFullPathName().toStdString(),
              root + latin1);
    EXPECT_EQ(FileName((root + "M\xFCller").c_str()).toJuceFile().getFullPathName().toStdString(),
              root + "M\xC3\xBCller");
}

} // namespace
} // namespace quelta::test
