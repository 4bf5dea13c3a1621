#include "acm_json_configuration.h"

#include <Poco/Exception.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/JSONException.h>
#include <Poco/JSON/ParseHandler.h>
#include <Poco/JSON/Parser.h>
#include <Poco/StringTokenizer.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <utility>
#include <vector>

#include "acm_file.h"
#include "acm_json_text.h"
#include "acm_limit.h"
#include "acm_utf8.h"
#include "app_cfg_limits.h"
#include "app_cfg_log.h"

namespace SystemServer {

namespace {

// One step of a key between points, as the base's setter reads it: a name, and digits in brackets.
struct KeyStep {
    std::string name;
    std::vector<uint64_t> indexes;
    bool isPlain = false; // a name, then indexes alone: the base's lookup reads it in the same way
};

KeyStep ReadStep(const std::string& text) {
    KeyStep step{text, {}};
    size_t read = text.find('[');
    for (size_t open = text.find('['); open != std::string::npos; open = text.find('[', open + 1)) {
        const size_t end = text.find_first_not_of("0123456789", open + 1);
        if (end == std::string::npos || end == open + 1 || text[end] != ']') {
            continue;
        }
        if (step.indexes.empty()) {
            step.name = text.substr(0, open);
        }
        read = open == read ? end + 1 : read;
        uint64_t index = 0;
        for (size_t at = open + 1; at < end; ++at) {
            // Held below any overflow; far beyond every bound already.
            index = std::min<uint64_t>(index * 10 + static_cast<uint64_t>(text[at] - '0'), UINT32_MAX);
        }
        step.indexes.push_back(index);
    }
    step.isPlain = !step.name.empty() && (read == std::string::npos || read == text.size());
    return step;
}

template <typename Container>
Poco::SharedPtr<Container> As(const Poco::Dynamic::Var& value) {
    return value.type() == typeid(Poco::SharedPtr<Container>) ? value.extract<Poco::SharedPtr<Container>>()
                                                              : nullptr;
}

// What is well-formed but beyond what the library can hold is told from what is malformed.
Poco::Dynamic::Var Parse(const std::string& text, uint64_t depth) {
    // Made here: as the parser's default argument it leaks when there is no memory for its counter.
    const Poco::JSON::Handler::Ptr handler(new Poco::JSON::ParseHandler);
    try {
        return Poco::JSON::Parser(handler).parse(text);
    } catch (const Poco::SyntaxException&) {
        throw AcmLimitException("a number beyond what can be kept");
    } catch (const Poco::JSON::JSONException&) {
        if (depth > MAX_JSON_DEPTH) {
            throw AcmLimitException("objects and arrays nest too deep");
        }
        throw;
    }
}

} // namespace

AcmJsonConfiguration::AcmJsonConfiguration(const std::string& path) :
    AcmJsonConfiguration(new Poco::JSON::Object, path) {}

AcmJsonConfiguration::AcmJsonConfiguration(const Poco::JSON::Object::Ptr& root, const std::string& path) :
    JSONConfiguration(root), m_root(root) {
    load(path);
}

AcmJsonConfiguration::~AcmJsonConfiguration() = default;

void AcmJsonConfiguration::load(const std::string& path) {
    std::istringstream stream(ReadRegularFile(path));
    load(stream);
}

void AcmJsonConfiguration::load(std::istream& stream) {
    std::string text(std::istreambuf_iterator<char>(stream), {});
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) {
        text.erase(0, 3); // a byte order mark, which the library does not know
    }
    const AcmJsonSurvey survey = SurveyJson(text);
    auto root = As<Poco::JSON::Object>(Parse(text, survey.depth));
    if (root.isNull()) {
        throw Poco::JSON::JSONException("the root is no object");
    }
    if (survey.unkeepable != nullptr) {
        throw AcmLimitException(survey.unkeepable);
    }
    uint64_t bytes = survey.writtenBytes;
    if (bytes > MAX_DOCUMENT_BYTES) {
        bytes = MeasureText([&](std::ostream& out) { root->stringify(out, JSON_INDENTATION); });
    }
    if (bytes > MAX_DOCUMENT_BYTES) {
        throw AcmLimitException("document too large");
    }
    // A copy that finds no memory half-way would leave an empty document, and that would be saved.
    *m_root = std::move(*root);
    m_textBound.Reset(bytes);
}

