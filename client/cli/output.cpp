#include "output.h"

#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>

#include "appcfg/value.h"
#include "command_table.h"

namespace appcfg::cli {
namespace {

// The length of the character that the text begins with; 0 when it is a control character or no UTF-8.
size_t PrintableLength(std::string_view text) {
    constexpr uint32_t LEAST[] = {0, 0, 0xA0, 0x800, 0x10000}; // below: a control character, or overlong
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x80) {
        return first >= 0x20 && first != 0x7F ? 1 : 0;
    }
    const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length) {
        return 0;
    }
    uint32_t code = first & (0x7FU >> length);
    for (const char c : text.substr(1, length - 1)) {
        const auto next = static_cast<unsigned char>(c);
        if ((next & 0xC0) != 0x80) {
            return 0;
        }
        code = code << 6 | (next & 0x3FU);
    }
    return code >= LEAST[length] ? length : 0;
}

std::string Escaped(std::string_view text, std::string_view kept) {
    constexpr char DIGITS[] = "0123456789abcdef";
    std::string escaped;
    while (!text.empty()) {
        const bool isKept = kept.find(text.front()) != std::string_view::npos;
        const size_t length = isKept ? 1 : PrintableLength(text);
        if (length > 0) {
            escaped.append(text.substr(0, length));
        } else {
            const auto byte = static_cast<unsigned char>(text.front());
            escaped.append({'\\', 'x', DIGITS[byte >> 4], DIGITS[byte & 0xF]});
        }
        text.remove_prefix(std::max<size_t>(length, 1));
    }
    return escaped;
}

} // namespace

void Messages::Tell(std::string_view text) {
    const Mark mark = m_colours ? RED : Mark();
    m_stream << mark.on << "appcfg:" << mark.off << ' '
             << (m_terminal ? Escaped(text, {}) : std::string(text)) << '\n'
             << std::flush;
}

void Messages::Print(std::string_view lines) {
    m_stream << (m_terminal ? Escaped(lines, "\n") : std::string(lines)) << std::flush;
}

void Output::Line(std::string_view text, std::string_view kept) {
    if (m_terminal) {
        m_stream << Escaped(text, kept) << '\n';
    } else {
        m_stream << text << '\n';
    }
}

void Output::Marked(const Mark& mark, std::string_view text) {
    const Mark used = m_colours ? mark : Mark();
    m_stream << used.on << (m_terminal ? Escaped(text, {}) : std::string(text)) << used.off;
}

// Files may hold any bytes, JSON only UTF-8: others become U+FFFD. On a terminal it is ASCII.
template <class Json>
void Output::JsonLine(const Json& json) {
    m_stream << json.dump(-1, ' ', m_terminal, Json::error_handler_t::replace) << '\n';
}

void Output::Values(const std::vector<std::string>& keys, const std::vector<std::string>& values) {
    if (m_json) {
        nlohmann::ordered_json object = nlohmann::ordered_json::object();
        for (size_t i = 0; i < keys.size(); ++i) {
            object[keys[i]] = values[i];
        }
        JsonLine(object);
    } else {
        for (const std::string& value : values) {
            Line(value);
        }
    }
    m_stream.flush();
}

void Output::Text(const std::string& text) {
    if (m_json) {
        JsonLine(nlohmann::json(text));
    } else {
        Line(text, "\n\t");
    }
    m_stream.flush();
}

void Output::Bytes(const std::string& bytes) {
    if (m_json || m_terminal || m_confirms) {
        Text(bytes);
    } else {
        m_stream << bytes << std::flush;
    }
}

void Output::Items(const std::vector<ItemLine>& items) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const ItemLine& item : items) {
        if (m_json) {
            list.push_back({{"handle", item.handle},
                            {"storage", item.storage},
                            {"path", item.path},
                            {"gone", item.gone}});
        } else {
            Marked(BOLD, item.handle);
            Line(' ' + item.storage + ' ' + item.path + (item.gone ? " (gone)" : ""));
        }
    }
    if (m_json) {
        JsonLine(list);
    }
    m_stream.flush();
}

void Output::Found(const Check& check) {
    nlohmann::ordered_json object;
    for (const FileFinding& file : check.files) {
        object["files"][file.role] = {{"path", file.path}, {"state", StateName(file.state)}};
        if (!m_json) {
            Line(FindingLine(file));
        }
    }
    object["loads"] = check.wouldLoad;
    object["steps"] = check.steps;
    object["lost"] = check.lost;
    if (m_json) {
        JsonLine(object);
    } else {
        Line("a creation" + std::string(check.wouldLoad ? " loads" : " fails") +
             (check.steps.empty() ? "" : ":"));
        for (const std::string& step : check.steps) {
            Line("  " + step);
        }
        if (!check.lost.empty()) {
            Line("the next save takes from the backup:");
        }
        for (const std::string& line : check.lost) {
            Marked(RED, "- " + line);
            Line("");
        }
    }
    m_stream.flush();
}

void Output::Answer(const std::string& root, double milliseconds) {
    if (m_json) {
        JsonLine(nlohmann::ordered_json{{"root", root}, {"milliseconds", milliseconds}});
    } else {
        Line("the service at " + root + " answers after " + FormatValue(milliseconds) + " ms");
    }
    m_stream.flush();
}

void Output::Help() {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const Command& command : Commands()) {
        if (m_json) {
            list.push_back({{"command", command.name}, {"summary", command.summary}});
        } else {
            Line("  " + std::string(command.name) + std::string(10 - std::string(command.name).size(), ' ') +
                 command.summary);
        }
    }
    if (m_json) {
        JsonLine(list);
    } else {
        Line("COMMAND --help says more. Words are split at blanks; quote with '...' or \"...\".");
    }
    m_stream.flush();
}

void Output::Done(const std::string& what) {
    if (!m_confirms) {
        return;
    }
    if (m_json) {
        JsonLine(nlohmann::json{{"done", what}});
    } else {
        Line(what);
    }
    m_stream.flush();
}

} // namespace appcfg::cli
