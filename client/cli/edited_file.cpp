#include "edited_file.h"

#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <unistd.h>

#include "exit_status.h"
#include "item_file.h"

namespace appcfg::cli {
namespace {

std::string Setting(const char* name, const std::string& otherwise) {
    const char* const value = std::getenv(name);
    return value == nullptr || *value == '\0' ? otherwise : value;
}

// As one word for the shell.
std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return quoted + "'";
}

} // namespace

EditedFile::EditedFile(const std::string& text, const std::string& extension) :
    m_path(Setting("TMPDIR", "/tmp") + "/appcfg-XXXXXX" + extension),
    m_addsLineEnd(!text.empty() && text.back() != '\n') {
    const std::string content = text + (m_addsLineEnd ? "\n" : "");
    const int fd = mkstemps(m_path.data(), static_cast<int>(extension.size())); // of mode 0600
    const bool isWritten =
        fd >= 0 && write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size());
    const int reason = errno;
    if (fd >= 0) {
        close(fd);
    }
    if (!isWritten) {
        unlink(m_path.c_str());
        throw UsageError(m_path + ": " + std::generic_category().message(reason));
    }
}

EditedFile::~EditedFile() {
    if (!m_kept) {
        unlink(m_path.c_str());
    }
}

// The shell splits what the variable holds, such as an editor with options. Interrupts are the editor's
// meanwhile.
std::string EditedFile::Edited(size_t limit) const {
    const std::string editor = Setting("VISUAL", Setting("EDITOR", "vi"));
    if (std::system((editor + " " + Quoted(m_path)).c_str()) != 0) {
        throw UsageError("the editor '" + editor + "' failed; nothing was changed");
    }
    std::string text = ReadWholeFile(m_path, limit);
    if (m_addsLineEnd && !text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text;
}

const std::string& EditedFile::Keep() {
    m_kept = true;
    return m_path;
}

} // namespace appcfg::cli
