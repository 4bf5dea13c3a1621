// The limits that a client can meet, each with its reason. Ordinary use stays far below all of them.
#ifndef APP_CFG_LIMITS_H
#define APP_CFG_LIMITS_H

#include <cstddef>
#include <cstdint>

namespace SystemServer {

// A message's payload ends at 16 MiB, and so does what one reply can carry.
constexpr uint64_t MAX_REPLY_BYTES = 16ULL << 20;

// A document takes up to twenty times its text in memory: a larger file would starve a small device.
// The same holds for what is written: a document that could not be loaded again must not come to be.
constexpr uint64_t MAX_DOCUMENT_BYTES = 16ULL << 20;

// Space that must be left after a document was measured. Measuring takes as long as saving; with this slack
// it happens at most once for each such amount of growth.
constexpr uint64_t DOCUMENT_SLACK_BYTES = 1ULL << 20;

// The longest file of a document: encryption pads the last block.
constexpr uint64_t MAX_FILE_BYTES = MAX_DOCUMENT_BYTES + 16;

// Bytes that one data request may fetch from its document, references and containers included. They are
// copied under the registry lock, while every other client waits.
constexpr uint64_t MAX_REQUEST_WORK = 16ULL << 20;

// The cost of looking up one "${...}" reference, counted in bytes beside those of its value.
constexpr uint64_t REFERENCE_WORK = 256;

// How deep references may nest; the same as in the document library.
constexpr int MAX_REFERENCE_DEPTH = 10;

// How long the lookups of one request may take, in milliseconds. The library walks siblings one by one: a few
// thousand keys of a wide document could otherwise keep every other client waiting for a minute.
constexpr int64_t MAX_REQUEST_MILLISECONDS = 2000;

// Steps of one key. The document library follows a key by recursion, with 200 bytes of stack a step on a
// 64-bit machine, and a query could hold a key of 4,096 steps. No document is deeper than half of this.
constexpr size_t MAX_KEY_STEPS = 512;

// How deep objects and arrays may nest for the library's JSON parser.
constexpr uint64_t MAX_JSON_DEPTH = 128;

// How deep a key may be at which a raw set makes members: a document that nests deeper than MAX_JSON_DEPTH
// could be saved, but not loaded again.
constexpr uint64_t MAX_JSON_KEY_LEVELS = 100;

// Blanks for each level of a saved JSON document.
constexpr unsigned JSON_INDENTATION = 2;

// How far beyond the end of an array a raw set may write: the library fills the gap with nulls of 72 bytes
// each.
constexpr uint64_t MAX_ARRAY_PADDING = 65535;

// Stack of an item's thread. The deepest path takes less than half of it, which ./dev footprint measures.
// Sanitizers put red zones and shadow frames on the stack.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr size_t THREAD_STACK_BYTES = 2U << 20;
#else
constexpr size_t THREAD_STACK_BYTES = 256U << 10;
#endif

// Items at one time, in all and of one connection. Each item has at most three threads; for all items their
// stacks are a quarter of what a 32-bit process can address.
constexpr size_t MAX_ITEMS = 1024;
constexpr size_t MAX_ITEMS_PER_CONNECTION = 256;

} // namespace SystemServer

#endif
