// A directory of its own for one test, which is also the framework's root.
#ifndef TESTS_CLIENT_SCRATCH_ROOT_H
#define TESTS_CLIENT_SCRATCH_ROOT_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace appcfg::test {

// Made before any thread starts, since it sets the environment.
class ScratchRoot {
public:
    ScratchRoot() {
        std::string pattern = (std::filesystem::temp_directory_path() / "appcfg_test_XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("no scratch directory");
        }
        m_path = pattern;
        setenv("KESTREL_ROOT", m_path.c_str(), 1);
    }
    ~ScratchRoot() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    ScratchRoot(const ScratchRoot&) = delete;
    ScratchRoot& operator=(const ScratchRoot&) = delete;

    const std::string& Path() const { return m_path; }

    // Writes a file and returns its path.
    std::string Write(const std::string& name, const std::string& text) const {
        std::string path = m_path + "/" + name;
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }

    std::string Read(const std::string& name) const {
        std::ifstream file(m_path + "/" + name, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }

private:
    std::string m_path;
};

} // namespace appcfg::test

#endif
