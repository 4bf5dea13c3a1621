// The limits that a client can meet, each with its reason. None is reachable in ordinary use.
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

// What a document that was measured must have left besides, so that measuring it, which takes as long as
// saving it, is paid for by as much growth.
constexpr uint64_t DOCUMENT_SLACK_BYTES = 1ULL << 20;

// The longest file that a document can make: encryption fills up its last block.
constexpr uint64_t MAX_FILE_BYTES = MAX_DOCUMENT_BYTES + 16;

// Bytes that one data request may fetch from its document, references and containers included: each is
// copied under the registry lock, where every other client waits.
constexpr uint64_t MAX_REQUEST_WORK = 16ULL << 20;

// What following one "${...}" reference counts for beside its bytes: the lookup itself.
constexpr uint64_t REFERENCE_WORK = 256;

// The document library gives up on references that nest deeper.
constexpr int MAX_REFERENCE_DEPTH = 10;

// How long the lookups of one request may take, in milliseconds: siblings are walked one by one, so that a
// few thousand keys of a wide document could keep every other client waiting for a minute.
constexpr int64_t MAX_REQUEST_MILLISECONDS = 2000;

// Steps of one key. The document library follows a key by recursion, 200 bytes a step on a 64-bit machine,
// and a query could name 4,096 steps; no document is deeper than half of this.
constexpr size_t MAX_KEY_STEPS = 512;

// Objects and arrays inside each other that the library's JSON parser takes.
constexpr uint64_t MAX_JSON_DEPTH = 128;

// Levels that a keyed raw set of a JSON document may reach: a document that nests deeper than the parser
// takes could be saved, but not loaded again.
constexpr uint64_t MAX_JSON_KEY_LEVELS = 100;

// Blanks for each level of a JSON document that is written.
constexpr unsigned JSON_INDENTATION = 2;

// Elements that one keyed raw set may leave empty before the indexes that it names: the library fills
// them with nulls, 72 bytes each.
constexpr uint64_t MAX_ARRAY_PADDING = 65535;

// Items at one time, and of one connection: each has three threads at most with 256 KiB of stack, which for
// all of them is a quarter of what a 32-bit process can address. One client leaves room for others.
constexpr size_t MAX_ITEMS = 1024;
constexpr size_t MAX_ITEMS_PER_CONNECTION = 256;

} // namespace SystemServer

#endif
