#include "fuzz_support.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "pl/pl_log_control.h"

namespace Fuzz {

namespace {

// Repetitions make small inputs large. While new inputs are looked for, many short ones find more.
#ifdef FUZZ_LOOKS_FOR_INPUTS
constexpr size_t MAX_REPEATED = 320U << 10; // beyond the longest tag
#else
constexpr size_t MAX_REPEATED = 4U << 20;
#endif

constexpr char SEPARATOR[] = "\n--\n";

// Lines are formatted, so that their arguments are looked at, and then dropped.
const bool IS_QUIET = [] {
    pl_log_set_level(0);
    pl_log_set_sink([](void*, int, int, const char*, int, const char*) {}, nullptr);
    return true;
}();

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

// In memory where there is such a place: fuzzing writes some thousand files a second. Made before the first
// input, and gone after all that works on files.
const Support::RootDirectory DIRECTORY(std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp");

void Check(bool holds, const std::string& claim) {
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", claim.c_str());
        std::abort();
    }
}

std::vector<std::string> Parts(const std::string& input, size_t count) {
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

} // namespace Fuzz
