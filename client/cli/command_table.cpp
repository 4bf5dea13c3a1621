#include "command_table.h"

#include <algorithm>

#include "item_file.h"
#include "session.h"

namespace appcfg::cli {
namespace {

// The parser takes a word such as [@version] for a list; with this in front it is an ordinary word.
constexpr char PROTECTION = '\x01';

void DeclareNothing(CLI::App&, Arguments&) {}

void DeclareFile(CLI::App& app, Arguments& arguments) {
    app.add_option("ITEM.json", arguments.file, "item file")->required();
}

void DeclareRestore(CLI::App& app, Arguments& arguments) {
    app.add_option("--item", arguments.file,
                   "item file: compare with the default that it names; a shell knows its own items")
        ->type_name("ITEM.json");
}

void DeclareHandle(CLI::App& app, Arguments& arguments) {
    app.add_option("HANDLE", arguments.handle, "owner/name or owner/name/index")->required();
}

void DeclareKeys(CLI::App& app, Arguments& arguments) {
    app.add_option("KEY", arguments.keys, "keys to read, all in one request")->required();
}

void DeclarePairs(CLI::App& app, Arguments& arguments) {
    app.add_option("KEY=VALUE", arguments.keys, "values to set, all in one request")->required();
}

void DeclareRaw(CLI::App& app, Arguments& arguments) {
    app.add_option("VERB", arguments.verb, "get or set")->type_name("{get,set}")->required();
    app.add_option("KEY", arguments.key, "key of the fragment; '' or none for the whole document");
    app.add_option("DATA", arguments.data,
                   "for set: the text, or @FILE (@@... for text that begins with @); without it standard "
                   "input, on the command line");
    app.add_flag("--empty", arguments.empty, "take an empty standard input for an empty text");
}

void DeclareLoad(CLI::App& app, Arguments& arguments) {
    app.add_option("FILE", arguments.file, "the text; - for standard input, on the command line")->required();
}

void DeclareEdit(CLI::App& app, Arguments& arguments) {
    app.add_option("KEY", arguments.key, "key of the fragment; none for the whole document");
}

void DeclareRekey(CLI::App& app, Arguments& arguments) {
    CLI::Option* plain = app.add_flag("--plain", arguments.plain, "store plain from now on");
    CLI::Option* key = app.add_option("--key-file", arguments.keyFile, "96 hexadecimal digits: key and IV")
                           ->type_name("FILE");
    plain->excludes(key);
}

void DeclareStored(CLI::App& app, Arguments& arguments) {
    app.add_option("VERB", arguments.verb, "show, encrypt or decrypt")
        ->required()
        ->check(CLI::IsMember({"show", "encrypt", "decrypt"}));
    app.add_option("FILE", arguments.file,
                   "a file of an encrypted item; better a copy while the item is held")
        ->required();
    app.add_option("--key-file", arguments.keyFile, "96 hexadecimal digits: key and IV")
        ->type_name("FILE")
        ->required();
}

void DeclareInit(CLI::App& app, Arguments& arguments) {
    app.add_option("ITEM.json", arguments.file, "where to write; NAME.json if not given");
    arguments.members.resize(ItemMembers().size());
    for (size_t i = 0; i < ItemMembers().size(); ++i) {
        const ItemMember& member = ItemMembers()[i];
        app.add_option(member.flag, arguments.members[i],
                       std::string("\"") + member.name + "\": " + member.meaning)
            ->type_name(member.type);
    }
    app.add_flag("--force", arguments.force, "replace the file if it is there");
}

void DeclareWatch(CLI::App& app, Arguments& arguments) {
    DeclareKeys(app, arguments);
    app.add_option("--interval", arguments.interval, "how often to look, in seconds")
        ->type_name("SECONDS")
        ->capture_default_str()
        ->check(CLI::Range(0.01, 86400.0));
    app.add_option("--changes", arguments.changes, "end after so many changes")->type_name("COUNT");
}

void DeclareText(CLI::App& app, Arguments& arguments) {
    app.add_option("TEXT", arguments.text, "text to print");
}

} // namespace

const std::vector<Command>& Commands() {
    static const std::vector<Command> commands = {
        {"get", "print values", Scope::ANYWHERE, DeclareKeys, &Session::Get},
        {"set", "change values", Scope::ANYWHERE, DeclarePairs, &Session::Set},
        {"raw", "print or replace a document fragment", Scope::ANYWHERE, DeclareRaw, &Session::Raw},
        {"dump", "print the whole document, byte for byte", Scope::ANYWHERE, DeclareNothing, &Session::Dump},
        {"load", "replace the whole document by a file", Scope::ANYWHERE, DeclareLoad, &Session::Load},
        {"edit", "change a document, or one part of it, in $VISUAL, $EDITOR or vi", Scope::ANYWHERE,
         DeclareEdit, &Session::Edit},
        {"restore", "bring the default file back", Scope::ANYWHERE, DeclareRestore, &Session::Restore},
        {"rekey", "encrypt with another key, or store plain", Scope::ANYWHERE, DeclareRekey, &Session::Rekey},
        {"delete", "end an item at the service; its files stay", Scope::ANYWHERE, DeclareNothing,
         &Session::Delete},
        {"watch", "print values, and again when they change", Scope::ANYWHERE, DeclareWatch, &Session::Watch},
        {"file", "show, encrypt or decrypt a stored file, without the service", Scope::WITHOUT_ITEM,
         DeclareStored, &Session::StoredFile},
        {"check", "say what a creation would do, touching nothing", Scope::WITHOUT_ITEM, DeclareFile,
         &Session::CheckFiles},
        {"init", "write an item file, of options or by asking", Scope::WITHOUT_ITEM, DeclareInit,
         &Session::Init},
        {"status", "say whether the service answers, and how fast", Scope::WITHOUT_ITEM, DeclareNothing,
         &Session::Status},
        {"create", "create an item and make it the current one", Scope::SHELL_ONLY, DeclareFile,
         &Session::Create},
        {"items", "list the items that this shell holds", Scope::SHELL_ONLY, DeclareNothing, &Session::Items},
        {"use", "make an item the current one", Scope::SHELL_ONLY, DeclareHandle, &Session::Use},
        {"echo", "print a text, such as a mark between results", Scope::SHELL_ONLY, DeclareText,
         &Session::Echo},
        {"help", "list the commands", Scope::SHELL_ONLY, DeclareNothing, &Session::Help},
        {"quit", "close the connection and end", Scope::SHELL_ONLY, DeclareNothing, &Session::Quit},
    };
    return commands;
}

const Command* FindCommand(const std::string& name) {
    const auto& commands = Commands();
    const auto found = std::find_if(commands.begin(), commands.end(),
                                    [&](const Command& command) { return name == command.name; });
    return found == commands.end() ? nullptr : &*found;
}

void ParseWords(CLI::App& app, std::vector<std::string> words) {
    for (std::string& word : words) {
        if (!word.empty() && (word.front() == '[' || word.front() == PROTECTION)) {
            word.insert(word.begin(), PROTECTION);
        }
    }
    std::reverse(words.begin(), words.end());
    app.parse(std::move(words));
}

std::string Unprotected(const std::string& word) {
    return !word.empty() && word.front() == PROTECTION ? word.substr(1) : word;
}

} // namespace appcfg::cli
