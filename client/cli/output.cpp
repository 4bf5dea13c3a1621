#include "output.h"

#include <nlohmann/json.hpp>

namespace appcfg::cli {
namespace {

// Files may hold any bytes, JSON only UTF-8: others become U+FFFD.
template <class Json>
std::string Dump(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace

void Output::Values(const std::vector<std::string>& keys, const std::vector<std::string>& values) {
    if (m_json) {
        nlohmann::ordered_json object = nlohmann::ordered_json::object();
        for (size_t i = 0; i < keys.size(); ++i) {
            object[keys[i]] = values[i];
        }
        m_stream << Dump(object) << '\n';
    } else {
        for (const std::string& value : values) {
            m_stream << value << '\n';
        }
    }
    m_stream.flush();
}

void Output::Text(const std::string& text) {
    m_stream << (m_json ? Dump(nlohmann::json(text)) : text) << '\n' << std::flush;
}

void Output::Items(const std::vector<ItemLine>& items) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const ItemLine& item : items) {
        if (m_json) {
            list.push_back({{"handle", item.handle}, {"storage", item.storage}, {"path", item.path}});
        } else {
            m_stream << item.handle << ' ' << item.storage << ' ' << item.path << '\n';
        }
    }
    if (m_json) {
        m_stream << Dump(list) << '\n';
    }
    m_stream.flush();
}

void Output::Done(const std::string& what) {
    if (!m_confirms) {
        return;
    }
    if (m_json) {
        m_stream << Dump(nlohmann::json{{"done", what}}) << '\n' << std::flush;
    } else {
        m_stream << what << '\n' << std::flush;
    }
}

} // namespace appcfg::cli
