// Commands are words that were parsed already; here they become requests. The service ends an item when the
// connection that created it closes, so that one session is one connection, and remembers what it created on
// it: restoring compares with the default that such a description names.
#include "session.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <thread>
#include <unistd.h>
#include <utility>

#include "appcfg/error.h"
#include "diagnosis.h"
#include "edited_file.h"
#include "encrypted_file.h"
#include "exit_status.h"
#include "fragment.h"
#include "item_file.h"

namespace appcfg::cli {
namespace {

constexpr size_t DATA_LIMIT = 16U << 20;

// Behind the selector [@NAME=VALUE] or [@NAME='VALUE'] that begins there; npos when it does not end.
size_t EndOfSelector(const std::string& text, size_t start) {
    size_t end = text.find_first_of("=]", start);
    if (end != std::string::npos && text.compare(end, 2, "='") == 0) {
        end = text.find('\'', end + 2);
    }
    end = text.find(']', end);
    return end == std::string::npos ? end : end + 1;
}

// Splits at the first "=" outside of the key's selectors; the value may hold more of them.
std::pair<std::string, std::string> SplitPair(const std::string& text) {
    size_t equals = 0;
    while (equals < text.size() && text[equals] != '=') {
        equals = text.compare(equals, 2, "[@") == 0 ? EndOfSelector(text, equals) : equals + 1;
    }
    if (equals >= text.size()) {
        throw UsageError("'" + text + "' is not KEY=VALUE");
    }
    return {text.substr(0, equals), text.substr(equals + 1)};
}

// An empty input is rather a mistake, such as a failed command in front of a pipe.
std::string ReadInput(std::istream& input, bool mayBeEmpty) {
    std::string text;
    char piece[16384];
    while (text.size() <= DATA_LIMIT && (input.read(piece, sizeof(piece)), input.gcount() > 0)) {
        text.append(piece, static_cast<size_t>(input.gcount()));
    }
    if (input.bad()) {
        throw UsageError("standard input cannot be read");
    }
    if (text.size() > DATA_LIMIT) {
        throw UsageError("standard input: larger than " + std::to_string(DATA_LIMIT) + " bytes");
    }
    if (text.empty() && !mayBeEmpty) {
        throw UsageError("standard input is empty; give DATA, or say --empty");
    }
    return text;
}

} // namespace

Session::Session(Connection connection, Output output, Messages messages, std::istream* data, bool asks) :
    m_output(output), m_messages(messages), m_data(data), m_asks(asks), m_connection(std::move(connection)) {}

void Session::Run(const Command& command, const Arguments& arguments, bool json) {
    m_output.UseJson(json || arguments.json);
    (this->*command.run)(arguments);
}

Item Session::Target(const Arguments& arguments) const {
    if (arguments.handle) {
        return m_connection.Open(Handle::Parse(Unprotected(*arguments.handle)));
    }
    if (!m_current) {
        throw UsageError("no current item; create one from a FILE, or use a HANDLE");
    }
    return m_connection.Open(*m_current);
}

// One key that was refused speaks for itself; of several the service does not say which.
void Session::Get(const Arguments& arguments) {
    std::vector<std::string> keys;
    std::transform(arguments.keys.begin(), arguments.keys.end(), std::back_inserter(keys), Unprotected);
    const Item item = Target(arguments);
    try {
        m_output.Values(keys, Awaited([&] { return item.GetMany(keys); }));
    } catch (const RequestRefused& refused) {
        if (keys.size() < 2 || refused.Status() != SystemServer::APP_CFG_STATUS_BAD_REQUEST) {
            throw;
        }
        std::string culprits;
        for (const std::string& key : KeysWithoutValue(item, keys)) {
            culprits += (culprits.empty() ? "; no value has " : ", ") + key;
        }
        throw Unconfirmed(refused.what() + culprits);
    }
}

void Session::Set(const Arguments& arguments) {
    Pairs values;
    for (const std::string& word : arguments.keys) {
        values.push_back(SplitPair(Unprotected(word)));
    }
    Item item = Target(arguments);
    try {
        Awaited([&] { item.SetMany(values); });
    } catch (const RequestRefused& refused) {
        if (refused.Status() != SystemServer::APP_CFG_STATUS_BAD_REQUEST) {
            throw;
        }
        throw Unconfirmed(refused.what(), WhyNotSet(item, values));
    }
    m_output.Done("set " + std::to_string(values.size()) + (values.size() == 1 ? " value" : " values"));
}

void Session::Raw(const Arguments& arguments) {
    Arguments given = arguments;
    // Both `raw HANDLE get` and `raw get HANDLE` are understood: a handle always holds a slash.
    if (given.handle == "get" || given.handle == "set") {
        given.verb.swap(*given.handle);
    }
    const std::string key = Unprotected(given.key);
    if (given.verb == "get" && !given.data) {
        m_output.Text(Awaited([&] { return Target(given).GetRaw(key); }));
    } else if (given.verb == "set") {
        Item item = Target(given);
        const std::string data = DataOf(given);
        Awaited([&] { item.SetRaw(key, data); });
        m_output.Done("set '" + key + "'");
    } else {
        throw UsageError("write raw get [KEY], or raw set KEY [DATA|@FILE]");
    }
}

void Session::Dump(const Arguments& arguments) {
    m_output.Bytes(Awaited([&] { return Target(arguments).GetRaw(); }));
}

void Session::Load(const Arguments& arguments) {
    Item item = Target(arguments);
    const std::string path = Unprotected(arguments.file);
    if (path == "-" && m_data == nullptr) {
        throw UsageError("load needs a FILE here");
    }
    const std::string text = path == "-" ? ReadInput(*m_data, false) : ReadWholeFile(path, DATA_LIMIT);
    Awaited([&] { Fragment(item, "").Replace(item, text); });
    m_output.Done("loaded " + item.GetHandle().ToString());
}

// The service knows no set that depends on what is there: a change that another client makes between the
// second look and the write is lost.
void Session::Edit(const Arguments& arguments) {
    Item item = Target(arguments);
    const std::string key = Unprotected(arguments.key);
    const std::string name = item.GetHandle().ToString() + (key.empty() ? "" : " " + key);
    const Fragment fragment = Awaited([&] { return Fragment(item, key); });
    const std::string before = Awaited([&] { return item.GetRaw(key); });
    EditedFile file(before, fragment.Extension());
    const std::string after = file.Edited(DATA_LIMIT);
    if (after == before) {
        m_output.Done("unchanged " + name);
        return;
    }
    try {
        if (Awaited([&] { return item.GetRaw(key); }) != before) {
            throw Unconfirmed("edit " + name + ": another client changed it meanwhile; nothing was written");
        }
        Awaited([&] { fragment.Replace(item, after); });
    } catch (const std::exception&) {
        m_messages.Tell("edit " + name + ": the edited text is kept in " + file.Keep());
        throw;
    }
    m_output.Done("edited " + name);
}

std::string Session::DataOf(const Arguments& arguments) const {
    if (!arguments.data) {
        if (m_data == nullptr) {
            throw UsageError("raw set needs DATA or @FILE here");
        }
        return ReadInput(*m_data, arguments.empty);
    }
    std::string data = Unprotected(*arguments.data);
    if (data.rfind("@@", 0) == 0) {
        return data.substr(1);
    }
    return data.rfind('@', 0) == 0 ? ReadWholeFile(data.substr(1), DATA_LIMIT) : data;
}

std::optional<ItemDescription> Session::DescriptionOf(const Handle& handle,
                                                      const Arguments& arguments) const {
    if (!arguments.file.empty()) {
        return ReadItemFile(Unprotected(arguments.file));
    }
    const auto found = std::find_if(m_held.begin(), m_held.end(),
                                    [&](const ItemDescription& held) { return held.handle == handle; });
    return found == m_held.end() ? std::nullopt : std::make_optional(*found);
}

// The default as the service reads it, without touching it: an item of its own, which is never saved, loads
// it as a file, and reads it again as restoring does. Nothing when it cannot be loaded.
std::optional<std::string> Session::ReadDefault(ItemDescription description) {
    description.handle = Handle("appcfg", "default", static_cast<uint32_t>(getpid()));
    description.path = std::exchange(description.defaultPath, "");
    description.backupPath.clear();
    description.saveStrategy = SystemServer::ConfigSaveStrategy::NONE;
    description.backupStrategy = SystemServer::ConfigBackupStrategy::NONE;
    try {
        return Awaited([&] {
            Item item = m_connection.Create(description);
            item.Restore();
            return std::make_optional(item.GetRaw());
        });
    } catch (const RequestRefused&) {
        return std::nullopt;
    }
}

// The service accepts every restore of an item that can be written, and keeps the values when it cannot load
// the default. So the values are compared, with those of the default where it is known which that is.
void Session::Restore(const Arguments& arguments) {
    Item item = Target(arguments);
    const std::optional<ItemDescription> description = DescriptionOf(item.GetHandle(), arguments);
    const std::string before = Awaited([&] { return item.GetRaw(); });
    const std::string after = Awaited([&] {
        item.Restore();
        return item.GetRaw();
    });
    std::optional<std::string> wanted;
    if (description && !description->defaultPath.empty()) {
        wanted = ReadDefault(*description);
    }
    if (!description && after == before) {
        m_messages.Tell(
            "restore " + item.GetHandle().ToString() +
            ": the item's values are what they were; without its item file nobody can tell whether "
            "they are those of the default");
        return;
    }
    if (wanted ? after != *wanted : after == before) {
        throw Unconfirmed("restore " + item.GetHandle().ToString() +
                          (wanted ? ": the item's values are not those of the default file"
                                  : ": the item's values are what they were; if they are not those of the "
                                    "default file, that could not be loaded"));
    }
    m_output.Done("restored " + item.GetHandle().ToString());
}

void Session::Rekey(const Arguments& arguments) {
    if (arguments.plain == !arguments.keyFile.empty()) {
        throw UsageError("rekey needs either --plain or --key-file FILE");
    }
    Item item = Target(arguments);
    Awaited([&] {
        if (arguments.plain) {
            item.ChangeToPlain();
        } else {
            item.ChangeKey(ReadKeyFile(arguments.keyFile));
        }
    });
    m_output.Done((arguments.plain ? "stored plain " : "encrypted ") + item.GetHandle().ToString());
}

void Session::Delete(const Arguments& arguments) {
    Item item = Target(arguments);
    Awaited([&] { item.Delete(); });
    Forget(item.GetHandle());
    m_output.Done("deleted " + item.GetHandle().ToString());
}

void Session::Forget(const Handle& handle) {
    const auto isHandle = [&](const ItemDescription& held) { return held.handle == handle; };
    m_held.erase(std::remove_if(m_held.begin(), m_held.end(), isHandle), m_held.end());
    if (m_current && *m_current == handle) {
        m_current.reset();
    }
}

void Session::Create(const Arguments& arguments) {
    const ItemDescription description = ReadItemFile(Unprotected(arguments.file));
    try {
        Awaited([&] { m_connection.Create(description).Release(); });
    } catch (const RequestRefused& refused) {
        std::vector<std::string> files;
        for (const FileFinding& file : CheckItem(m_connection, description).files) {
            files.push_back(FindingLine(file));
        }
        throw Unconfirmed(refused.what(), files);
    }
    Forget(description.handle);
    m_held.push_back(description);
    m_current = description.handle;
    m_output.Done("created " + description.handle.ToString());
}

void Session::CheckFiles(const Arguments& arguments) {
    const ItemDescription description = ReadItemFile(Unprotected(arguments.file));
    const Check check = Awaited([&] { return CheckItem(m_connection, description); });
    m_output.Found(check);
    if (!check.wouldLoad) {
        throw Unconfirmed("create " + description.handle.ToString() + " would be refused");
    }
}

// The members that were not given; an empty line leaves one out.
void Session::AskFor(std::vector<std::string>& members) {
    for (size_t i = 0; i < members.size(); ++i) {
        const ItemMember& member = ItemMembers()[i];
        if (members[i].empty()) {
            m_messages.Print(std::string(member.name) + " (" + member.meaning +
                             (member.type[0] == '{' ? std::string(": ") + member.type : "") +
                             (member.required ? "): " : "; may be empty): "));
            std::getline(*m_data, members[i]);
        }
    }
}

void Session::Init(const Arguments& arguments) {
    std::vector<std::string> members;
    bool isWhole = true;
    for (size_t i = 0; i < arguments.members.size(); ++i) {
        members.push_back(Unprotected(arguments.members[i]));
        isWhole = isWhole && (!ItemMembers()[i].required || !members[i].empty());
    }
    if (!isWhole && m_asks) {
        AskFor(members);
    }
    std::string path = Unprotected(arguments.file);
    if (path.empty()) {
        path = members[0].empty() ? "item.json" : Handle::Parse(members[0]).Name() + ".json";
    }
    WriteItemFile(path, members, arguments.force);
    m_output.Text(path);
}

void Session::StoredFile(const Arguments& arguments) {
    const std::string path = Unprotected(arguments.file);
    const EncryptionKey key = ReadKeyFile(Unprotected(arguments.keyFile));
    const std::string bytes = ReadWholeFile(path, DATA_LIMIT);
    if (arguments.verb == "show") {
        m_output.Text(Decrypted(bytes, key, path));
        return;
    }
    ReplaceFile(path, arguments.verb == "encrypt" ? Encrypted(bytes, key) : Decrypted(bytes, key, path));
    m_output.Done(arguments.verb + "ed " + path);
}

// The service tells of no change, so that it is asked again and again.
void Session::Watch(const Arguments& arguments) {
    std::vector<std::string> keys;
    std::transform(arguments.keys.begin(), arguments.keys.end(), std::back_inserter(keys), Unprotected);
    const Item item = Target(arguments);
    std::vector<std::string> before;
    for (unsigned changes = 0; arguments.changes == 0 || changes <= arguments.changes;) {
        std::vector<std::string> values = Awaited([&] { return item.GetMany(keys); });
        if (values != before) {
            m_output.Values(keys, values);
            before.swap(values);
            ++changes;
        } else {
            std::this_thread::sleep_for(std::chrono::duration<double>(arguments.interval));
        }
    }
}

// Asked is what no client can have: the answer 404 is as good as any.
void Session::Status(const Arguments&) {
    const auto start = std::chrono::steady_clock::now();
    IsGone(Handle("appcfg", "status", static_cast<uint32_t>(getpid())));
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
    const char* const root = std::getenv("KESTREL_ROOT");
    m_output.Answer(root == nullptr ? "/mnt/kestrel" : root, std::ceil(took.count() * 10) / 10);
}

// Any client may have deleted it, or created it anew and ended it.
bool Session::IsGone(const Handle& handle) const {
    try {
        Awaited([&] { return m_connection.Open(handle).GetRaw(); });
    } catch (const RequestRefused& refused) {
        return refused.Status() == SystemServer::APP_CFG_STATUS_NOT_FOUND;
    }
    return false;
}

void Session::Items(const Arguments&) {
    std::vector<ItemLine> lines;
    for (const ItemDescription& held : m_held) {
        lines.push_back({held.handle.ToString(), StorageName(held.storage), held.path, IsGone(held.handle)});
    }
    m_output.Items(lines);
}

void Session::Use(const Arguments& arguments) {
    m_current = Handle::Parse(Unprotected(arguments.handle.value()));
    m_output.Done("using " + m_current->ToString());
}

void Session::Echo(const Arguments& arguments) {
    m_output.Text(Unprotected(arguments.text));
}

void Session::Help(const Arguments&) {
    m_output.Help();
}

void Session::Quit(const Arguments&) {
    m_quitting = true;
}

} // namespace appcfg::cli
