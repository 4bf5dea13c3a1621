// The bounds of the transport, the log and the host, each with its reason.
#ifndef KESTREL_LIMITS_H
#define KESTREL_LIMITS_H

#include <cstddef>
#include <cstdint>
#include <limits>

#if defined(__SANITIZE_ADDRESS__)
#define KESTREL_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KESTREL_ASAN 1
#endif
#endif

namespace Kestrel {

constexpr std::uint16_t FRAME_MAGIC = 0x4E54;
constexpr std::uint32_t HEADER_LENGTH = 16;
constexpr std::uint32_t RECORD_LENGTH = 8;
constexpr std::uint32_t HEAD_LENGTH = HEADER_LENGTH + RECORD_LENGTH;

// The largest payload. Bounds what one client can make the service hold for one message.
constexpr std::uint32_t MAX_PAYLOAD = 16U << 20;

// Room of a fresh message: the largest ordinary request (12,360 bytes of payload) arrives in one recv. A
// longer frame grows as its data comes, so that an announced length alone costs nothing.
constexpr std::size_t FRAME_ROOM = 16U << 10;

// What connections hold for their clients, frames that are not whole yet and replies that wait, is counted
// beyond FREE_HELD for each. When the sum passes MAX_HELD, eight of the largest messages, the connection
// whose bytes have not moved for longest is closed: who does not read pays, and who waits for a long reply
// does not.
constexpr std::size_t FREE_HELD = 1U << 20;
constexpr std::size_t MAX_HELD = 128U << 20;

// Replies that wait for a client. From here on the client is not read from until half of it is written:
// it pays for its own slowness, and the memory it can pin stays bounded.
constexpr std::size_t MAX_WAITING_REPLIES = 1U << 20;
constexpr std::size_t RESUME_WAITING_REPLIES = MAX_WAITING_REPLIES / 2;

// Replies wait in blocks between these sizes: large enough for one call each, small enough that a long
// reply's memory is free again as it is read.
constexpr std::size_t SMALL_BLOCK = 16U << 10;
constexpr std::size_t LARGE_BLOCK = 256U << 10;

// Parts (head and pieces) of a reply that is written without any bookkeeping. Ordinary replies have two.
constexpr std::size_t DIRECT_PARTS = 8;

// A reply of so many bytes or less is joined on the stack before it is written.
constexpr std::size_t SHORT_REPLY = 512;

// Frames that one connection may have served, and connections that one server may accept, before others
// have their turn.
constexpr int FRAMES_PER_TURN = 64;
constexpr int ACCEPTS_PER_TURN = 16;

// Clients that may wait to be accepted, a burst of starting applications: as many as the system allows.
constexpr int LISTEN_BACKLOG = std::numeric_limits<int>::max();

// Descriptors that connections leave free for the service's own files: a save, a backup and a request's
// query of another service on a few dozen items at once. Never more than a quarter of a small limit.
constexpr std::uint64_t DESCRIPTOR_RESERVE = 64;

// How long a paused server waits before it looks for free descriptors again; a closing connection makes
// it look at once. Short enough for a person, long enough to cost nothing.
constexpr int ACCEPT_RETRY_MS = 250;

// How soon after the end of a connection the memory of a burst goes back to the system. Asking for it costs
// up to some milliseconds, so that connections which end meanwhile share it.
constexpr int TRIM_AFTER_MS = 1000;

// Loops of one process that signals can stop. A process runs one; tests run a few.
constexpr std::size_t MAX_RUNNING_LOOPS = 16;

// Memory of a message's pool: what small replies need stands in the message itself, the next chunks come
// in a page, and larger pieces get chunks of their own.
constexpr std::size_t POOL_INLINE = 512;
constexpr std::size_t POOL_CHUNK = 4096 - 64;

// The largest piece of a pool: a few times the largest payload. Nobody needs more for one message, and a
// length that was computed wrongly is refused before the allocator sees it.
constexpr std::size_t POOL_MAX_PIECE = 64U << 20;

// The host's descriptor limit, also where it was higher: so many connections with FREE_HELD each, beside
// MAX_HELD and the threads of all items, are what a 32-bit address space has room for.
constexpr std::uint64_t MAX_DESCRIPTORS = 1024;

// A log text is formatted on the stack when it fits, and cut off at the maximum: one client's 12 KiB
// query can be logged whole, and nothing can flood the log with one line.
constexpr std::size_t LOG_STACK_TEXT = 1U << 10;
constexpr std::size_t LOG_MAX_TEXT = 64U << 10;

// How long a line waits for the log's reader at most, and which part of all time is spent so: a slow reader,
// and one that stalls again and again, cost a tenth of it.
constexpr int LOG_PATIENCE_MS = 100;
constexpr int LOG_WAIT_SHARE = 10;

// What the requests of one connection may write to the log within a second, in lines of up to
// LOG_SHARE_LENGTH (a longer one counts as several): information, of which each item that is created writes
// two dozen lines, and errors of one place in the sources, one for each item that a connection may have, so
// that none of an honest client's is lost. Too little to fill a disk before somebody looks.
constexpr unsigned LOG_SHARE_OF_INFORMATION = 1000;
constexpr unsigned LOG_SHARE_OF_PLACE = 256;
constexpr std::size_t LOG_SHARE_LENGTH = 512;

} // namespace Kestrel

#endif
