// A client's byte stream: it is cut into the same frames in whatever pieces it arrives.
// Input: a byte that chooses the pieces' size, the stream.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "descriptor.h"
#include "frame_reader.h"
#include "fuzz_support.h"

namespace {

struct Frames {
    std::vector<std::string> whole; // header, record and payload
    bool endsBad = false;           // a header that is not allowed follows them
};

using Fuzz::Check;
using Kestrel::FrameReader;

constexpr uint16_t MAGIC = 0x4E54;
constexpr uint32_t SHORTEST = 8;
constexpr uint32_t LONGEST = (16U << 20) + 8;

std::string BytesOf(Kestrel::Message& frame) {
    const uint32_t length = frame.header->length;
    const void* const section = frame.Section(0, length);
    Check(section != nullptr && frame.Section(0, length + 1) == nullptr, "the section has its length");
    return std::string(reinterpret_cast<const char*>(frame.header), sizeof *frame.header) +
           std::string(static_cast<const char*>(section), length);
}

void TakeFrames(FrameReader& reader, Kestrel::MessageStore& store, Frames& frames) {
    Kestrel::Message* frame = nullptr;
    FrameReader::Found found;
    while ((found = reader.Next(&frame)) == FrameReader::Found::FRAME) {
        frames.whole.push_back(BytesOf(*frame));
        store.GiveBack(frame);
    }
    Check(found != FrameReader::Found::NO_MEMORY, "a frame within the limits finds memory");
    frames.endsBad = found == FrameReader::Found::BAD;
}

// The frames of a stream that is there from begin to end.
Frames CutWhole(const std::string& stream) {
    Frames frames;
    tern_header header;
    for (size_t at = 0; stream.size() - at >= sizeof header;) {
        std::memcpy(&header, stream.data() + at, sizeof header);
        frames.endsBad = header.magic != MAGIC || header.length < SHORTEST || header.length > LONGEST;
        const size_t length = sizeof header + header.length;
        if (frames.endsBad || stream.size() - at < length) {
            break;
        }
        frames.whole.push_back(stream.substr(at, length));
        at += length;
    }
    return frames;
}

// Sends the stream in pieces of this size and collects what the reader makes of them.
Frames ReadInPieces(const std::string& stream, size_t piece) {
    int ends[2];
    Check(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0,
          "there are sockets");
    const Kestrel::Descriptor client(ends[0]);
    const Kestrel::Descriptor service(ends[1]);
    Kestrel::MessageStore store;
    FrameReader reader(store);
    Frames frames;
    for (size_t at = 0; at < stream.size() && !frames.endsBad; at += piece) {
        const size_t length = std::min(piece, stream.size() - at);
        Check(::write(client.Get(), stream.data() + at, length) == static_cast<ssize_t>(length),
              "it is sent");
        while (!frames.endsBad && reader.Receive(service.Get()) == FrameReader::Input::DATA) {
            TakeFrames(reader, store, frames);
        }
    }
    return frames;
}

} // namespace

namespace Fuzz {

void FrameStream(const std::string& input) {
    const std::string stream = input.substr(std::min<size_t>(1, input.size()));
    const Frames frames = ReadInPieces(stream, size_t{1} << (input.c_str()[0] & 15));
    const Frames expected = CutWhole(stream);
    Check(frames.whole == expected.whole, "the frames are those of the stream");
    Check(frames.endsBad == expected.endsBad, "a header that is not allowed is seen, and no other");
}

} // namespace Fuzz
