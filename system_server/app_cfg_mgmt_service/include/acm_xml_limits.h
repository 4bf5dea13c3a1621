// The limits of XML documents, files and grafted fragments alike. None is reachable in ordinary use.
#ifndef ACM_XML_LIMITS_H
#define ACM_XML_LIMITS_H

#include <cstddef>
#include <cstdint>

namespace SystemServer {

// Elements below each other, the root included. The library's writer, destructors and text lookups recurse
// once per level, 200 bytes each on a 64-bit machine: 256 levels leave most of a 256 KiB stack free.
constexpr size_t MAX_XML_DEPTH = 256;

// Attributes of one element: the library's writer walks their list from its start for each of them.
constexpr size_t MAX_XML_ATTRIBUTES = 256;

// Distinct names of elements and attributes. A pool of this size takes 27 MB on a 64-bit machine.
constexpr size_t MAX_XML_NAMES = 262139;

// What entities and default attributes of a DOCTYPE may add to the text of their document.
constexpr uint64_t MAX_XML_EXPANSION_BYTES = 1U << 20;

// Entities that a DOCTYPE may declare, and how deep they may name each other: the parser recurses there.
constexpr size_t MAX_XML_ENTITIES = 256;
constexpr size_t MAX_XML_ENTITY_DEPTH = 16;

// Bytes that the parser may read again. It starts each tag or comment anew with every 4 KiB that arrive,
// so that one of 1.4 MiB costs this much, a quarter of a second.
constexpr uint64_t MAX_XML_RESCANNED_BYTES = 256U << 20;

} // namespace SystemServer

#endif
