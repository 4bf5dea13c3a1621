// The commands, for the shell and for the command line alike.
#ifndef APPCFG_CLI_COMMAND_TABLE_H
#define APPCFG_CLI_COMMAND_TABLE_H

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

namespace appcfg::cli {

class Session;

// What a command was given; each command reads the members that it declares.
struct Arguments {
    std::optional<std::string> handle; // none: the current item
    std::vector<std::string> keys;     // also the KEY=VALUE pairs of a set
    std::string verb;
    std::string key;
    std::optional<std::string> data;
    std::string file;
    std::string keyFile;
    std::string text;
    std::vector<std::string> members; // of an item file, in their order
    double interval = 1;
    unsigned changes = 0; // 0: without end
    bool plain = false;
    bool empty = false;
    bool force = false;
    bool json = false;
};

enum class Scope {
    ANYWHERE,     // works on the item of HANDLE on the command line, on the current item in the shell
    WITHOUT_ITEM, // the same in both, of no item
    SHELL_ONLY,   // works on what the shell holds
};

struct Command {
    const char* name;
    const char* summary;
    Scope scope;
    void (*declare)(CLI::App&, Arguments&); // options and positionals other than HANDLE
    void (Session::*run)(const Arguments&);
};

const std::vector<Command>& Commands();

// Null when there is none.
const Command* FindCommand(const std::string& name);

// Parses words into what `app` declares; throws CLI::ParseError.
void ParseWords(CLI::App& app, std::vector<std::string> words);

// Undoes what ParseWords does to protect words from the parser's own list syntax.
std::string Unprotected(const std::string& word);

} // namespace appcfg::cli

#endif
