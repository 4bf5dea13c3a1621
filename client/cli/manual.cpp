#include "manual.h"

#include <sstream>

#include "command_table.h"
#include "item_file.h"

namespace appcfg::cli {

const char DESCRIPTION[] = "Reads and changes configuration items of the storage service.\n"
                           "HANDLE is owner/name or owner/name/index.";

namespace {

struct Entry {
    const char* name;
    const char* text;
};

constexpr Entry STATUSES[] = {{"0", "done"},
                              {"1", "refused by the service"},
                              {"2", "wrong usage"},
                              {"3", "no service, no reply, or none in time"}};

constexpr Entry ENVIRONMENT[] = {
    {"KESTREL_ROOT", "the framework's root directory, if --root does not say it; else /mnt/kestrel"},
    {"VISUAL, EDITOR", "the editor of edit, with its options; else vi"},
    {"XDG_STATE_HOME", "where the history is kept; else ~/.local/state"},
    {"APPCFG_NO_HISTORY", "not empty: the shell reads and writes no history"},
    {"NO_COLOR", "not empty: no colours, as with TERM=dumb; there are none but on a terminal"},
    {"TMPDIR", "where edit keeps its text; else /tmp"},
};

constexpr Entry FILES[] = {
    {"storage.paas.orb", "in the root directory: the socket of the service"},
    {"~/.local/state/appcfg/history", "the lines of the shell's prompt, but those that begin with a blank; "
                                      "for its owner alone, since values may "
                                      "be secrets"},
    {"ITEM.json", "an item file: what the service is told of an item when it is created"},
};

constexpr Entry EXAMPLES[] = {
    {"appcfg init network.json --handle tour/network --storage json --path /usr/setting/network.json",
     "Describes an item."},
    {"appcfg check network.json", "Says what its creation would find and do."},
    {"appcfg shell network.json", "Creates the item and holds it, until the prompt ends."},
    {"appcfg get tour/network hostname wifi.ssid", "Reads two values, from another terminal."},
    {"appcfg set tour/network hostname=kitchen mtu=1400", "Changes two values in one request."},
    {"appcfg dump tour/network >saved && appcfg load tour/network saved",
     "Keeps a document, and brings it back."},
    {"appcfg edit tour/network wifi", "Changes a part of it in an editor."},
};

std::string Escaped(const std::string& text) {
    std::string roff;
    for (const char c : text) {
        roff += c == '\\' ? "\\e" : c == '-' ? "\\-" : c == '\n' ? " " : std::string(1, c);
    }
    return roff.empty() || (roff.front() != '.' && roff.front() != '\'') ? roff : "\\&" + roff;
}

void PrintEntry(std::ostream& out, const std::string& name, const std::string& text) {
    out << ".TP\n.B " << Escaped(name) << "\n" << Escaped(text) << "\n";
}

template <size_t N>
void PrintSection(std::ostream& out, const char* title, const Entry (&entries)[N]) {
    out << ".SH " << title << "\n";
    for (const Entry& entry : entries) {
        PrintEntry(out, entry.name, entry.text);
    }
}

std::string Synopsis(const std::string& name, const CLI::App& app) {
    std::string line = name;
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_positional()) {
            const std::string word = option->get_name(true) + (option->get_expected_max() > 1 ? "..." : "");
            line += option->get_required() ? " " + word : " [" + word + "]";
        }
    }
    return line;
}

void PrintOptions(std::ostream& out, const CLI::App& app) {
    for (const CLI::Option* option : app.get_options()) {
        const std::string type =
            option->get_items_expected_max() == 0 || option->get_positional()
                ? ""
                : " " + option->get_type_name().substr(0, option->get_type_name().find(':'));
        const std::string name =
            option->get_positional() ? option->get_name(true) : option->get_name(false, true);
        if (!option->get_group().empty() && name != "-h,--help" && !option->get_description().empty()) {
            PrintEntry(out, name + type, option->get_description());
        }
    }
}

void PrintCommands(std::ostream& out, bool ofShell) {
    for (const Command& command : Commands()) {
        if ((command.scope == Scope::SHELL_ONLY) == ofShell) {
            Arguments arguments;
            CLI::App app;
            command.declare(app, arguments);
            PrintEntry(
                out,
                Synopsis(std::string(command.name) + (command.scope == Scope::ANYWHERE ? " HANDLE" : ""),
                         app),
                std::string(command.summary) + ".");
            out << ".RS\n";
            PrintOptions(out, app);
            out << ".RE\n";
        }
    }
}

} // namespace

std::string Footer() {
    std::string line;
    for (const Entry& status : STATUSES) {
        line += std::string(line.empty() ? "Exit status: " : ", ") + status.name + " " + status.text;
    }
    return line + ".";
}

std::string ManualPage(const CLI::App& app) {
    std::ostringstream out;
    out << ".TH APPCFG 1 \"\" \"appcfg " APPCFG_VERSION "\" \"User Commands\"\n"
        << ".SH NAME\nappcfg \\- command line of the application configuration service\n"
        << ".SH SYNOPSIS\n.B appcfg\n[OPTIONS] COMMAND [ARGUMENTS]\n.br\n.B appcfg shell\n[ITEM.json...]\n"
        << ".SH DESCRIPTION\n"
        << Escaped(DESCRIPTION) << "\n.SH OPTIONS\n";
    PrintOptions(out, app);
    out << ".SH COMMANDS\n";
    for (const CLI::App* command :
         app.get_subcommands([](const CLI::App* sub) { return sub->get_name() == "shell"; })) {
        PrintEntry(out, Synopsis("shell", *command), command->get_description() + ".");
    }
    PrintCommands(out, false);
    out << ".SH COMMANDS OF THE SHELL\n"
           "In the shell HANDLE is left out: commands work on the current item. There are these as well:\n";
    PrintCommands(out, true);
    out << ".SH ITEM FILES\nAn item file is a JSON object with these members:\n";
    for (const ItemMember& member : ItemMembers()) {
        PrintEntry(out, member.name,
                   std::string(member.meaning) +
                       (member.type[0] == '{' ? std::string(", one of ") + member.type : "") +
                       (member.required ? "; required" : ""));
    }
    PrintSection(out, "EXIT STATUS", STATUSES);
    PrintSection(out, "ENVIRONMENT", ENVIRONMENT);
    PrintSection(out, "FILES", FILES);
    PrintSection(out, "EXAMPLES", EXAMPLES);
    std::string page = out.str();
    page.pop_back();
    return page;
}

} // namespace appcfg::cli
