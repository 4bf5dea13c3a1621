#include "session.h"

#include <algorithm>
#include <iterator>

#include "exit_status.h"
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

} // namespace

Session::Session(std::ostream& out, std::istream* data, bool confirms) :
    m_output(out, confirms), m_data(data) {}

void Session::Run(const Command& command, const Arguments& arguments, bool json) {
    m_output.UseJson(json || arguments.json);
    (this->*command.run)(arguments);
}

Item Session::Target(const Arguments& arguments) const {
    if (!arguments.handle.empty()) {
        return m_connection.Open(Handle::Parse(Unprotected(arguments.handle)));
    }
    if (!m_current) {
        throw UsageError("no current item; create one from a FILE, or use a HANDLE");
    }
    return m_connection.Open(*m_current);
}

void Session::Get(const Arguments& arguments) {
    std::vector<std::string> keys;
    std::transform(arguments.keys.begin(), arguments.keys.end(), std::back_inserter(keys), Unprotected);
    m_output.Values(keys, Target(arguments).GetMany(keys));
}

void Session::Set(const Arguments& arguments) {
    std::vector<std::pair<std::string, std::string>> values;
    for (const std::string& word : arguments.keys) {
        values.push_back(SplitPair(Unprotected(word)));
    }
    Target(arguments).SetMany(values);
    m_output.Done("set " + std::to_string(values.size()) + (values.size() == 1 ? " value" : " values"));
}

void Session::Raw(const Arguments& arguments) {
    Arguments given = arguments;
    // Both `raw HANDLE get` and `raw get HANDLE` are understood: a handle always holds a slash.
    if (given.handle == "get" || given.handle == "set") {
        std::swap(given.handle, given.verb);
    }
    const std::string key = Unprotected(given.key);
    if (given.verb == "get" && !given.data) {
        m_output.Text(Target(given).GetRaw(key));
    } else if (given.verb == "set") {
        Item item = Target(given);
        item.SetRaw(key, DataOf(given));
        m_output.Done("set '" + key + "'");
    } else {
        throw UsageError("write raw get [KEY], or raw set KEY [DATA|@FILE]");
    }
}

std::string Session::DataOf(const Arguments& arguments) const {
    if (!arguments.data) {
        if (m_data == nullptr) {
            throw UsageError("raw set needs DATA or @FILE here");
        }
        return std::string(std::istreambuf_iterator<char>(*m_data), std::istreambuf_iterator<char>());
    }
    std::string data = Unprotected(*arguments.data);
    if (data.rfind("@@", 0) == 0) {
        return data.substr(1);
    }
    return data.rfind('@', 0) == 0 ? ReadWholeFile(data.substr(1), DATA_LIMIT) : data;
}

void Session::Restore(const Arguments& arguments) {
    Item item = Target(arguments);
    item.Restore();
    m_output.Done("restored " + item.GetHandle().ToString());
}

void Session::Rekey(const Arguments& arguments) {
    if (arguments.plain == !arguments.keyFile.empty()) {
        throw UsageError("rekey needs either --plain or --key-file FILE");
    }
    Item item = Target(arguments);
    if (arguments.plain) {
        item.ChangeToPlain();
    } else {
        item.ChangeKey(ReadKeyFile(arguments.keyFile));
    }
    m_output.Done((arguments.plain ? "stored plain " : "encrypted ") + item.GetHandle().ToString());
}

void Session::Delete(const Arguments& arguments) {
    Item item = Target(arguments);
    item.Delete();
    Forget(item.GetHandle());
    m_output.Done("deleted " + item.GetHandle().ToString());
}

void Session::Forget(const Handle& handle) {
    const auto isGone = [&](const Held& held) { return held.handle == handle; };
    m_held.erase(std::remove_if(m_held.begin(), m_held.end(), isGone), m_held.end());
    if (m_current && *m_current == handle) {
        m_current.reset();
    }
}

void Session::Create(const Arguments& arguments) {
    const ItemDescription description = ReadItemFile(Unprotected(arguments.file));
    m_connection.Create(description).Release();
    Forget(description.handle);
    const std::string handle = description.handle.ToString();
    m_held.push_back({description.handle, {handle, StorageName(description.storage), description.path}});
    m_current = description.handle;
    m_output.Done("created " + handle);
}

void Session::Items(const Arguments&) {
    std::vector<ItemLine> lines;
    for (const Held& held : m_held) {
        lines.push_back(held.line);
    }
    m_output.Items(lines);
}

void Session::Use(const Arguments& arguments) {
    m_current = Handle::Parse(Unprotected(arguments.handle));
    m_output.Done("using " + m_current->ToString());
}

void Session::Echo(const Arguments& arguments) {
    m_output.Text(Unprotected(arguments.text));
}

void Session::Help(const Arguments&) {
    for (const Command& command : Commands()) {
        m_output.Stream() << "  " << command.name << std::string(10 - std::string(command.name).size(), ' ')
                          << command.summary << '\n';
    }
    m_output.Stream() << "COMMAND --help says more. Words are split at blanks; quote with '...' or \"...\".\n"
                      << std::flush;
}

void Session::Quit(const Arguments&) {
    m_quitting = true;
}

} // namespace appcfg::cli
