#include "shell.h"

#include "split_words.h"

namespace appcfg::cli {
namespace {

ExitStatus Combined(ExitStatus before, ExitStatus now) {
    return before == EXIT_REFUSED || now == EXIT_DONE ? before : now;
}

} // namespace

Shell::Shell(Connection connection, const Streams& streams, bool json) :
    m_out(streams.out), m_err(streams.err),
    m_session(std::move(connection), Output(m_out, streams.outTerminal, true), nullptr), m_json(json) {}

ExitStatus Shell::Run(const std::vector<std::string>& itemFiles, LineSource& lines) {
    for (const std::string& file : itemFiles) {
        const ExitStatus status = RunWords({"create", file});
        if (status != EXIT_DONE) {
            return status;
        }
    }
    m_session.Connect();
    ExitStatus result = EXIT_DONE;
    std::string line;
    while (!m_session.Quitting() && m_session.OutputGood() && lines.Next(line)) {
        const ExitStatus status = RunLine(line);
        if (status == EXIT_UNREACHABLE) {
            return status;
        }
        result = Combined(result, status);
    }
    return result;
}

ExitStatus Shell::RunLine(const std::string& line) {
    std::vector<std::string> words;
    const ExitStatus status = Guarded(m_err, [&] { words = SplitWords(line); });
    return status != EXIT_DONE || words.empty() ? status : RunWords(words);
}

ExitStatus Shell::RunWords(const std::vector<std::string>& words) {
    return Guarded(m_err, [&] {
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
