#include "app.h"

#include <cstdlib>
#include <sstream>

#include "appcfg/error.h"
#include "command_table.h"
#include "completion.h"
#include "line_source.h"
#include "manual.h"
#include "session.h"
#include "shell.h"

namespace appcfg::cli {
namespace {

// The parser, what it fills in, and which command was chosen. Lives for one run.
struct CommandLine {
    CLI::App app{DESCRIPTION, "appcfg"};
    std::string root;
    double timeout = std::chrono::duration<double>(Connection::DEFAULT_TIMEOUT).count();
    Arguments arguments;
    std::vector<std::string> itemFiles;
    CLI::App* shell = nullptr;
    const Command* command = nullptr;

    CommandLine() {
        app.footer(Footer());
        app.set_version_flag("--version", "appcfg " APPCFG_VERSION);
        app.add_flag_callback("--man", [this] { throw CLI::CallForVersion(ManualPage(app), 0); })->group("");
        app.require_subcommand(1);
        app.fallthrough();
        app.add_option("--root", root, "the framework's root directory (default: KESTREL_ROOT)")
            ->type_name("DIR");
        app.add_option("--timeout", timeout, "how long a connect, or a request with its reply, may take")
            ->type_name("SECONDS")
            ->capture_default_str()
            ->check(CLI::Range(0.001, 86400.0));
        app.add_flag("--json", arguments.json, "print values as JSON");
        shell = app.add_subcommand("shell", "hold items on one connection: a prompt, or commands from "
                                            "standard input");
        shell->add_option("ITEM.json", itemFiles, "items to create first");
        for (const Command& candidate : Commands()) {
            if (candidate.scope != Scope::SHELL_ONLY) {
                AddCommand(candidate);
            }
        }
    }

    // Not yet connected, so that wrong usage is told whether there is a service or not.
    Connection MakeConnection() const {
        return Connection::Deferred(
            std::chrono::milliseconds(static_cast<std::chrono::milliseconds::rep>(timeout * 1000)));
    }

private:
    void AddCommand(const Command& candidate) {
        CLI::App* sub = app.add_subcommand(candidate.name, candidate.summary);
        if (candidate.scope == Scope::ANYWHERE) {
            sub->add_option("HANDLE", arguments.handle, "the item: owner/name or owner/name/index")
                ->required();
        }
        candidate.declare(*sub, arguments);
        sub->final_callback([this, &candidate] { command = &candidate; });
    }
};

Messages MessagesOf(const Streams& streams) {
    return Messages(streams.err, streams.errTerminal, streams.colours);
}

void SetRoot(const std::string& root) {
    if (!root.empty() && setenv("KESTREL_ROOT", root.c_str(), 1) != 0) {
        throw std::bad_alloc();
    }
}

ExitStatus RunShell(const CommandLine& line, const Streams& streams) {
    const auto lines = streams.terminal ? MakePromptSource(streams.colours) : MakeStreamSource(streams.in);
    ExitStatus result = EXIT_DONE;
    const ExitStatus status = Guarded(MessagesOf(streams), [&] {
        Shell shell(line.MakeConnection(), streams, line.arguments.json);
        std::vector<std::string> files;
        for (const std::string& file : line.itemFiles) {
            files.push_back(Unprotected(file));
        }
        result = shell.Run(files, *lines);
    });
    return status != EXIT_DONE ? status : result;
}

ExitStatus RunCommand(const CommandLine& line, const Streams& streams) {
    return Guarded(MessagesOf(streams), [&] {
        Session session(line.MakeConnection(),
                        Output(streams.out, streams.outTerminal, streams.colours, false), MessagesOf(streams),
                        &streams.in, streams.terminal);
        session.Run(*line.command, line.arguments, false);
    });
}

// For the shells' completion, which shows no message and does not wait.
ExitStatus RunCompletion(const CommandLine& line, const std::vector<std::string>& words, std::ostream& out) {
    constexpr std::chrono::milliseconds PATIENCE(300);
    const auto root = std::find(words.begin(), words.end(), "--root");
    if (root != words.end() && root + 1 != words.end()) {
        SetRoot(root[1]);
    }
    Connection connection = Connection::Deferred(PATIENCE);
    try {
        for (const std::string& word : Completions(line.app, words, [&](const auto& handle) {
                 return connection.Open(Handle::Parse(handle.value_or("")));
             })) {
            out << word << '\n';
        }
    } catch (const std::exception&) {
        return EXIT_REFUSED;
    }
    return EXIT_DONE;
}

} // namespace

ExitStatus Guarded(Messages messages, const std::function<void()>& action) {
    const auto report = [&](const std::exception& error, ExitStatus status) {
        messages.Tell(error.what());
        return status;
    };
    try {
        action();
        return EXIT_DONE;
    } catch (const RequestRefused& error) {
        return report(error, EXIT_REFUSED);
    } catch (const Unconfirmed& error) {
        report(error, EXIT_REFUSED);
        for (const std::string& reason : error.Reasons()) {
            messages.Tell("  " + reason);
        }
        return EXIT_REFUSED;
    } catch (const ConnectionError& error) {
        return report(error, EXIT_UNREACHABLE);
    } catch (const Error& error) {
        return report(error, EXIT_USAGE);
    } catch (const UsageError& error) {
        return report(error, EXIT_USAGE);
    }
}

ExitStatus RunApp(const std::vector<std::string>& words, const Streams& streams) {
    CommandLine line;
    if (words.size() > 1 && words.front() == "--complete") {
        return RunCompletion(line, {words.begin() + 1, words.end()}, streams.out);
    }
    try {
        ParseWords(line.app, words);
    } catch (const CLI::ParseError& error) {
        const std::vector<std::string> unknown = line.app.remaining();
        if (error.get_name() == "RequiredError" && !unknown.empty()) {
            MessagesOf(streams).Tell("no command '" + unknown.front() + "'; --help lists them");
            return EXIT_USAGE;
        }
        std::ostringstream problem;
        const int status = line.app.exit(error, streams.out, problem);
        MessagesOf(streams).Print(problem.str());
        return status == 0 ? EXIT_DONE : EXIT_USAGE;
    }
    SetRoot(line.root);
    const ExitStatus status = line.shell->parsed() ? RunShell(line, streams) : RunCommand(line, streams);
    streams.out.flush();
    if (status == EXIT_DONE && !streams.out.good()) {
        MessagesOf(streams).Tell("cannot write standard output");
        return EXIT_REFUSED;
    }
    return status;
}

} // namespace appcfg::cli
