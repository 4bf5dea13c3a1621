// Looking up values by key with a bound on the work that one request may cause.
#ifndef ACM_VALUE_LOOKUP_H
#define ACM_VALUE_LOOKUP_H

#include <Poco/Util/AbstractConfiguration.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "app_cfg_limits.h"

namespace SystemServer {

// What one request may still fetch. Lives on the stack of the request's handler.
class AcmWorkBudget {
public:
    // Throws Poco::RangeException when the request has used up MAX_REQUEST_WORK.
    void Spend(uint64_t bytes);
    // Before each lookup. Throws Poco::RangeException when the time is up or the key has too many steps, each
    // of which walks through siblings in the document.
    void SpendLookup(const std::string& key);

private:
    uint64_t m_left = MAX_REQUEST_WORK;
    const std::chrono::steady_clock::time_point m_end =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(MAX_REQUEST_MILLISECONDS);
};

// The value at the key with its "${key}" references replaced, as the library's getString has it: a name that
// is not found stays as text. Throws Poco::NotFoundException for a missing key, Poco::RangeException beyond
// the budget and Poco::CircularReferenceException for references that nest too deep.
std::string LookUpValue(const Poco::Util::AbstractConfiguration& config, const std::string& key,
                        AcmWorkBudget& budget);

// Whether the key has a value.
bool HasValue(const Poco::Util::AbstractConfiguration& config, const std::string& key, AcmWorkBudget& budget);

} // namespace SystemServer

#endif
