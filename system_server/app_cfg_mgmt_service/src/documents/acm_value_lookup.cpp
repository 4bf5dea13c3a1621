#include "acm_value_lookup.h"

#include <Poco/Exception.h>

namespace SystemServer {

namespace {

// Throws Poco::NotFoundException for a missing key.
std::string GetBounded(const Poco::Util::AbstractConfiguration& config, const std::string& key,
                       AcmWorkBudget& budget) {
    budget.SpendLookup(key);
    std::string value = config.getRawString(key);
    budget.Spend(value.size());
    return value;
}

bool FetchRaw(const Poco::Util::AbstractConfiguration& config, const std::string& key, AcmWorkBudget& budget,
              std::string& value) {
    try {
        value = GetBounded(config, key, budget);
        return true;
    } catch (const Poco::NotFoundException&) {
        return false;
    }
}

// Used instead of the library's own expansion, which has no bound on the length of the result.
std::string Expand(const Poco::Util::AbstractConfiguration& config, const std::string& value,
                   AcmWorkBudget& budget, int depth) {
    if (depth > MAX_REFERENCE_DEPTH) {
        throw Poco::CircularReferenceException("Too many property references encountered");
    }
    std::string result;
    size_t at = 0;
    for (;;) {
        const size_t begin = value.find("${", at);
        result.append(value, at, begin - at);
        if (begin == std::string::npos) {
            return result;
        }
        const size_t end = value.find('}', begin);
        const std::string name = value.substr(begin + 2, end == std::string::npos ? end : end - begin - 2);
        budget.Spend(REFERENCE_WORK);
        std::string reference;
        if (FetchRaw(config, name, budget, reference)) {
            result += Expand(config, reference, budget, depth + 1);
        } else {
            result.append("${").append(name).append("}");
        }
        if (end == std::string::npos) {
            return result;
        }
        at = end + 1;
    }
}

} // namespace

void AcmWorkBudget::Spend(uint64_t bytes) {
    if (bytes > m_left) {
        throw Poco::RangeException("the request asks for too much of its document");
    }
    m_left -= bytes;
}

void AcmWorkBudget::SpendLookup(const std::string& key) {
    size_t steps = 0;
    char last = '\0';
    for (const char c : key) {
        steps += c == '[' || (c == '.' && last != '.') ? 1 : 0; // a run of points is one separator
        last = c;
    }
    if (steps > MAX_KEY_STEPS) {
        throw Poco::RangeException("the key has too many steps");
    }
    if (std::chrono::steady_clock::now() > m_end) {
        throw Poco::RangeException("the request asks for too much of its document");
    }
}

std::string LookUpValue(const Poco::Util::AbstractConfiguration& config, const std::string& key,
                        AcmWorkBudget& budget) {
    const std::string value = GetBounded(config, key, budget);
    if (value.find("${") == std::string::npos) {
        return value;
    }
    return Expand(config, value, budget, 1);
}

bool HasValue(const Poco::Util::AbstractConfiguration& config, const std::string& key,
              AcmWorkBudget& budget) {
    std::string value;
    return FetchRaw(config, key, budget, value);
}

} // namespace SystemServer
