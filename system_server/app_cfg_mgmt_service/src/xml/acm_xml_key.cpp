#include "acm_xml_key.h"

#include <Poco/NumberParser.h>

#include <algorithm>

namespace SystemServer {

namespace {

using Position = std::string::const_iterator;

template <typename Stop>
std::string TakeUntil(Position& position, const Position& end, Stop stop) {
    const Position start = position;
    position = std::find_if(position, end, stop);
    return {start, position};
}

std::string TakeUntil(Position& position, const Position& end, char stop) {
    return TakeUntil(position, end, [stop](char c) { return c == stop; });
}

void Skip(Position& position, const Position& end) {
    if (position != end) {
        ++position;
    }
}

std::string TakeValue(Position& position, const Position& end) {
    if (position == end || *position != '\'') {
        return TakeUntil(position, end, ']');
    }
    ++position;
    std::string value = TakeUntil(position, end, '\'');
    Skip(position, end);
    return value;
}

AcmXmlKeyStep ReadAttribute(Position& position, const Position& end) {
    AcmXmlKeyStep step;
    step.name = TakeUntil(position, end, [](char c) { return c == ']' || c == '='; });
    step.kind = AcmXmlKeyStep::ATTRIBUTE;
    if (position != end && *position == '=') {
        ++position;
        step.kind = AcmXmlKeyStep::ATTRIBUTE_VALUE;
        step.value = TakeValue(position, end);
    }
    Skip(position, end);
    return step;
}

AcmXmlKeyStep ReadIndex(Position& position, const Position& end) {
    AcmXmlKeyStep step;
    step.kind = AcmXmlKeyStep::SIBLING;
    const std::string text = TakeUntil(position, end, ']');
    Skip(position, end);
    step.index = Poco::NumberParser::parse(text);
    return step;
}

} // namespace

AcmXmlKeyStep ReadXmlKeyStep(Position& position, const Position& end) {
    if (*position != '[') {
        AcmXmlKeyStep step;
        position = std::find_if(position, end, [](char c) { return c != '.'; });
        step.name = TakeUntil(position, end, [](char c) { return c == '.' || c == '['; });
        return step;
    }
    ++position;
    if (position == end || *position != '@') {
        return ReadIndex(position, end);
    }
    ++position;
    return ReadAttribute(position, end);
}

} // namespace SystemServer
