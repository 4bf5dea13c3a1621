// Frames as the transport finds them, and as they stand in a whole stream.
#ifndef FUZZ_FUZZ_FRAMES_H
#define FUZZ_FUZZ_FRAMES_H

#include <string>
#include <vector>

#include "frame_reader.h"

namespace Fuzz {

struct Frames {
    std::vector<std::string> whole; // header, record and payload
    bool endsBad = false;           // a header that is not allowed follows them
};

// The frames of a stream that is there from begin to end.
Frames CutWhole(const std::string& stream);

// Sends the stream in pieces of this size and collects what the reader makes of them.
Frames ReadInPieces(const std::string& stream, size_t piece);

} // namespace Fuzz

#endif
