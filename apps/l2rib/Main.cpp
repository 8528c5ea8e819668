// l2rib: the command line. Reads the tables in place; works while the agent writes and, for what can be shown, when it
// is dead.
#include <CLI/CLI.hpp>
#include <iostream>

#include "SharedMem/FenixFile.h"
#include "l2rib/Command.h"

namespace {

struct Command {
    const char* object;
    const char* verb;
    int (*run)(const Tool::Options&);
};
constexpr Command commands[] = {{"host", "show", &Tool::hostShow},       {"host", "monitor", &Tool::hostMonitor},
                                {"host", "explain", &Tool::hostExplain}, {"host", "clear", &Tool::hostClear},
                                {"lb", "show", &Tool::lbShow},           {"label", "show", &Tool::labelShow},
                                {"dest", "show", &Tool::destShow},       {"table", "check", &Tool::tableCheck},
                                {"table", "show", &Tool::tableShow},     {"table", "dump", &Tool::tableDump},
                                {"reader", "show", &Tool::readerShow},   {"source", "show", &Tool::sourceShow},
                                {"flood", "show", &Tool::floodShow},     {"status", "show", &Tool::statusShow},
                                {"config", "set", &Tool::configSet}};

const char* const usage =
    "l2rib [options] OBJECT VERB [SELECTOR VALUE]...\n"
    "  host show     [vlan N] [mac M] [source S]   the hosts of the output table\n"
    "  host monitor  [vlan N] [mac M] [source S]   every change, as it happens; --current begins with what is there\n"
    "  host explain  vlan N mac M                  who claims the host, who won at which step, and where it has been\n"
    "  host clear    [vlan N mac M]                a duplicate address is one no more; without a host: all of them\n"
    "  lb|label|dest show                          the objects of the output; -d with the hosts that use each\n"
    "  table check   [NAME]...                     whether the files of tables hang together, without a writer\n"
    "  table show    [NAME]...                     what their headers say: sizes, counts, queue\n"
    "  table dump    [NAME]...                     their rows, as the JSON that l2rib-source file reads\n"
    "  reader show   [NAME]...                     who reads them, and how far each has got\n"
    "  source show                                 the sources that have announced themselves\n"
    "  flood show    [vlan N] [mac M]              the merged flood sets\n"
    "  status show                                 the agent's state\n"
    "  config set    agent-enabled on|off          whether the agent merges; kept over its restart\n"
    "Exit status: 0 found or sound, 1 no match or not sound, 2 usage or input/output";

int fail(const std::string& what) {
    std::cerr << "l2rib: " << what << std::endl;
    return Tool::exitError;
}

}  // namespace

void Tool::requireNoWords(const Options& options) {
    if (!options.words.empty()) throw Quil::RangeException("is not expected here", options.words[0]);
}

void Tool::HostTable::mountReadable() {
    mount();
    const auto& map = hosts->hostControl();
    if (map.isReadable()) return;
    const bool hasFiles = SharedMem::FenixFile::read(map.directory()) != 0;
    throw Quil::SystemException(Quil::cat(hasFiles ? "cannot be read, see l2rib table check: " : "no table ",
                                          map.name(), " under ", em.root()));
}

void Tool::flushOutput() {
    if (std::fflush(stdout) != 0 || !std::cout.flush()) {
        throw Quil::SystemException("standard output cannot be written");
    }
}

int main(int argc, char** argv) {
    Tool::Options options;
    std::vector<std::string> words;
    CLI::App app{usage};
    app.add_option("--root", options.root, "directory of the shared-memory tables")->capture_default_str();
    app.add_flag("-j,--json", options.json, "print JSON");
    app.add_flag("-d,--details", options.details, "lb, label, dest: with the hosts that use each");
    app.add_flag("--current", options.current, "monitor: begin with the hosts there are");
    app.add_option("words", words, "OBJECT VERB [SELECTOR VALUE]...");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return error.get_exit_code() == 0 ? app.exit(error) : fail(error.what());
    }
    if (words.size() < 2) return fail("OBJECT and VERB are needed; see l2rib --help");
    const std::string name = words[0] + " " + words[1];
    options.words.assign(words.begin() + 2, words.end());
    for (const Command& command : commands) {
        if (words[0] != command.object || words[1] != command.verb) continue;
        try {
            return command.run(options);
        } catch (const std::exception& error) {
            return fail(name + ": " + error.what());
        }
    }
    return fail(name + ": no such command; see l2rib --help");
}
