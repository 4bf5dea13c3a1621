// What the document library does not tell of a JSON text that it has parsed.
#ifndef ACM_JSON_TEXT_H
#define ACM_JSON_TEXT_H

#include <cstdint>
#include <string>

namespace SystemServer {

struct AcmJsonSurvey {
    uint64_t writtenBytes = 0;        // an upper bound, each element on a line of its own, indented
    uint64_t depth = 0;               // objects and arrays inside each other
    const char* unkeepable = nullptr; // what the library has read as something else, if anything
};

// One pass over a text that need not be well-formed.
AcmJsonSurvey SurveyJson(const std::string& text);

// What one line of the written text takes at most beside its names and values.
uint64_t JsonLineBytes(uint64_t depth);

} // namespace SystemServer

#endif
