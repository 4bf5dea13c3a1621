// A client's byte stream: it is cut into the same frames in whatever pieces it arrives.
// Input: a byte that chooses the pieces' size, the stream.
#include "fuzz_frames.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string stream(reinterpret_cast<const char*>(data) + 1, size - 1);
    const Fuzz::Frames frames = Fuzz::ReadInPieces(stream, size_t{1} << (data[0] % 16));
    const Fuzz::Frames expected = Fuzz::CutWhole(stream);
    Fuzz::Check(frames.whole == expected.whole, "the frames are those of the stream");
    Fuzz::Check(frames.endsBad == expected.endsBad, "a header that is not allowed is seen, and no other");
    return 0;
}
