// What the commands do.
#ifndef APPCFG_CLI_SESSION_H
#define APPCFG_CLI_SESSION_H

#include <istream>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "appcfg/connection.h"
#include "command_table.h"
#include "output.h"
#include "waiting.h"

namespace appcfg::cli {

// One connection and the commands on it. Owned by the shell, or by one command of the command line; the
// command table calls its operations. They throw the library's errors and UsageError.
class Session {
public:
    // Connects with the first request, or by Connect. `data`, if not null, is where a raw set reads data that
    // it was not given; `asks`: a person types there.
    Session(Connection connection, Output output, Messages messages, std::istream* data, bool asks);

    void Connect() {
        Awaited([this] { m_connection.Connect(); });
    }

    // Runs a command with its arguments; JSON when either asks for it.
    void Run(const Command& command, const Arguments& arguments, bool json);

    bool Quitting() const { return m_quitting; }
    bool OutputGood() const { return m_output.Good(); }

    // The item that the arguments name, or the current one.
    Item Target(const Arguments& arguments) const;

    void Get(const Arguments& arguments);
    void Set(const Arguments& arguments);
    void Raw(const Arguments& arguments);
    void Dump(const Arguments& arguments);
    void Load(const Arguments& arguments);
    void Edit(const Arguments& arguments);
    void Restore(const Arguments& arguments);
    void Rekey(const Arguments& arguments);
    void Delete(const Arguments& arguments);
    void Create(const Arguments& arguments);
    void CheckFiles(const Arguments& arguments);
    void Status(const Arguments& arguments);
    void Init(const Arguments& arguments);
    void StoredFile(const Arguments& arguments);
    void Watch(const Arguments& arguments);
    void Items(const Arguments& arguments);
    void Use(const Arguments& arguments);
    void Echo(const Arguments& arguments);
    void Help(const Arguments& arguments);
    void Quit(const Arguments& arguments);

private:
    // Makes requests; a person is told when they take long.
    template <class Call>
    std::invoke_result_t<Call> Awaited(Call call) const {
        const Waiting waiting(m_messages.Terminal());
        return call();
    }
    std::string DataOf(const Arguments& arguments) const;
    void AskFor(std::vector<std::string>& members);
    bool IsGone(const Handle& handle) const;
    std::optional<ItemDescription> DescriptionOf(const Handle& handle, const Arguments& arguments) const;
    std::optional<std::string> ReadDefault(ItemDescription description);
    void Forget(const Handle& handle);

    Output m_output;
    Messages m_messages;
    std::istream* m_data;
    bool m_asks;
    Connection m_connection;
    std::vector<ItemDescription> m_held; // created here; the service ends them when the connection closes
    std::optional<Handle> m_current;
    bool m_quitting = false;
};

} // namespace appcfg::cli

#endif
