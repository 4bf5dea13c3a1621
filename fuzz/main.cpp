// Runs the target that FUZZ_TARGET names: for a fuzzer, or over the inputs that are kept in a DIRECTORY.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace Fuzz {

void FUZZ_TARGET(const std::string& input);

} // namespace Fuzz

#ifdef FUZZ_LOOKS_FOR_INPUTS
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Fuzz::FUZZ_TARGET(std::string(reinterpret_cast<const char*>(data), size));
    return 0;
}
#else
int main(int argc, char** argv) {
    std::vector<std::filesystem::path> inputs(std::filesystem::directory_iterator(argc > 1 ? argv[1] : "."),
                                              {});
    std::sort(inputs.begin(), inputs.end());
    for (const auto& input : inputs) {
        std::printf("%s\n", input.c_str());
        std::fflush(stdout); // the last line names the input that ended the process
        std::ifstream file(input, std::ios::binary);
        Fuzz::FUZZ_TARGET(std::string(std::istreambuf_iterator<char>(file), {}));
    }
    return inputs.empty() ? 1 : 0;
}
#endif
