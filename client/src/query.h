// The query strings of data requests, checked against what their grammar can carry.
#ifndef APPCFG_QUERY_H
#define APPCFG_QUERY_H

#include <string>
#include <utility>
#include <vector>

namespace appcfg {

// Both throw InvalidArgument for what cannot be said, or not in one request.
std::string BuildGetQuery(const std::vector<std::string>& keys);
std::string BuildSetQuery(const std::vector<std::pair<std::string, std::string>>& values);

} // namespace appcfg

#endif
