#include "fuzz_support.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "pl/pl_log_control.h"

namespace Fuzz {

namespace {

// Repetitions make small inputs large. While new inputs are looked for, many short ones find more.
#ifdef FUZZ_SHORT_INPUTS
constexpr size_t MAX_REPEATED = 2U << 10;
#else
constexpr size_t MAX_REPEATED = 4U << 20;
#endif

constexpr char SEPARATOR[] = "\n--\n";

// In memory where there is such a place: fuzzing writes some thousand files a second.
class Directory {
public:
    Directory() {
        std::string path =
            std::filesystem::is_directory("/dev/shm") ? "/dev/shm/fuzz-XXXXXX" : "/tmp/fuzz-XXXXXX";
        Check(mkdtemp(path.data()) != nullptr, "there is a directory for the target's files");
        m_path = path;
        setenv("KESTREL_ROOT", m_path.c_str(), 1);
        // Lines are formatted, so that their arguments are looked at, and then dropped.
        pl_log_set_level(0);
        pl_log_set_sink([](void*, int, int, const char*, int, const char*) {}, nullptr);
    }
    ~Directory() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
};

// Made before the first input, and gone after all that works on files.
const Directory DIRECTORY;

void AppendNumbered(std::string& text, const std::string& piece, size_t number) {
    for (const char byte : piece) {
        byte == '#' ? text.append(std::to_string(number)) : text.append(1, byte);
    }
}

std::string Unrolled(const std::string& part) {
    std::string text;
    size_t at = 0;
    for (;;) {
        const size_t begin = part.find("%{", at);
        const size_t star = part.find('*', begin);
        const size_t end = part.find("}%", star);
        if (begin == std::string::npos || star == std::string::npos || end == std::string::npos) {
            return text.append(part, at, std::string::npos);
        }
        text.append(part, at, begin - at);
        const std::string piece = part.substr(star + 1, end - star - 1);
        const size_t times = std::strtoul(part.c_str() + begin + 2, nullptr, 10);
        for (size_t i = 0; i < times && !piece.empty() && text.size() < MAX_REPEATED; ++i) {
            AppendNumbered(text, piece, i);
        }
        at = end + 2;
    }
}

} // namespace

void Check(bool holds, const std::string& claim) {
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", claim.c_str());
        std::abort();
    }
}

std::vector<std::string> Parts(const uint8_t* data, size_t size, size_t count) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> parts;
    size_t at = 0;
    while (at <= input.size()) {
        const bool isLast = parts.size() + 1 == count;
        const size_t end = isLast ? input.size() : std::min(input.find(SEPARATOR, at), input.size());
        parts.push_back(Unrolled(input.substr(at, end - at)));
        at = end == input.size() ? end + 1 : end + sizeof SEPARATOR - 1;
    }
    parts.resize(count == 0 ? parts.size() : count);
    return parts;
}

std::string FieldText(const std::string& part) {
    return part.substr(0, part.find('\0'));
}

std::string PathOf(const std::string& name) {
    return DIRECTORY.Path() + "/" + name;
}

void WriteFile(const std::string& name, const std::string& text) {
    std::ofstream file(PathOf(name), std::ios::binary);
    file << text;
    Check(file.good(), "the target's file can be written");
}

void ClearFiles() {
    for (const auto& entry : std::filesystem::directory_iterator(DIRECTORY.Path())) {
        std::filesystem::remove_all(entry.path());
    }
}

} // namespace Fuzz
