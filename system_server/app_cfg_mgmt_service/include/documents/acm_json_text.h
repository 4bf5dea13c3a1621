// Facts about a JSON text that the document library does not report when it parses it.
#ifndef ACM_JSON_TEXT_H
#define ACM_JSON_TEXT_H

#include <cstdint>
#include <string>

namespace SystemServer {

struct AcmJsonSurvey {
    uint64_t writtenBytes = 0;        // an upper bound, each element on a line of its own, indented
    uint64_t depth = 0;               // objects and arrays inside each other
    const char* unkeepable = nullptr; // names what the library reads wrongly, if the text has such a thing
};

// One pass over a text that need not be well-formed.
AcmJsonSurvey SurveyJson(const std::string& text);

// What one line of the written text takes at most beside its names and values.
uint64_t JsonLineBytes(uint64_t depth);

} // namespace SystemServer

#endif
