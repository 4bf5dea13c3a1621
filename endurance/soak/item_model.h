#ifndef ITEM_MODEL_H
#define ITEM_MODEL_H

#include <map>
#include <string>

#include "app_cfg_types.h"

namespace Endurance {

// Text values by keys of the form "group.name". What is added to a group has the greatest name in it, so
// that this order is also that of an XML document.
using Values = std::map<std::string, std::string>;

// The document as text. XML is without blanks between elements.
std::string TextOf(SystemServer::ConfigStorageType format, const Values& values);

// One group of a JSON or XML document as a raw get shows it.
std::string GroupTextOf(SystemServer::ConfigStorageType format, const Values& values,
                        const std::string& group);

std::string XmlElementOf(const std::string& name, const std::string& text);

// The members of one group, and the groups' names with how many members each has.
Values MembersOf(const Values& values, const std::string& group);
std::map<std::string, unsigned> GroupsOf(const Values& values);

// What one item must hold in memory and in its file, however it was used. Owned and used by the one client
// that uses the item.
class ItemModel {
public:
    // An item with copies has a backup strategy, and so a default to restore. Its file holds the defaults.
    ItemModel(SystemServer::ConfigStorageType format, bool hasCopies, Values defaults);

    // The item was created, or is about to end.
    void Begin(SystemServer::ConfigSaveStrategy strategy);
    void End();

    // One value in memory, before or without the change being announced.
    void Set(const std::string& key, const std::string& value) { m_values[key] = value; }
    void Replace(Values values) { m_values = std::move(values); }
    // Values were changed and the change announced.
    void Announce();

    void Restore();
    // A key change writes the file, whatever the strategy.
    void Rewrite();

    // Whether anything happened since the beginning that an instant backup follows.
    bool HasChanged() const { return m_hasChanged; }

    const Values& All() const { return m_values; }
    // What a get answers: references are expanded.
    std::string Read(const std::string& key) const;

private:
    bool IsWritten() const { return m_format != SystemServer::ConfigStorageType::INI; }
    void SaveNow();

    const SystemServer::ConfigStorageType m_format;
    const bool m_hasCopies;
    const Values m_defaults;
    SystemServer::ConfigSaveStrategy m_strategy = SystemServer::ConfigSaveStrategy::NONE;
    Values m_values;
    Values m_saved;
    bool m_hasChanged = false;
};

} // namespace Endurance

#endif
