// Messages of the framework. A message is used by one thread at a time.
#ifndef TERN_TERN_H
#define TERN_TERN_H

#include <stddef.h>
#include <stdint.h>

#include "kestrel/kestrel.h"

#ifdef __cplusplus
extern "C" {
#endif

struct kestrel_pool;
typedef struct kestrel_pool kestrel_pool;

// The 16-byte header that begins every message on the wire, little-endian.
typedef struct tern_header {
    uint16_t magic;
    uint8_t kind;
    uint8_t method; // bit 7: reply, bits 0 to 6: method
    uint16_t uri;
    uint16_t status;   // 0 in a request
    uint32_t sequence; // chosen by the sender of a request, returned in its reply
    uint32_t length;   // bytes that follow the header: payload length + 8
} tern_header;

struct tern_message {
    tern_header* header;
    kestrel_pool* pool;
};

// Zeroed memory, aligned for any type, that lives as long as the pool's message. Null when there is none.
void* pcalloc(kestrel_pool* pool, size_t size);

// A new message with one reference, or null; the argument is reserved (0).
tern_message* tern_message_new(int reserved);

// Releases one reference; the last one frees the message and its pool.
void tern_message_put(tern_message* msg);

// The payload and its length in bytes. 0, or non-zero when the message has none.
int tern_content(tern_message* msg, void** content, uint32_t* len);

// A pointer to len bytes at offset of the content section (its leading 8-byte record included), or null
// when the range does not lie inside it.
void* tern_content_struct(tern_message* msg, uint32_t offset, uint32_t len);

// Appends one piece by reference: the bytes must live until the message is released. 0, or non-zero when
// there is no memory or the payload would pass 16 MiB. The last argument is reserved (0).
int tern_content_add(tern_message* msg, const void* data, uint32_t len, int reserved);

// Drops the content. What it pointed at stays alive with the message.
void tern_content_clear(tern_message* msg);

// Clears status and reply bit. Method, URI and sequence stay.
void tern_header_clear(tern_message* msg);

// Queues the message on the connection and holds a reference until it is written. Loop thread only.
// 0, or non-zero when the connection is already lost. The last argument is reserved (0).
int tern_message_async_send(tern_message* msg, kestrel_connection* conn, int reserved);

// Write or read one whole frame on a blocking descriptor, restarted on EINTR. 0 or more on success,
// negative on failure. A time-out of the descriptor (SO_SNDTIMEO, SO_RCVTIMEO) is that of the whole frame;
// then errno is EAGAIN. Receiving replaces header and content of the message.
int tern_message_sendfd(tern_message* msg, int fd);
int tern_message_recvfd(tern_message* msg, int fd);

#ifdef __cplusplus
}
#endif

#endif
