#include "item_model.h"

#include <utility>

namespace Endurance {

namespace {

using SystemServer::ConfigSaveStrategy;
using SystemServer::ConfigStorageType;

std::string Escape(const std::string& text, const std::map<char, std::string>& escapes) {
    std::string result;
    for (const char c : text) {
        const auto found = escapes.find(c);
        result += found == escapes.end() ? std::string(1, c) : found->second;
    }
    return result;
}

std::string JsonString(const std::string& text) {
    static const std::map<char, std::string> ESCAPES{{'"', "\\\""}, {'\\', "\\\\"}};
    return '"' + Escape(text, ESCAPES) + '"';
}

// An object as the service writes it; the members are JSON texts.
std::string JsonObject(const Values& members, const std::string& indent) {
    std::string text = "{";
    for (const auto& [name, value] : members) {
        text += (text.size() > 1 ? ",\n" : "\n") + indent + "  " + JsonString(name) + ": " + value;
    }
    return text + "\n" + indent + "}";
}

std::string JsonGroup(const Values& values, const std::string& group, const std::string& indent) {
    Values members = MembersOf(values, group);
    for (auto& [name, value] : members) {
        value = JsonString(value);
    }
    return JsonObject(members, indent);
}

std::string XmlElement(const std::string& name, const std::string& content) {
    return "<" + name + ">" + content + "</" + name + ">";
}

std::string XmlGroup(const Values& values, const std::string& group) {
    std::string content;
    for (const auto& [name, value] : MembersOf(values, group)) {
        content += XmlElementOf(name, value);
    }
    return XmlElement(group, content);
}

// A raw set of INI may name what exists outside of the sections: "extra", here.
std::string IniText(const Values& values) {
    std::string text = "extra = 0\n";
    for (const auto& [group, count] : GroupsOf(values)) {
        text += "[" + group + "]\n";
        for (const auto& [name, value] : MembersOf(values, group)) {
            text += name + " = " + value + "\n";
        }
    }
    return text;
}

} // namespace

Values MembersOf(const Values& values, const std::string& group) {
    Values members;
    for (auto at = values.lower_bound(group + "."); at != values.end(); ++at) {
        if (at->first.compare(0, group.size() + 1, group + ".") != 0) {
            break;
        }
        members.emplace(at->first.substr(group.size() + 1), at->second);
    }
    return members;
}

std::map<std::string, unsigned> GroupsOf(const Values& values) {
    std::map<std::string, unsigned> groups;
    for (const auto& [key, value] : values) {
        ++groups[key.substr(0, key.find('.'))];
    }
    return groups;
}

std::string TextOf(ConfigStorageType format, const Values& values) {
    if (format == ConfigStorageType::INI) {
        return IniText(values);
    }
    Values members;
    std::string xml;
    for (const auto& [group, count] : GroupsOf(values)) {
        members[group] = JsonGroup(values, group, "  ");
        xml += XmlGroup(values, group);
    }
    return format == ConfigStorageType::JSON ? JsonObject(members, "") : XmlElement("soak", xml);
}

std::string GroupTextOf(ConfigStorageType format, const Values& values, const std::string& group) {
    return format == ConfigStorageType::JSON ? JsonGroup(values, group, "") : XmlGroup(values, group);
}

std::string XmlElementOf(const std::string& name, const std::string& text) {
    static const std::map<char, std::string> ESCAPES{
        {'<', "&lt;"}, {'>', "&gt;"}, {'&', "&amp;"}, {'"', "&quot;"}};
    return XmlElement(name, Escape(text, ESCAPES));
}

ItemModel::ItemModel(ConfigStorageType format, bool hasCopies, Values defaults) :
    m_format(format), m_hasCopies(hasCopies), m_defaults(std::move(defaults)), m_values(m_defaults),
    m_saved(m_defaults) {}

void ItemModel::Begin(ConfigSaveStrategy strategy) {
    m_strategy = strategy;
    m_values = m_saved;
    m_hasChanged = false;
}

// The last save of a strategy that waits writes what is there; an instant one has nothing left to do.
void ItemModel::End() {
    if (m_strategy == ConfigSaveStrategy::DELAY || m_strategy == ConfigSaveStrategy::TIMING) {
        SaveNow();
    }
}

void ItemModel::Announce() {
    m_hasChanged = true;
    if (m_strategy == ConfigSaveStrategy::INSTANT) {
        SaveNow();
    }
}

void ItemModel::Restore() {
    End();
    if (m_hasCopies) {
        m_saved = m_defaults;
        m_hasChanged = true;
    }
    m_values = m_saved;
}

void ItemModel::Rewrite() {
    m_hasChanged = true;
    SaveNow();
}

void ItemModel::SaveNow() {
    if (IsWritten()) {
        m_saved = m_values;
    }
}

std::string ItemModel::Read(const std::string& key) const {
    const std::string& value = m_values.at(key);
    return value.compare(0, 2, "${") == 0 ? m_values.at(value.substr(2, value.size() - 3)) : value;
}

} // namespace Endurance
