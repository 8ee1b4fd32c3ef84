// Base of tests that start tests/containment's driver in each way of containment.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include <juce_core/juce_core.h>

#include "ContainmentWays.h"
#include "HangGuard.h"
#include "TemporaryFolder.h"

namespace quelta::test {

class ContainmentDriverTest : public testing::TestWithParam<ContainmentWay>
{
protected:
    void SetUp() override
    {
        makePublic(folder.getPath());
        juce::ChildProcess probe;

        if (!GetParam().prefix.isEmpty() &&
            (!probe.start(inWay({"true"})) || !probe.waitForProcessToFinish(limitMs) ||
             probe.getExitCode() != 0))
            GTEST_SKIP() << "not possible here: " << probe.readAllProcessOutput();
    }

    /** Reaps the driver, or later tests would see it among the children of this process. */
    void TearDown() override { EXPECT_TRUE(driver.waitForProcessToFinish(limitMs)); }

    void start(const juce::String& scenario, const juce::String& end)
    {
        const auto program = juce::File::getSpecialLocation(juce::File::currentExecutableFile)
                                 .getSiblingFile("quelta_test_containment");
        ASSERT_TRUE(
            driver.start(inWay({program.getFullPathName(), scenario, folder.getPath(), end})));
    }

    /** The rest of what the driver prints. */
    std::string readAll()
    {
        auto text = driver.readAllProcessOutput().toStdString();
        std::erase(text, '\r');
        return text;
    }

    std::string readLine()
    {
        std::string line;

        for (char byte = 0; driver.readProcessOutput(&byte, 1) == 1 && byte != '\n';)
            if (byte != '\r')
                line += byte;

        return line;
    }

    static constexpr int limitMs = 60'000;

    const TemporaryFolder folder;
    juce::ChildProcess driver;

private:
    static juce::StringArray inWay(const juce::StringArray& command)
    {
        auto words = GetParam().prefix;
        words.addArray(command);
        return words;
    }

    HangGuard hangGuard;
};

} // namespace quelta::test
