// The limits of XML documents, files and grafted fragments alike. Ordinary use stays far below all of them.
#ifndef ACM_XML_LIMITS_H
#define ACM_XML_LIMITS_H

#include <cstddef>
#include <cstdint>

namespace SystemServer {

// How deep elements may nest, the root included. The library's destructors and text lookups recurse once per
// level, with 200 bytes of stack on a 64-bit machine: 256 levels leave most of a 256 KiB stack free.
constexpr size_t MAX_XML_DEPTH = 256;

// Attributes of one element. The library walks their list from its start for every lookup.
constexpr size_t MAX_XML_ATTRIBUTES = 1024;

// Distinct names of elements and attributes. A full pool of this size takes 3.4 MB on a 64-bit machine, and a
// tenth of a second to fill: the library looks for a free place one by one.
constexpr size_t MAX_XML_NAMES = 32749;

// The length of a tag, comment, processing instruction or declaration as it is written, with its characters
// escaped. The parser may start one of them anew with every 4 KiB that arrive; with this limit 16 MiB of such
// tags load in about a second.
constexpr size_t MAX_XML_MARKUP_BYTES = 256U << 10;

// The most bytes of UTF-8 that the parser makes of one byte in another encoding.
constexpr uint64_t MAX_XML_WIDENING = 3;

// How many bytes the entities and default attributes of a DOCTYPE may add to their document.
constexpr uint64_t MAX_XML_EXPANSION_BYTES = 1U << 20;

// Notations and unparsed entities. The library walks over all of them to append one.
constexpr size_t MAX_XML_DECLARATIONS = 4096;

} // namespace SystemServer

#endif
