#include "acm_json_configuration.h"

#include <Poco/Exception.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/JSONException.h>
#include <Poco/JSON/Parser.h>
#include <Poco/UTF8Encoding.h>

#include <algorithm>
#include <sstream>
#include <utility>
#include <vector>

#include "acm_file.h"
#include "app_cfg_limits.h"
#include "app_cfg_log.h"

namespace SystemServer {

namespace {

constexpr char LOG_FILE[] = "system_server/app_cfg_mgmt_service/src/acm_json_configuration";
constexpr unsigned INDENTATION = 2;

bool IsBlank(int byte) {
    return byte == ' ' || byte == '\t' || byte == '\r' || byte == '\n';
}

// One "[n]" of a key: the text before it names the array.
struct IndexStep {
    std::string arrayKey;
    uint64_t index;
};

// The indexes of a key, read as the base reads them: digits in brackets, anything else is part of a name.
std::vector<IndexStep> IndexSteps(const std::string& key) {
    std::vector<IndexStep> steps;
    for (size_t open = key.find('['); open != std::string::npos; open = key.find('[', open + 1)) {
        const size_t end = key.find_first_not_of("0123456789", open + 1);
        if (end == std::string::npos || end == open + 1 || key[end] != ']') {
            continue;
        }
        uint64_t index = 0;
        for (size_t at = open + 1; at < end; ++at) {
            // Held below any overflow; far beyond every bound already.
            index = std::min<uint64_t>(index * 10 + static_cast<uint64_t>(key[at] - '0'), UINT32_MAX);
        }
        steps.push_back({key.substr(0, open), index});
    }
    return steps;
}

} // namespace

AcmJsonConfiguration::AcmJsonConfiguration(const std::string& path) {
    load(path);
}

AcmJsonConfiguration::~AcmJsonConfiguration() = default;

void AcmJsonConfiguration::load(const std::string& path) {
    std::istringstream stream(ReadRegularFile(path));
    load(stream);
}

void AcmJsonConfiguration::load(std::istream& stream) {
    while (IsBlank(stream.peek())) {
        stream.get();
    }
    // Other roots are the base's to refuse; an array it would accept and drop.
    if (stream.peek() == '[') {
        throw Poco::JSON::JSONException("the root is no object");
    }
    JSONConfiguration::load(stream);
}

int AcmJsonConfiguration::GetRawString(const std::string& key, std::string& out) {
    try {
        if (!key.empty()) {
            return getRaw(key, out) ? 0 : -1;
        }
        std::ostringstream stream;
        save(stream, INDENTATION);
        out = stream.str();
        return 0;
    } catch (const Poco::Exception&) {
        return -1;
    }
}

int AcmJsonConfiguration::SetRawString(const std::string& key, const std::string& raw) {
    try {
        if (key.empty()) {
            std::istringstream stream(raw);
            load(stream);
            return 0;
        }
        if (!IsStorable(key) || !IsStorable(raw)) {
            ACM_LOG(ACM_ERROR, "value of key[%s] is not valid UTF-8.", key.c_str());
            return -1;
        }
        if (!IsPaddingBounded(key)) {
            ACM_LOG(ACM_ERROR, "key[%s] is too far beyond its array.", key.c_str());
            return -1;
        }
        setRaw(key, raw);
        return 0;
    } catch (const Poco::Exception&) {
        return -1;
    }
}

void AcmJsonConfiguration::Save(std::ostream& stream) {
    save(stream, INDENTATION);
}

bool AcmJsonConfiguration::IsStorable(const std::string& text) {
    const Poco::UTF8Encoding encoding;
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    size_t at = 0;
    while (at < text.size()) {
        const int length = encoding.sequenceLength(bytes + at, 1);
        if (text.size() - at < static_cast<size_t>(length) ||
            !Poco::UTF8Encoding::isLegal(bytes + at, length)) {
            return false;
        }
        at += static_cast<size_t>(length);
    }
    return true;
}

bool AcmJsonConfiguration::IsPaddingBounded(const std::string& key) const {
    const std::vector<IndexStep> steps = IndexSteps(key);
    uint64_t padding = 0;
    for (const IndexStep& step : steps) {
        padding += step.index;
    }
    if (padding <= MAX_ARRAY_PADDING) {
        return true;
    }
    padding = 0;
    for (const IndexStep& step : steps) {
        padding += step.index - std::min(step.index, ArraySize(step.arrayKey));
    }
    return padding <= MAX_ARRAY_PADDING;
}

// The base keeps its tree to itself, so the array is read back from its text.
uint64_t AcmJsonConfiguration::ArraySize(const std::string& key) const {
    std::string text;
    if (!getRaw(key, text) || text.empty() || text.front() != '[') {
        return 0;
    }
    Poco::JSON::Parser parser;
    return parser.parse(text).extract<Poco::JSON::Array::Ptr>()->size();
}

} // namespace SystemServer
