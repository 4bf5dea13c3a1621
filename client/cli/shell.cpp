#include "shell.h"

#include "completion.h"
#include "split_words.h"

namespace appcfg::cli {
namespace {

ExitStatus Combined(ExitStatus before, ExitStatus now) {
    return before == EXIT_REFUSED || now == EXIT_DONE ? before : now;
}

} // namespace

Shell::Shell(Connection connection, const Streams& streams, bool json) :
    m_out(streams.out), m_messages(streams.err, streams.errTerminal, streams.colours),
    m_session(std::move(connection), Output(m_out, streams.outTerminal, streams.colours, true), m_messages,
              nullptr, false),
    m_json(json) {}

ExitStatus Shell::Run(const std::vector<std::string>& itemFiles, LineSource& lines) {
    for (const std::string& file : itemFiles) {
        const ExitStatus status = RunWords({"create", file});
        if (status != EXIT_DONE) {
            return status;
        }
    }
    m_session.Connect();
    lines.Use([this](const std::string& line) { return Complete(line); });
    ExitStatus result = EXIT_DONE;
    ExitStatus status = EXIT_DONE;
    while (!m_session.Quitting() && m_session.OutputGood() && RunNext(lines, status)) {
        if (status == EXIT_UNREACHABLE) {
            return status;
        }
        result = Combined(result, status);
    }
    return result;
}

std::vector<std::string> Shell::Complete(const std::string& line) {
    CLI::App app;
    Arguments arguments;
    app.add_flag("--json", arguments.json);
    for (const Command& command : Commands()) {
        command.declare(*app.add_subcommand(command.name), arguments);
    }
    std::vector<std::string> words = SplitWords(line);
    if (words.empty() || line.back() == ' ') {
        words.emplace_back();
    }
    return Completions(app, words, [this](const auto&) { return m_session.Target({}); });
}

bool Shell::RunNext(LineSource& lines, ExitStatus& status) {
    bool found = true;
    std::vector<std::string> words;
    status = Guarded(m_messages, [&] {
        std::string line;
        found = lines.Next(line);
        words = SplitWords(line);
    });
    if (!words.empty()) {
        status = RunWords(words);
    }
    return found;
}

ExitStatus Shell::RunWords(const std::vector<std::string>& words) {
    return Guarded(m_messages, [&] {
        const Command* command = FindCommand(words.front());
        if (command == nullptr) {
            throw UsageError("no command '" + words.front() + "'; help lists them");
        }
        Arguments arguments;
        try {
            Parse(*command, words, arguments);
        } catch (const CLI::CallForHelp&) {
            return;
        }
        m_session.Run(*command, arguments, m_json);
    });
}

void Shell::Parse(const Command& command, const std::vector<std::string>& words, Arguments& arguments) {
    CLI::App app(command.summary, command.name);
    command.declare(app, arguments);
    app.add_flag("--json", arguments.json, "print as JSON");
    try {
        ParseWords(app, std::vector<std::string>(words.begin() + 1, words.end()));
    } catch (const CLI::CallForHelp&) {
        m_out << app.help() << std::flush;
        throw;
    } catch (const CLI::ParseError& error) {
        throw UsageError(std::string(command.name) + ": " + error.what());
    }
}

} // namespace appcfg::cli
