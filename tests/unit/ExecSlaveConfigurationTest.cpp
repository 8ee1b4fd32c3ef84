#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "exec_slave/ConfigurationReader.h"

namespace quelta::execslave {

namespace {

using std::chrono::milliseconds;
using Errors = std::vector<std::string>;

Configuration parse(const std::string& text)
{
    const auto result = parseConfiguration(text, "f");
    EXPECT_EQ(result.errors, Errors{});
    return result.configuration;
}

/** Returns the errors of a file whose first line is a right command. */
Errors errorsOf(const std::string& text)
{
    return parseConfiguration("command = ['a']\n" + text, "f").errors;
}

} // namespace

TEST(ExecSlaveConfiguration, EveryKeyIsRead)
{
    const auto configuration = parse(R"(
command = ["blender", "--background", "{master_address}:{master_port}"]
folder = "/var/lib/quelta/{alias}"
version_command = ["blender", "--version"]
version_pattern = 'Blender (\d+)\.(\d+)\.(\d+)'
gpus = 2
errors = ['falling back to CPU', 'CUDA error']
[environment]
FARM = "{master_address}"
EMPTY = ""
[ready]
line = '^worker online'
after = 700
timeout = 61
[alive]
tcp = "127.0.0.1:8000"
command = ["check-worker", "-q"]
period = 2.5
silence = 600
[stop]
signal = "INT"
command = ["tell-worker-to-stop"]
grace = 11
[output]
prefix = "worker: "
file = "/var/log/quelta/{alias}.log"
max_size = "20M"
keep = 5
)");

    EXPECT_EQ(configuration.command,
              (Command{"blender", "--background", "{master_address}:{master_port}"}));
    EXPECT_EQ(configuration.folder, "/var/lib/quelta/{alias}");
    EXPECT_EQ(configuration.version, 0u);
    EXPECT_EQ(configuration.versionCommand, (Command{"blender", "--version"}));
    EXPECT_EQ(configuration.versionPattern, "Blender (\\d+)\\.(\\d+)\\.(\\d+)");
    EXPECT_EQ(configuration.gpus, 2u);
    EXPECT_EQ(configuration.errors,
              (std::vector<std::string>{"falling back to CPU", "CUDA error"}));
    EXPECT_EQ(configuration.environment,
              (std::map<std::string, std::string>{{"FARM", "{master_address}"}, {"EMPTY", ""}}));
    EXPECT_EQ(configuration.ready.line, "^worker online");
    EXPECT_EQ(configuration.ready.after, milliseconds(700));
    EXPECT_EQ(configuration.ready.timeout, milliseconds(61000));
    EXPECT_EQ(configuration.alive.tcp, "127.0.0.1:8000");
    EXPECT_EQ(configuration.alive.command, (Command{"check-worker", "-q"}));
    EXPECT_EQ(configuration.alive.period, milliseconds(2500));
    EXPECT_EQ(configuration.alive.silence, milliseconds(600000));
    EXPECT_EQ(configuration.stop.signal, "INT");
    EXPECT_EQ(configuration.stop.command, Command{"tell-worker-to-stop"});
    EXPECT_EQ(configuration.stop.grace, milliseconds(11000));
    EXPECT_EQ(configuration.output.prefix, "worker: ");
    EXPECT_EQ(configuration.output.file, "/var/log/quelta/{alias}.log");
    EXPECT_EQ(configuration.output.maxSize, 20 * 1024 * 1024);
    EXPECT_EQ(configuration.output.keep, 5);
}

TEST(ExecSlaveConfiguration, AllButTheCommandHaveDefaults)
{
    const auto configuration = parse("command = ['worker']");

    EXPECT_EQ(configuration.command, Command{"worker"});
    EXPECT_EQ(configuration.folder, "");
    EXPECT_EQ(configuration.version, 0u);
    EXPECT_TRUE(configuration.versionCommand.empty());
    EXPECT_EQ(configuration.gpus, std::nullopt);
    EXPECT_TRUE(configuration.errors.empty());
    EXPECT_TRUE(configuration.environment.empty());
    EXPECT_EQ(configuration.ready.line + configuration.ready.tcp, "");
    EXPECT_EQ(configuration.ready.after, milliseconds(500));
    EXPECT_EQ(configuration.ready.timeout, milliseconds(60000));
    EXPECT_EQ(configuration.alive.period, milliseconds(5000));
    EXPECT_EQ(configuration.alive.silence, std::nullopt);
    EXPECT_EQ(configuration.stop.signal, "TERM");
    EXPECT_EQ(configuration.stop.grace, milliseconds(9000));
    EXPECT_EQ(configuration.output.prefix, "");
    EXPECT_EQ(configuration.output.file, "");
    EXPECT_EQ(configuration.output.maxSize, 10 * 1024 * 1024);
    EXPECT_EQ(configuration.output.keep, 3);
}

TEST(ExecSlaveConfiguration, AllErrorsOfAFileAreReportedInTheirOrder)
{
    EXPECT_EQ(
        parseConfiguration("comand = ['a']\r\n"
                           "version = '4'\r\n"
                           "errors = ['a', 5, '(']\r\n"
                           "[stop]\r\n"
                           "grace = 12\r\n"
                           "  sgnal = 'TERM'\r\n",
                           "C:\\x.toml")
            .errors,
        (Errors{
            "C:\\x.toml:1:1: expected the key command, found none",
            "C:\\x.toml:1:1: expected command, folder, version, version_command, "
            "version_pattern, gpus, errors, environment, ready, alive, stop or output, found "
            "the key \"comand\"; did you mean command?",
            "C:\\x.toml:2:11: expected a whole number from 0 to 4294967295 for version, found "
            "\"4\"",
            "C:\\x.toml:3:16: expected a text for errors, found 5",
            "C:\\x.toml:3:19: expected a regular expression, found \"(\": Unmatched marking "
            "parenthesis ( or \\( at "
            "character 2 (errors)",
            "C:\\x.toml:5:9: expected seconds from 0 to 11 for stop.grace, found 12",
            "C:\\x.toml:6:3: expected signal, command or grace in [stop], found the key "
            "\"sgnal\"; did you mean signal?",
        }));
}

TEST(ExecSlaveConfiguration, ASyntaxErrorHasItsPlace)
{
    EXPECT_EQ(errorsOf("folder = \n"),
              Errors{"f:2:10: expected value, found '\\n' (key-value pair)"});
    EXPECT_EQ(errorsOf("folder = 'a"),
              Errors{"f:2:12: expected more, found the end of the file (string)"});
    EXPECT_EQ(errorsOf("folder"),
              Errors{"f:2:7: expected more, found the end of the file (key-value pair)"});
    EXPECT_EQ(errorsOf("command = ['b']"),
              Errors{"f:2:11: cannot redefine existing array 'command' (key-value pair)"});
    EXPECT_EQ(errorsOf("[`a]"),
              Errors{"f:2:2: expected bare key starting character or string delimiter, found '`' "
                     "(key)"});
    EXPECT_EQ(errorsOf("größe = 1"), Errors{"f:2:3: expected '=', found 'ö' (key-value pair)"});
    EXPECT_EQ(
        errorsOf("﴿ = 1"),
        Errors{"f:2:1: expected keys, tables, whitespace or comments, found '﴿' (root table)"});
    EXPECT_EQ(errorsOf("folder = “a”"), Errors{"f:2:10: expected a text in quotes, a number, true, "
                                               "false, a list or a table, found none (value)"});
    EXPECT_EQ(errorsOf("folder = \"\xFF\""), Errors{"f:2:10: expected UTF-8, found other bytes"});
}

TEST(ExecSlaveConfiguration, EveryKeyHasOneType)
{
    EXPECT_EQ(errorsOf("folder = 1"), Errors{"f:2:10: expected a text for folder, found 1"});
    EXPECT_EQ(errorsOf("folder = ['a']"),
              Errors{"f:2:10: expected a text for folder, found a list"});
    EXPECT_EQ(errorsOf("folder = true"), Errors{"f:2:10: expected a text for folder, found true"});
    EXPECT_EQ(errorsOf("folder = 2026-11-21"),
              Errors{"f:2:10: expected a text for folder, found a date or time"});
    EXPECT_EQ(errorsOf("errors = 'a'"),
              Errors{"f:2:10: expected a list of texts for errors, found \"a\""});
    EXPECT_EQ(errorsOf("ready = 5"), Errors{"f:2:9: expected a table for ready, found 5"});
    EXPECT_EQ(errorsOf("environment = []"),
              Errors{"f:2:15: expected a table for environment, found an empty list"});
    EXPECT_EQ(errorsOf("environment.A = 1.5"),
              Errors{"f:2:17: expected a text for environment.A, found 1.5"});
    EXPECT_EQ(errorsOf("[[stop]]\ngrace = 1"),
              Errors{"f:2:1: expected a table for stop, found a list"});
}

TEST(ExecSlaveConfiguration, ACommandIsAListThatBeginsWithAProgram)
{
    EXPECT_EQ(
        errorsOf("[stop]\ncommand = 'a b'"),
        Errors{"f:3:11: expected a list such as [\"program\", \"argument\"] for stop.command, "
               "found \"a b\""});
    EXPECT_EQ(
        errorsOf("[stop]\ncommand = []"),
        Errors{"f:3:11: expected a list such as [\"program\", \"argument\"] for stop.command, "
               "found an empty list"});
    EXPECT_EQ(errorsOf("[stop]\ncommand = ['', 'b']"),
              Errors{"f:3:12: expected the name of a program for stop.command, found \"\""});
    EXPECT_EQ(errorsOf("[stop]\ncommand = ['a', '']"), Errors{});
    EXPECT_EQ(errorsOf("[stop]\ncommand = ['a', \"b\\u0000\"]"),
              Errors{"f:3:17: expected a text without U+0000, found \"b?\" (stop.command)"});
}

TEST(ExecSlaveConfiguration, NumbersHaveRanges)
{
    for (const std::string right :
         {"version = 4294967295", "gpus = 0", "gpus = 1024", "gpus = 'auto'", "ready.after = 0",
          "ready.after = 3600000", "ready.timeout = 0.001", "alive.period = 1000000",
          "stop.grace = 0", "stop.grace = 11.0", "output.keep = 0", "output.keep = 1000",
          "output.max_size = 1024", "output.max_size = '1K'", "output.max_size = '1024G'"})
        EXPECT_EQ(errorsOf(right), Errors{}) << right;

    const std::vector<std::pair<std::string, std::string>> wrong = {
        {"version = -1",
         "f:2:11: expected a whole number from 0 to 4294967295 for version, found -1"},
        {"gpus = -1",
         "f:2:8: expected \"auto\" or a whole number from 0 to 1024 for gpus, found -1"},
        {"gpus = 'all'",
         "f:2:8: expected \"auto\" or a whole number from 0 to 1024 for gpus, found \"all\""},
        {"ready.after = 0.5",
         "f:2:15: expected a whole number from 0 to 3600000 for ready.after, found 0.5"},
        {"ready.timeout = 0",
         "f:2:17: expected seconds from 0.001 to 1000000 for ready.timeout, found 0"},
        {"alive.period = -1",
         "f:2:16: expected seconds from 0.001 to 1000000 for alive.period, found -1"},
        {"alive.silence = nan",
         "f:2:17: expected seconds from 0.001 to 1000000 for alive.silence, found nan"},
        {"stop.grace = 11.5", "f:2:14: expected seconds from 0 to 11 for stop.grace, found 11.5"},
        {"output.keep = 1001",
         "f:2:15: expected a whole number from 0 to 1000 for output.keep, found 1001"},
    };

    for (const auto& [text, error] : wrong)
        EXPECT_EQ(errorsOf(text), Errors{error});
}

TEST(ExecSlaveConfiguration, ASizeHasAUnit)
{
    for (const std::string wrong : {"'1023'", "''", "'M'", "'10 M'", "'10m'", "'-1M'", "'1.5M'",
                                    "'10MB'", "'1025G'", "1023", "'99999999999999999999'", "true"})
    {
        const auto errors = errorsOf("output.max_size = " + wrong);
        ASSERT_EQ(errors.size(), 1u) << wrong;
        EXPECT_EQ(errors[0].find("f:2:19: expected a size from \"1K\" to \"1024G\" for "
                                 "output.max_size, found "),
                  0u)
            << errors[0];
    }

    EXPECT_EQ(parse("command = ['a']\noutput.max_size = '3K'").output.maxSize, 3072);
    EXPECT_EQ(parse("command = ['a']\noutput.max_size = '2G'").output.maxSize, 2147483648);
    EXPECT_EQ(parse("command = ['a']\noutput.max_size = '5000'").output.maxSize, 5000);
}

TEST(ExecSlaveConfiguration, ReadinessHasOneCondition)
{
    EXPECT_EQ(
        errorsOf("[ready]\nline = 'a'\ntcp = 'h:1'\ncommand = ['c']"),
        (Errors{"f:4:7: expected only one of line, tcp and command in [ready], found tcp "
                "beside line",
                "f:5:11: expected only one of line, tcp and command in [ready], found command "
                "beside line"}));
}

TEST(ExecSlaveConfiguration, AVersionIsGivenOnceAndAPatternGoesWithItsCommand)
{
    EXPECT_EQ(errorsOf("version = 1\nversion_command = ['a']\nversion_pattern = '(a)'"),
              Errors{"f:3:19: expected version or version_command, found both"});
    EXPECT_EQ(errorsOf("version_command = ['a']"),
              Errors{"f:2:19: expected version_pattern beside version_command, found none"});
    EXPECT_EQ(errorsOf("version_pattern = '(a)'"),
              Errors{"f:2:19: expected version_command beside version_pattern, found none"});
    EXPECT_EQ(errorsOf("version_command = ['a']\nversion_pattern = 'a'"),
              Errors{"f:3:19: expected one to three groups such as (\\d+), found 0 "
                     "(version_pattern)"});
    EXPECT_EQ(errorsOf("version_command = ['a']\nversion_pattern = '(a)(b)(c)(d)'"),
              Errors{"f:3:19: expected one to three groups such as (\\d+), found 4 "
                     "(version_pattern)"});
}

TEST(ExecSlaveConfiguration, AddressesAreHostAndPort)
{
    for (const std::string right :
         {"localhost:1", "127.0.0.1:65535", "127.0.0.1:{master_port+1}", "{master_address}:80"})
        EXPECT_EQ(errorsOf("ready.tcp = '" + right + "'"), Errors{});

    for (const std::string wrong : {"", "8000", ":8000", "host", "host:", "host:0", "host:65536",
                                    "host:80x", "ho st:80", "::1:80", "host:-1", "host:{alias}"})
        EXPECT_EQ(errorsOf("alive.tcp = '" + wrong + "'"),
                  Errors{"f:2:13: expected HOST:PORT such as \"127.0.0.1:8000\", found \"" + wrong +
                         "\" (alive.tcp)"});
}

TEST(ExecSlaveConfiguration, PlaceholdersAreCheckedWhereTheyAreReplaced)
{
    for (const std::string key :
         {"folder = '}'", "version_command = ['a', '}']\nversion_pattern = '(a)'",
          "environment.A = '}'", "ready.tcp = '}'", "ready.command = ['}']", "alive.tcp = '}'",
          "alive.command = ['}']", "stop.command = ['}']", "output.file = '}'"})
    {
        const auto errors = errorsOf(key);
        ASSERT_EQ(errors.size(), 1u) << key;
        EXPECT_NE(errors[0].find(": expected {NAME} or }} for a brace, found a single } ("),
                  std::string::npos)
            << errors[0];
    }

    EXPECT_EQ(errorsOf("errors = ['a{2}', '}']\noutput.prefix = '{'\nready.line = '^}{1,2}'"),
              Errors{});
}

TEST(ExecSlaveConfiguration, SignalsAreNamed)
{
    EXPECT_EQ(errorsOf("stop.signal = 'TREM'"),
              Errors{"f:2:15: expected a signal (HUP, INT, KILL, QUIT, TERM, USR1 or USR2), found "
                     "\"TREM\"; did you mean TERM? (stop.signal)"});
}

TEST(ExecSlaveConfiguration, EnvironmentVariablesHaveNames)
{
    EXPECT_EQ(errorsOf("[environment]\n'' = 'a'\n'A=B' = 'a'"),
              (Errors{"f:3:1: expected the name of an environment variable, found \"\"",
                      "f:4:1: expected the name of an environment variable, found \"A=B\""}));
}

TEST(ExecSlaveConfiguration, AFileIsReadByItsName)
{
    const juce::TemporaryFile temporary(".toml");
    const auto file = temporary.getFile();
    const auto name = file.getFullPathName().toStdString();
    const auto text = juce::String::fromUTF8("command = ['Größe']\n");
    ASSERT_TRUE(file.replaceWithText(text, false, false));
    EXPECT_EQ(loadConfiguration(file).errors, Errors{});
    EXPECT_EQ(loadConfiguration(file).configuration.command, Command{"Größe"});

    ASSERT_TRUE(file.replaceWithText("command = 1\n"));
    EXPECT_EQ(loadConfiguration(file).errors,
              Errors{name + ":1:11: expected a list such as [\"program\", \"argument\"] for "
                            "command, found 1"});
}

TEST(ExecSlaveConfiguration, AFileThatCannotBeReadIsAnError)
{
    const juce::TemporaryFile temporary(".toml");
    const auto file = temporary.getFile();
    const auto name = file.getFullPathName().toStdString();
    const auto missing = loadConfiguration(file).errors;
    ASSERT_EQ(missing.size(), 1u);
    EXPECT_EQ(missing[0].find("cannot read " + name + ": "), 0u) << missing[0];
    EXPECT_GT(missing[0].size(), name.size() + 20) << missing[0];
    EXPECT_EQ(missing[0].find_last_of("\r\n"), std::string::npos);

    ASSERT_TRUE(file.replaceWithText("#" + juce::String::repeatedString("x", 32767), false, false));
    EXPECT_EQ(loadConfiguration(file).errors,
              Errors{name + ":1:1: expected the key command, found none"});
    ASSERT_TRUE(file.replaceWithText("#" + juce::String::repeatedString("x", 32768), false, false));
    EXPECT_EQ(loadConfiguration(file).errors,
              Errors{"cannot read " + name + ": it is longer than 32768 bytes"});

    ASSERT_TRUE(file.deleteFile());
    ASSERT_TRUE(file.createDirectory());
    EXPECT_EQ(loadConfiguration(file).errors, Errors{"cannot read " + name + ": it is a folder"});
    ASSERT_TRUE(file.deleteFile());
}

TEST(ExecSlaveConfiguration, AByteOrderMarkIsIgnored)
{
    EXPECT_EQ(parse("\xEF\xBB\xBF"
                    "command = ['a']")
                  .command,
              Command{"a"});
}

} // namespace quelta::execslave
