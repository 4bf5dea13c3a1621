// The words in front of the last one are walked as the parser would: a command, options with their values,
// and positionals by their number. What is then awaited says by its name or type what there is to choose
// from.
#include "completion.h"

#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>

#include "fragment.h"
#include "item_file.h"

namespace appcfg::cli {
namespace {

using Words = std::vector<std::string>;

bool IsOption(const std::string& word) {
    return !word.empty() && word.front() == '-';
}

// What a line awaits after some of its words.
struct Awaited {
    const CLI::App* app;
    const CLI::App* command = nullptr;
    const CLI::Option* value = nullptr; // of an option
    bool isLost = false;                // there is no such command
    size_t positionals = 0;
    std::optional<std::string> handle{};

    void Take(const std::string& word) {
        const CLI::App& current = command != nullptr ? *command : *app;
        if (value != nullptr) {
            value = nullptr;
        } else if (IsOption(word)) {
            const CLI::Option* option = current.get_option_no_throw(word);
            option = option == nullptr ? app->get_option_no_throw(word) : option;
            value = option != nullptr && option->get_items_expected_max() > 0 ? option : nullptr;
        } else if (command == nullptr) {
            const auto named =
                app->get_subcommands([&](const CLI::App* sub) { return sub->check_name(word); });
            command = named.empty() ? nullptr : named.front();
            isLost = named.empty();
        } else {
            ++positionals;
            if (!handle && word.find('/') != std::string::npos) {
                handle = word;
            }
        }
    }

    // The option's value, or the positional, that comes next; the last positional may take more words.
    const CLI::Option* Next() const {
        const CLI::Option* next = value;
        size_t left = positionals + 1;
        for (const CLI::Option* option : command->get_options()) {
            if (value == nullptr && option->get_positional() && left > 0) {
                next = --left == 0 || option->get_items_expected_max() > 1 ? option : nullptr;
            }
        }
        return next;
    }
};

Words OptionsOf(const CLI::App& app) {
    Words names;
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            if (!option->get_group().empty()) {
                names.push_back("--" + name);
            }
        }
    }
    return names;
}

// The words of {a,b,c}.
Words ChoicesOf(const std::string& type) {
    Words choices;
    for (size_t at = type.find('{'); at < type.size() && type[at] != '}';) {
        const size_t end = type.find_first_of(",}", at + 1);
        choices.push_back(type.substr(at + 1, end - at - 1));
        at = end;
    }
    return choices;
}

// Folders, and files that may be item files.
Words ItemFiles(const std::string& prefix) {
    const std::string folder = prefix.substr(0, prefix.rfind('/') + 1);
    Words files;
    std::error_code failure;
    for (const auto& entry : std::filesystem::directory_iterator(folder.empty() ? "." : folder, failure)) {
        const std::string path = folder + entry.path().filename().string();
        if (entry.is_directory(failure)) {
            files.push_back(path + "/");
        } else if (entry.path().extension() == ".json") {
            files.push_back(path);
        }
    }
    return files;
}

// Of the item files that are here: the service does not list what it has.
Words Handles() {
    Words handles;
    for (const std::string& file : ItemFiles("")) {
        try {
            const auto item = nlohmann::json::parse(ReadWholeFile(file, 64 << 10));
            handles.push_back(item.at("handle").get<std::string>());
        } catch (const std::exception&) {
            continue; // no item file
        }
    }
    return handles;
}

// A value's key with `end` behind it; an object or array also with what leads on.
void AddKey(Words& keys, const std::string& key, const nlohmann::json& value, const std::string& end) {
    keys.push_back(key + end);
    if (value.is_structured()) {
        keys.push_back(key + (value.is_object() ? "." : "["));
    }
}

// Of a JSON document, beside the one that is typed.
Words Keys(const Item& item, const std::string& prefix, const std::string& end) {
    const std::string whole = item.GetRaw();
    const size_t step = LastStep(prefix);
    const std::string parent = prefix.substr(0, step);
    Words keys;
    if (whole.empty() || whole.front() != '{') {
        return keys;
    }
    const auto text = parent.empty() ? whole : JsonAt(whole, parent).value_or("null");
    const auto json = nlohmann::json::parse(text);
    for (const auto& [name, value] : json.items()) {
        if (json.is_array()) {
            AddKey(keys, parent + "[" + name + "]", value, end);
        } else if (json.is_object() && name.find_first_of(".[,|") == std::string::npos) {
            AddKey(keys, parent.empty() ? name : parent + "." + name, value, end);
        }
    }
    return keys;
}

Words CandidatesFor(const CLI::Option& option, const Awaited& awaited, const std::string& prefix,
                    const ItemOf& itemOf) {
    const std::string name = option.get_positional() ? option.get_name(true) : option.get_type_name();
    if (name == "ITEM.json") {
        return ItemFiles(prefix);
    }
    if (name == "HANDLE") {
        return Handles();
    }
    if (name == "KEY" || name == "KEY=VALUE") {
        return Keys(itemOf(awaited.handle), prefix, name == "KEY" ? "" : "=");
    }
    return ChoicesOf(option.get_type_name());
}

} // namespace

std::vector<std::string> Completions(const CLI::App& app, const std::vector<std::string>& words,
                                     const ItemOf& itemOf) {
    const std::string& prefix = words.back();
    Awaited awaited{&app};
    for (size_t i = 0; i + 1 < words.size(); ++i) {
        awaited.Take(words[i]);
    }
    Words found;
    if (IsOption(prefix) && awaited.value == nullptr) {
        found = OptionsOf(app);
        const Words more = awaited.command == nullptr ? Words() : OptionsOf(*awaited.command);
        found.insert(found.end(), more.begin(), more.end());
    } else if (awaited.command != nullptr || awaited.value != nullptr) {
        const CLI::Option* const next = awaited.command == nullptr ? awaited.value : awaited.Next();
        found = next == nullptr ? Words() : CandidatesFor(*next, awaited, prefix, itemOf);
    } else if (!awaited.isLost) {
        for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
            found.push_back(sub->get_name());
        }
    }
    std::set<std::string> fitting;
    std::copy_if(found.begin(), found.end(), std::inserter(fitting, fitting.end()),
                 [&](const std::string& word) { return word.rfind(prefix, 0) == 0; });
    return {fitting.begin(), fitting.end()};
}

} // namespace appcfg::cli
