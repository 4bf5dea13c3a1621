// A client's name for one item.
#ifndef APPCFG_HANDLE_H
#define APPCFG_HANDLE_H

#include <cstdint>
#include <string>
#include <string_view>

namespace appcfg {

// Owner, name and index of an item; a plain value. The service joins the three with points, so that the
// owner "a.b" with the name "c" is the same item as the owner "a" with the name "b.c".
class Handle {
public:
    // Each name has at most 31 bytes and no NUL; InvalidArgument otherwise.
    Handle(std::string owner, std::string name, uint32_t index = 0);

    // Reads `owner/name` (index 0) or `owner/name/index`; neither name may be empty or hold a slash.
    static Handle Parse(std::string_view text);

    // `owner/name/index`: what Parse reads, as long as no name is empty or holds a slash.
    std::string ToString() const;

    const std::string& Owner() const { return m_owner; }
    const std::string& Name() const { return m_name; }
    uint32_t Index() const { return m_index; }

    bool operator==(const Handle& other) const;
    bool operator!=(const Handle& other) const { return !(*this == other); }

private:
    std::string m_owner;
    std::string m_name;
    uint32_t m_index;
};

} // namespace appcfg

#endif
