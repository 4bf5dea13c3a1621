#include "paths.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace Kestrel {

namespace {

constexpr char DEVICE_ROOT[] = "/mnt/kestrel/";

} // namespace

std::string RootDirectory() {
    const char* set = std::getenv("KESTREL_ROOT");
    std::string root = set != nullptr && *set != '\0' ? set : DEVICE_ROOT;
    if (root.back() != '/') {
        root += '/';
    }
    return root;
}

std::string ResolvePath(const std::string& path) {
    constexpr std::size_t length = sizeof DEVICE_ROOT - 1;
    return path.compare(0, length, DEVICE_ROOT) == 0 ? RootDirectory() + path.substr(length) : path;
}

bool MakeAddress(const std::string& path, sockaddr_un* address) {
    *address = sockaddr_un{};
    address->sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address->sun_path) {
        return false;
    }
    std::memcpy(address->sun_path, path.c_str(), path.size());
    return true;
}

int ConnectTo(int fd, const sockaddr_un& address) {
    const void* untyped = &address;
    int result = 0;
    do {
        result = ::connect(fd, static_cast<const sockaddr*>(untyped), sizeof address);
    } while (result < 0 && errno == EINTR);
    return result;
}

} // namespace Kestrel
