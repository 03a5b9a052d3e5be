// almanac: the command for people. It sets the agent's environment, starts almanacd and asks its API.
#include <CLI/CLI.hpp>

#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "cli/Commands.h"

namespace {

using namespace almanac::cli;

CLI::Validator atLeastOne() {
    const auto check = [](const std::string& text) {
        const bool number = !text.empty() && text.size() < 19 && text.find_first_not_of("0123456789") == std::string::npos;
        return number && text.find_first_not_of('0') != std::string::npos ? "" : "'" + text + "' is no number of at least 1";
    };
    return CLI::Validator(check, "");
}

// "almanac: what is wrong" and where to read on, in one line each.
int wrongUsage(const CLI::App& app, const CLI::ParseError& e) {
    std::string text = e.what();
    std::string command = "almanac";
    for (const CLI::App* sub : app.get_subcommands()) command += " " + sub->get_name();
    if (app.get_subcommands().empty() && dynamic_cast<const CLI::RequiredError*>(&e)) {
        std::string known;
        for (const CLI::App* sub : app.get_subcommands({})) known += (known.empty() ? "" : ", ") + sub->get_name();
        const std::vector<std::string> rest = app.remaining();
        if (rest.empty()) {
            text = "which command? There are " + known;
        } else {
            text = "no command or option '" + rest[0] + "'; the commands are " + known;
        }
    }
    complain(text);
    std::cerr << "See " << command << " --help\n";
    return kUsage;
}

void addRun(CLI::App& app, RunOptions& o, int& status) {
    CLI::App* run = app.add_subcommand("run", "Check a reference file and run its agent");
    run->add_option("FILE", o.file, "The agent reference file")->required();
    run->add_flag("-d,--daemon", o.daemon, "In the background; returns once the tables are ready");
    run->add_option("-i,--instance", o.instance, "Name of this instance, for several agents of one kind");
    run->add_option("-s,--set", o.settings, "A setting of the agent, NAME=VALUE (repeatable)")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    run->add_flag_callback("--no-check", [&] { o.check = false; }, "Run the file even if it has errors");
    run->callback([&] { status = runAgent(o); });
    app.add_subcommand("stop", "Stop the agent of the data directory")->callback([&] { status = stopAgent(); });
}

void addEval(CLI::App& app, EvalOptions& o, int& status) {
    CLI::App* eval = app.add_subcommand("eval", "Evaluate a formula, such as 'trend(last(A, 5))'");
    eval->add_option("FORMULA", o.formula, "The formula; behind -- if it begins with a minus")->required();
    eval->add_option("-s,--set", o.settings,
                     "A cell of the row: A=5, A=5u, A=0.5, A=text (repeatable; a name's further values are those of further collections)")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    eval->add_option("-t,--type", o.type, "The metric's type in the reference file, such as STRING_DATA");
    eval->add_option("-r,--repeat", o.repeat, "How often the row is collected (default: as often as there are values)")
        ->check(CLI::Range(1, 1000000));
    eval->callback([&] { status = evaluateFormula(o); });
}

void addShow(CLI::App& app, ShowOptions& o, int& status) {
    CLI::App* show = app.add_subcommand("show", "Show the rows of a table");
    show->add_option("TABLE", o.table, "The table's name, in any case")->required();
    show->add_option("-f,--filter", o.filter, "Such as \"Used_Percent > 80 AND Type = 'ext4' OR SCAN(Device,'nvme')\"");
    show->add_option("-c,--columns", o.columns, "Column names, separated by commas");
    show->add_option("-n,--node", o.nodes, "Rows of this managed system only (repeatable, or with commas); '*' for all")
        ->type_name("NODE")
        ->allow_extra_args(false);
    show->add_option("-l,--limit", o.limit, "At most so many rows")->check(atLeastOne());
    show->add_option("-o,--output", o.output, "table, json, ndjson or csv")
        ->check(CLI::IsMember({"table", "json", "ndjson", "csv"}));
    show->add_option("-w,--watch", o.watch, "Again and again, such as every 2s");
    show->add_flag("--wide", o.wide, "Origin and time stamp as columns");
    show->callback([&] { status = showTable(o); });
}

void addAct(CLI::App& app, ActOptions& o, int& status) {
    CLI::App* act = app.add_subcommand("act", "Run an action of the agent and show the lines it writes");
    act->add_option("ACTION", o.task, "The action's name, in any case; almanac actions lists them");
    act->add_option("PARAMETER", o.parameters, "NAME=VALUE for each parameter that is not to have its default");
    act->add_option("-c,--command", o.command, "The text of a command instead");
    act->add_option("-n,--node", o.node, "The managed system that the action is for (default: the agent's own)");
    act->add_option("--deadline", o.deadline, "How long to wait for it (default: 60s)");
    act->add_option("-o,--output", o.output, "lines, table (its rows in the table of actions) or json")
        ->check(CLI::IsMember({"lines", "table", "json"}));
    act->callback([&] { status = runAction(o); });
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Almanac: a generic monitoring agent. Tables of anything, declared in one file.", "almanac");
    app.require_subcommand(1);
    app.fallthrough();  // --data-dir may stand behind the command too
    app.set_version_flag("--version", "almanac " ALMANAC_VERSION);
    std::string dataDirectory;
    app.add_option_function<std::string>(
        "--data-dir", [](const std::string& path) { setenv("ALMANAC_DATA_DIR", path.c_str(), 1); },
        "The agent's data directory (default: $ALMANAC_DATA_DIR, /var/lib/almanac or ~/.local/state/almanac)")
        ->trigger_on_parse();
    int status = kDone;
    RunOptions run;
    EvalOptions eval;
    ShowOptions show;
    ActOptions act;
    std::string file;
    std::string output = "table";
    std::string spec;
    addRun(app, run, status);
    CLI::App* check = app.add_subcommand("check", "Tell every problem of a reference file");
    check->add_option("FILE", file, "The agent reference file")->required();
    check->callback([&] { status = checkFile(file); });
    const auto outputOption = [&](CLI::App* sub) {
        sub->add_option("-o,--output", output, "table or json")->check(CLI::IsMember({"table", "json"}));
    };
    CLI::App* tables = app.add_subcommand("tables", "List the tables");
    outputOption(tables);
    tables->callback([&] { status = listTables(output); });
    CLI::App* nodes = app.add_subcommand("nodes", "List the managed systems: the agent's own and its subnodes");
    outputOption(nodes);
    nodes->callback([&] { status = listNodes(output); });
    addEval(app, eval, status);
    addShow(app, show, status);
    addAct(app, act, status);
    CLI::App* actions = app.add_subcommand("actions", "List the actions and their parameters");
    outputOption(actions);
    actions->callback([&] { status = listActions(output); });
    CLI::App* state = app.add_subcommand("status", "How each table is doing");
    outputOption(state);
    state->callback([&] { status = showStatus(output); });
    app.add_subcommand("encrypt", "Encrypt a value, read from standard input, for the configuration file")
        ->callback([&] { status = encryptValue(); });
    CLI::App* trace = app.add_subcommand("trace", "Show or set what the agent traces, such as \"ERROR (UNIT:Config ALL)\"");
    trace->add_option("SPEC", spec, "The new selection; without it the present one is shown");
    trace->callback([&] { status = traceCommand(spec); });
    app.add_subcommand("corrections", "List the corrections and what each changes")->callback([&] { status = listCorrections(); });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0) return app.exit(e);  // --help, --version
        return wrongUsage(app, e);
    }
    return status;
}
