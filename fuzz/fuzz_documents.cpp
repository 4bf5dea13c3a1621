#include "fuzz_documents.h"

#include <algorithm>

#include "Poco/DOM/Node.h"
#include "Poco/StringTokenizer.h"
#include "Poco/Util/IniFileConfiguration.h"

namespace Fuzz {

namespace {

bool IsOrdinaryStep(const std::string& step) {
    size_t at = step.find_first_of("[]");
    if (at == 0 || step.empty()) {
        return false;
    }
    while (at < step.size()) {
        const size_t end = step.find_first_not_of("0123456789", at + 1);
        if (step[at] != '[' || end == std::string::npos || end == at + 1 || step[end] != ']') {
            return false;
        }
        at = end + 1;
    }
    return true;
}

} // namespace

Poco::AutoPtr<SystemServer::AcmJsonConfiguration> LoadJson(const std::string& text) {
    WriteFile("document", text);
    try {
        return new SystemServer::AcmJsonConfiguration(PathOf("document"));
    } catch (const Poco::Exception&) {
        return nullptr;
    }
}

Poco::AutoPtr<SystemServer::AcmXmlConfiguration> LoadXml(const std::string& text) {
    try {
        std::istringstream stream(text);
        return new SystemServer::AcmXmlConfiguration(stream);
    } catch (const Poco::Exception&) {
        return nullptr;
    }
}

Poco::AutoPtr<Poco::Util::AbstractConfiguration> LoadKind(char kind, const std::string& text) {
    switch (kind) {
    case 'j':
        return LoadJson(text);
    case 'x':
        return LoadXml(text);
    case 'i': {
        std::istringstream stream(text);
        return new Poco::Util::IniFileConfiguration(stream);
    }
    default:
        return nullptr;
    }
}

bool IsOrdinaryKey(const std::string& key, const std::function<std::string(const std::string&)>& read) {
    const Poco::StringTokenizer steps(key, ".");
    if (steps.count() == 0 || !std::all_of(steps.begin(), steps.end(), IsOrdinaryStep)) {
        return false;
    }
    const size_t last = key.find_last_of(".[");
    if (last == std::string::npos || key.rfind(']', last) == std::string::npos) {
        return true;
    }
    const std::string container = read(key.substr(0, last));
    return !container.empty() && container[0] == (key[last] == '[' ? '[' : '{');
}

} // namespace Fuzz
