#ifndef TESTS_SUPPORT_ROOT_DIRECTORY_H
#define TESTS_SUPPORT_ROOT_DIRECTORY_H

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>

namespace Support {

// A framework root of the test's own, gone with it.
class RootDirectory {
public:
    explicit RootDirectory(const std::string& parent = "/tmp") : m_path(parent + "/kestrel-XXXXXX") {
        if (::mkdtemp(m_path.data()) == nullptr) {
            throw std::runtime_error("no directory can be made in " + parent);
        }
        ::setenv("KESTREL_ROOT", m_path.c_str(), 1);
    }
    ~RootDirectory() {
        ::unsetenv("KESTREL_ROOT");
        std::filesystem::remove_all(m_path);
    }
    RootDirectory(const RootDirectory&) = delete;
    RootDirectory& operator=(const RootDirectory&) = delete;

    const std::string& Path() const { return m_path; }
    std::string Of(const std::string& name) const { return m_path + "/" + name; }
    // Writes a file and returns its path.
    std::string Writes(const std::string& name, const std::string& text) const {
        std::ofstream(Of(name), std::ios::binary) << text;
        return Of(name);
    }
    std::string Text(const std::string& name) const {
        std::ifstream file(Of(name), std::ios::binary);
        return file ? std::string(std::istreambuf_iterator<char>(file), {}) : "(missing)";
    }

private:
    std::string m_path;
};

// Polls until the claim holds; false when it did not within the deadline.
template <typename Claim>
bool Eventually(Claim claim) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!claim()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace Support

#endif
