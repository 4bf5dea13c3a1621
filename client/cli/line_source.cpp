#include "line_source.h"

#include <iostream>

namespace appcfg::cli {
namespace {

class StreamSource : public LineSource {
public:
    explicit StreamSource(std::istream& stream) : m_stream(stream) {}

    bool Next(std::string& line) override { return static_cast<bool>(std::getline(m_stream, line)); }

private:
    std::istream& m_stream;
};

} // namespace

std::unique_ptr<LineSource> MakeStreamSource(std::istream& stream) {
    return std::make_unique<StreamSource>(stream);
}

#ifdef APPCFG_PLAIN_PROMPT
// The terminal's own line editing, below a prompt.
std::unique_ptr<LineSource> MakePromptSource(bool) {
    class PlainPrompt : public StreamSource {
    public:
        PlainPrompt() : StreamSource(std::cin) {}
        bool Next(std::string& line) override {
            std::cout << "appcfg> " << std::flush;
            return StreamSource::Next(line);
        }
    };
    return std::make_unique<PlainPrompt>();
}
#endif

} // namespace appcfg::cli
