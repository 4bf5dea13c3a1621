// What could stand for the word that is being typed.
#ifndef APPCFG_CLI_COMPLETION_H
#define APPCFG_CLI_COMPLETION_H

#include <CLI/CLI.hpp>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "appcfg/item.h"

namespace appcfg::cli {

// The item that the line names, or the current one.
using ItemOf = std::function<Item(const std::optional<std::string>& handle)>;

// For the last of the words, which may be empty: commands and options of `app`, item files and their handles,
// and keys of the item's document. None at all for other files, which each shell completes by itself.
std::vector<std::string> Completions(const CLI::App& app, const std::vector<std::string>& words,
                                     const ItemOf& itemOf);

} // namespace appcfg::cli

#endif
