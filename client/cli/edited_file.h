// A text in an editor.
#ifndef APPCFG_CLI_EDITED_FILE_H
#define APPCFG_CLI_EDITED_FILE_H

#include <string>

namespace appcfg::cli {

// A file below TMPDIR that nobody else can read. Owned by one command; removed with it, unless kept.
class EditedFile {
public:
    EditedFile(const std::string& text, const std::string& extension);
    ~EditedFile();
    EditedFile(const EditedFile&) = delete;
    EditedFile& operator=(const EditedFile&) = delete;

    // Runs VISUAL, EDITOR or vi on it and yields what it holds then, without a line end at the end that the
    // text did not have. UsageError when the editor fails.
    std::string Edited(size_t limit) const;

    // Leaves the file to the person who edited it.
    const std::string& Keep();

private:
    std::string m_path;
    bool m_addsLineEnd;
    bool m_kept = false;
};

} // namespace appcfg::cli

#endif