int AcmJsonConfiguration::GetRawString(const std::string& key, std::string& out) {
    try {
        if (!key.empty()) {
            return getRaw(key, out) ? 0 : -1;
        }
        std::ostringstream stream;
        save(stream, JSON_INDENTATION);
        if (!stream) {
            throw Poco::OutOfMemoryException("the text of a JSON document could not be kept");
        }
        out = stream.str();
        return 0;
    } catch (const Poco::OutOfMemoryException&) {
        throw;
    } catch (const Poco::Exception&) {
        return -1;
    }
}

int AcmJsonConfiguration::SetRawString(const std::string& key, const std::string& raw) {
    try {
        if (!key.empty()) {
            return StoreRaw(key, raw);
        }
        std::istringstream stream(raw);
        load(stream);
        return 0;
    } catch (const Poco::Exception&) {
        return -1;
    }
}

int AcmJsonConfiguration::StoreRaw(const std::string& key, const std::string& raw) {
    if (!IsUtf8(key) || !IsUtf8(raw)) {
        ACM_LOG(ACM_ERROR, "value of key[%s] is not valid UTF-8.", key.c_str());
        return -1;
    }
    const SetterPath path = FollowSetter(key);
    if (path.furthest > MAX_ARRAY_PADDING || path.levels > MAX_JSON_KEY_LEVELS) {
        ACM_LOG(ACM_ERROR, "key[%s] is too deep or too far beyond its array.", key.c_str());
        return -1;
    }
    const uint64_t layout = (path.padding + 2 * path.levels) * (JsonLineBytes(path.levels) + sizeof "null");
    if (!ReserveText(EscapedBytes(key) + EscapedBytes(raw) + layout)) {
        ACM_LOG(ACM_ERROR, "value of key[%s] would make the document too large.", key.c_str());
        return -1;
    }
    setRaw(key, raw);
    return 0;
}

void AcmJsonConfiguration::Save(std::ostream& stream) {
    save(stream, JSON_INDENTATION);
}

bool AcmJsonConfiguration::Admits(const std::string& key, const std::string& value) {
    const SetterPath path = FollowSetter(key);
    return IsUtf8(value) && path.exists && (path.isPlain || hasProperty(key)) &&
           ReserveText(EscapedBytes(value) + JsonLineBytes(0));
}

bool AcmJsonConfiguration::ReserveText(uint64_t growth) {
    return m_textBound.Reserve(growth, [this](std::ostream& out) { save(out, JSON_INDENTATION); });
}

AcmJsonConfiguration::SetterPath AcmJsonConfiguration::FollowSetter(const std::string& key) const {
    SetterPath path;
    path.value = m_root;
    path.isPlain = !key.empty();
    for (const std::string& text : Poco::StringTokenizer(key, ".")) {
        const KeyStep step = ReadStep(text);
        path.object = As<Poco::JSON::Object>(path.value);
        path.array = nullptr;
        path.name = step.name;
        path.value = path.object.isNull() ? Poco::Dynamic::Var() : path.object->get(step.name);
        for (const uint64_t index : step.indexes) {
            path.array = As<Poco::JSON::Array>(path.value);
            path.index = static_cast<unsigned>(index);
            const uint64_t size = path.array.isNull() ? 0 : path.array->size();
            const uint64_t beyond = index - std::min(index, size);
            path.padding += beyond;
            path.furthest = std::max(path.furthest, beyond);
            path.value = index < size ? path.array->get(path.index) : Poco::Dynamic::Var();
        }
        path.levels += 1 + step.indexes.size();
        path.isPlain = path.isPlain && step.isPlain;
        const bool isWholeDocument = step.name.empty() && !step.indexes.empty(); // to a get
        path.exists = path.exists && !path.value.isEmpty() && !isWholeDocument;
    }
    return path;
}

bool AcmJsonConfiguration::getRaw(const std::string& key, std::string& value) const {
    const SetterPath path = FollowSetter(key);
    if (!path.isPlain || !path.exists) {
        return JSONConfiguration::getRaw(key, value);
    }
    value = path.value.convert<std::string>();
    return true;
}

void AcmJsonConfiguration::setString(const std::string& key, const std::string& value) {
    SetterPath path = FollowSetter(key);
    if (!path.isPlain || !path.exists) {
        JSONConfiguration::setString(key, value);
    } else if (path.array.isNull()) {
        path.object->set(path.name, value);
    } else {
        path.array->set(path.index, value);
    }
}

} // namespace SystemServer
