#include "console_master/Options.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <ostream>

#include "messages/MasterDaemonMessage.h"

namespace quelta {

namespace {

constexpr auto introduction =
    "The console master, a render master for the command line. It finds slave daemons by beacon,\n"
    "shows who owns their slaves, and starts, takes over and stops slaves. Give nodes as "
    "host:port,\n"
    "where port is the daemon's --port.";

constexpr auto exitStatuses =
    "Exit status: 0 every node did as asked, 1 some node did not (no answer, refused, failed,\n"
    "stolen), 2 invalid command line, 3 failure on this machine (port in use, unknown host, no\n"
    "route, output that cannot be written).";

constexpr auto notes =
    "Examples:\n"
    "  quelta_master scan 10.0.0.5:5130 render07:5130\n"
    "  quelta_master scan --broadcast 10.0.0.255:5130 --json\n"
    "  quelta_master hold 10.0.0.5:5130\n"
    "  quelta_master COMMAND --help\n"
    "\n"
    "The daemons connect back to this program, so --address and --listen-port must be reachable\n"
    "from the nodes. A node is identified by the address that it connects from. Several nodes on "
    "one\n"
    "machine share that address, so each of them connects to a different port: the first to\n"
    "--listen-port, the second to the next one, and so on (by default to any free ports).";

/** Options that CLI11 passes on as text, before they are parsed. */
struct RawOptions
{
    std::vector<std::string> nodes;
    std::string broadcast;
    std::string address;
    std::string actAs;
    std::string httpAddress;
    double timeoutSeconds = 5;
};

struct CommandText
{
    Command command;
    const char* name;
    const char* summary;
    const char* footer;
};

constexpr CommandText commands[] = {
    {Command::scan, "scan", "Show the state of nodes and exit",
     "Prints a table of the nodes (with --json an array): alias, number of GPUs, slave version,\n"
     "state, owner and the owner's text.\n\n"
     "Example:\n  quelta_master scan 10.0.0.5:5130 10.0.0.6:5130"},
    {Command::watch, "watch", "Show the state of nodes and every change, until Ctrl-C",
     "Prints a line with the time for every event, and the table after each change. With --json "
     "it\n"
     "prints an object on a line of its own for every event, and no table.\n\n"
     "Example:\n  quelta_master watch --nodes farm.txt"},
    {Command::hold, "hold", "Start the slaves of free nodes and keep them until Ctrl-C",
     "Prints a line for every event: starting, running, failed, stolen, ... Gives a failed slave\n"
     "back at once, the others at Ctrl-C. A second Ctrl-C at least one second later ends the "
     "program\n"
     "at once. It also ends when it holds no slave any more. A node that belongs to another "
     "master\n"
     "refuses; see steal.\n\n"
     "Example:\n  quelta_master hold 10.0.0.5:5130 --text \"test run\""},
    {Command::steal, "steal", "Take slaves over from any owner and keep them until Ctrl-C",
     "Like hold, but also takes over nodes that belong to another master: their slave is stopped\n"
     "and restarted for this master.\n\n"
     "Example:\n  quelta_master steal 10.0.0.5:5130"},
    {Command::stop, "stop", "Stop slaves that belong to this master's address",
     "A daemon accepts a stop request only from its owner, which it identifies by address and "
     "port.\n"
     "If the owner is gone, announce its address and port; if it still runs, send the request in "
     "its\n"
     "name with --as. Stopping a free node succeeds.\n\n"
     "Examples:\n  quelta_master stop 10.0.0.5:5130 --address 10.0.0.2 --listen-port 21000\n"
     "  quelta_master stop 10.0.0.5:5130 --as 10.0.0.2:21000"},
    {Command::serve, "serve", "Serve a web page, JSON and metrics of nodes, until Ctrl-C",
     "Watches the nodes and serves what it sees over HTTP: a live page at /, metrics for "
     "Prometheus\n"
     "at /metrics, JSON under /api/v1/. Never starts, stops or steals. Prints a line for every "
     "event.\n"
     "Reads the file of nodes again when it changes. Viewers are not asked for a password and "
     "nothing\n"
     "is encrypted, so by default only this machine can connect; see SECURITY.md.\n\n"
     "Example:\n  quelta_master serve --nodes farm.txt --http 127.0.0.1:8080"}};

template <typename Parse>
CLI::Validator acceptedBy(Parse parse, const std::string& what)
{
    return CLI::Validator(
        [parse, what](const std::string& text) {
            return parse(text) ? std::string() : "\"" + text + "\" is not " + what;
        },
        "");
}

/** Adds the options that only some commands have. */
void addOptionsOf(Command command, CLI::App& app, RawOptions& raw)
{
    if (command == Command::scan || command == Command::watch || command == Command::serve)
        app.add_option("--broadcast", raw.broadcast, "Send beacons to this broadcast address, too")
            ->type_name("IP:PORT")
            ->check(
                acceptedBy(parseAddress, "an address: give IP:port, for example 10.0.0.255:5130"));

    if (command == Command::stop)
        app.add_option("--as", raw.actAs,
                       "Send the request in the name of the master with this address")
            ->type_name("IP:PORT")
            ->check(
                acceptedBy(parseAddress, "an address: give IP:port, for example 10.0.0.2:21000"));

    if (command == Command::serve)
        app.add_option("--http", raw.httpAddress,
                       "Address to serve at (default 127.0.0.1:8080; port 0: any free port)")
            ->type_name("IP:PORT")
            ->check(acceptedBy(parseListenAddress,
                               "an address: give IP:port, for example 127.0.0.1:8080"));
}

void addOptions(CLI::App& app, const CommandText& text, RawOptions& raw, Options& options)
{
    app.add_option("node", raw.nodes, "Nodes, as host:port")->type_name("HOST:PORT");
    app.add_option("--nodes", options.nodesFile,
                   "File of nodes, separated by blanks or line ends; # begins a comment")
        ->type_name("FILE");
    app.add_option("--address", raw.address,
                   "IPv4 address announced to the nodes (default: this machine's on the route to "
                   "each node)")
        ->type_name("IP")
        ->check(acceptedBy(parseIp, "an IPv4 address"));
    app.add_option("--listen-port", options.listenPort,
                   "TCP port that the nodes connect to (default 0: any free port)")
        ->type_name("PORT")
        ->check(CLI::Range(0, 65535).description(""));
    app.add_option("--timeout", raw.timeoutSeconds, "Seconds to wait for an answer (default 5)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.1, 3600.0).description(""));
    app.add_option("--text", options.text, "Text that nodes show as the owner's, up to 32 bytes")
        ->type_name("TEXT")
        ->check(acceptedBy(
            [](const std::string& given) { return given.size() <= MasterDaemonMessage::textSize; },
            "32 bytes or less"));
    app.add_flag("--json", options.json, "Print JSON instead of text");

    addOptionsOf(text.command, app, raw);
    app.footer(std::string(text.footer) + "\n\n" + exitStatuses + "\n");
}

std::string readNodes(const RawOptions& raw, Options& options)
{
    for (const auto& word : raw.nodes)
        if (auto error = addNodes(word, options.nodes); !error.empty())
            return error;

    options.numNodesOfCommandLine = options.nodes.size();

    if (!options.nodesFile.empty())
    {
        options.nodesFileReading = readNodesFile(options.nodesFile);

        if (auto error = addNodesOfFile(options.nodesFile, options.nodesFileReading, options.nodes);
            !error.empty())
            return error;
    }

    if (options.nodes.empty() && !options.broadcast)
        return "no nodes given: name them as host:port, for example 10.0.0.5:5130";

    return {};
}

/** Returns an error message; empty on success. */
std::string fillOptions(const RawOptions& raw, Options& options)
{
    options.broadcast = parseNode(raw.broadcast);
    options.address = parseIp(raw.address);
    options.actAs = parseAddress(raw.actAs);
    options.httpAddress = parseListenAddress(raw.httpAddress).value_or(options.httpAddress);
    options.timeoutMs = static_cast<uint32_t>(std::lround(raw.timeoutSeconds * 1000));
    return readNodes(raw, options);
}

} // namespace

std::optional<int> parseOptions(const std::vector<std::string>& arguments, Options& options,
                                std::ostream& out, std::ostream& err)
{
    std::vector<const char*> argv;

    for (const auto& argument : arguments)
        argv.push_back(argument.c_str());

    RawOptions raw;
    CLI::App app(introduction, "quelta_master");
    app.footer(std::string(notes) + "\n\n" + exitStatuses + "\n");
    app.require_subcommand(1);

    for (const auto& text : commands)
    {
        auto* command = app.add_subcommand(text.name, text.summary);
        addOptions(*command, text, raw, options);
        command->callback([&options, &text] { options.command = text.command; });
    }

    try
    {
        app.parse(static_cast<int>(argv.size()), argv.data());
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit(error, out, err) == 0 ? exitAsAsked : exitUsage;
    }

    if (const auto error = fillOptions(raw, options); !error.empty())
    {
        err << error << "\nRun with --help for more information.\n";
        return exitUsage;
    }

    return std::nullopt;
}

} // namespace quelta
