#include "query.h"

#include <string_view>

#include "app_cfg_wire.h"
#include "appcfg/error.h"

namespace appcfg {
namespace {

constexpr std::string_view BLANKS(" \t\n\v\f\r");

void RefuseCharacters(const char* what, const std::string& text, std::string_view refused) {
    const size_t at = text.find_first_of(refused);
    if (at == std::string::npos) {
        return;
    }
    const std::string shown = text[at] == '\0' ? "a NUL" : std::string("a '") + text[at] + "'";
    throw InvalidArgument(std::string(what) + " '" + text.substr(0, at) + "...' holds " + shown +
                          ", which a query cannot carry");
}

// The service trims keys of a get and drops empty ones, so that another key would be read, or none.
void CheckGetKey(const std::string& key) {
    if (key.empty()) {
        throw InvalidArgument("a key is empty; read the whole document as a raw fragment");
    }
    RefuseCharacters("the key", key, std::string_view(",\0", 2));
    if (BLANKS.find(key.front()) != std::string_view::npos ||
        BLANKS.find(key.back()) != std::string_view::npos) {
        throw InvalidArgument("the key '" + key + "' begins or ends with a blank, which a get drops");
    }
}

void CheckSetPair(const std::string& key, const std::string& value) {
    constexpr std::string_view REFUSED(",|\0", 3);
    if (key.empty()) {
        throw InvalidArgument("the key of a value is empty");
    }
    RefuseCharacters("the key", key, REFUSED);
    RefuseCharacters("the value", value, REFUSED);
}

std::string CheckSize(std::string query) {
    if (query.size() >= SystemServer::APP_CFG_QUERY_SIZE) {
        throw InvalidArgument("the query has " + std::to_string(query.size()) +
                              " bytes and one request holds " +
                              std::to_string(SystemServer::APP_CFG_QUERY_SIZE - 1) + "; it is not split");
    }
    return query;
}

} // namespace

std::string BuildGetQuery(const std::vector<std::string>& keys) {
    std::string query;
    for (const std::string& key : keys) {
        CheckGetKey(key);
        query += query.empty() ? key : "," + key;
    }
    return CheckSize(std::move(query));
}

std::string BuildSetQuery(const std::vector<std::pair<std::string, std::string>>& values) {
    std::string query;
    for (const auto& [key, value] : values) {
        CheckSetPair(key, value);
        query += query.empty() ? key : "," + key;
        query += "|" + value;
    }
    return CheckSize(std::move(query));
}

} // namespace appcfg
