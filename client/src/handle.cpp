#include "appcfg/handle.h"

#include <charconv>
#include <utility>

#include "app_cfg_wire.h"
#include "appcfg/error.h"

namespace appcfg {
namespace {

void CheckName(const char* what, const std::string& name) {
    if (name.size() >= SystemServer::APP_CFG_NAME_SIZE) {
        throw InvalidArgument(std::string(what) + " '" + name + "' is longer than " +
                              std::to_string(SystemServer::APP_CFG_NAME_SIZE - 1) + " bytes");
    }
    if (name.find('\0') != std::string::npos) {
        throw InvalidArgument(std::string(what) + " holds a NUL");
    }
}

[[noreturn]] void ThrowNoHandle(std::string_view text) {
    throw InvalidArgument("'" + std::string(text) +
                          "' is no handle; write owner/name or owner/name/index (0 to 4294967295)");
}

uint32_t ParseIndex(std::string_view digits, std::string_view text) {
    uint32_t index = 0;
    const char* end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, index);
    if (error != std::errc() || stop != end) {
        ThrowNoHandle(text);
    }
    return index;
}

} // namespace

Handle::Handle(std::string owner, std::string name, uint32_t index) :
    m_owner(std::move(owner)), m_name(std::move(name)), m_index(index) {
    CheckName("the owner", m_owner);
    CheckName("the name", m_name);
}

Handle Handle::Parse(std::string_view text) {
    const size_t ownerEnd = text.find('/');
    if (ownerEnd == std::string_view::npos) {
        ThrowNoHandle(text);
    }
    const std::string_view owner = text.substr(0, ownerEnd);
    std::string_view name = text.substr(ownerEnd + 1);
    uint32_t index = 0;
    const size_t nameEnd = name.find('/');
    if (nameEnd != std::string_view::npos) {
        index = ParseIndex(name.substr(nameEnd + 1), text);
        name = name.substr(0, nameEnd);
    }
    if (owner.empty() || name.empty()) {
        ThrowNoHandle(text);
    }
    return Handle(std::string(owner), std::string(name), index);
}

std::string Handle::ToString() const {
    return m_owner + "/" + m_name + "/" + std::to_string(m_index);
}

bool Handle::operator==(const Handle& other) const {
    return m_owner == other.m_owner && m_name == other.m_name && m_index == other.m_index;
}

} // namespace appcfg
