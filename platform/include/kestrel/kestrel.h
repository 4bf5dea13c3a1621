// The host service framework: an event loop, servers on local sockets and their connections.
// Every function is called on the loop's thread, except where its comment says otherwise.
#ifndef KESTREL_KESTREL_H
#define KESTREL_KESTREL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct tern_message;
struct kestrel_event_mgr;

typedef struct tern_message tern_message;
typedef struct kestrel_event_mgr kestrel_event_mgr;

// One client's connection. Owned by the framework; valid until its `closed` callback returns.
typedef struct kestrel_connection {
    int fd;
} kestrel_connection;

// What a server is told of its connections. `closed` runs before the descriptor is closed, so that a
// reused number never meets what the old connection left behind.
typedef struct kestrel_connection_ops {
    void (*opened)(kestrel_connection*);
    void (*closed)(kestrel_connection*);
    void (*writable)(kestrel_connection*);
} kestrel_connection_ops;

// What a server is told of its messages. A message is the framework's again when the callback returns.
typedef struct kestrel_protocol_ops {
    void (*reserved)(tern_message*, kestrel_connection*);
    void (*message)(tern_message*, kestrel_connection*);
} kestrel_protocol_ops;

// A registered server. The start callback fills the two tables; both must outlive the server.
typedef struct kestrel_server {
    int fd;
    const kestrel_protocol_ops* protocol_ops;
    const kestrel_connection_ops* connection_ops;
} kestrel_server;

typedef struct kestrel_server_ops {
    int (*start)(kestrel_server*, void*);
    int (*stop)(kestrel_server*, void*);
} kestrel_server_ops;

// Makes an event loop; the argument is reserved (0). Null on failure. The framework keeps ownership.
kestrel_event_mgr* kestrel_event_mgr_new(int reserved);

// Runs the loop on the calling thread; timeout in milliseconds, -1 = none. Returns 0 when the host asked
// it to stop (SIGTERM, SIGINT): accepting has stopped, then every connection was closed through `closed`;
// 1 when the time ran out, with everything as it was.
int kestrel_event_mgr_run(kestrel_event_mgr* mgr, int timeout);

// Listens at <root>/<name> and calls `start`. 0 on success; non-zero when the name is taken by a live
// server or the socket cannot be made. A socket file that a dead server left is replaced: a
// lock on <root>/<name>.lock, held until the loop is freed or the process ends, decides which it is.
int kestrel_server_register(const char* name, kestrel_event_mgr* mgr, const kestrel_server_ops* ops);

// Connects to a service by its path; one below /mnt/kestrel/ is looked up under <root>. Any thread.
// -1 and errno on failure. The descriptor is close-on-exec; the caller closes it. With O_NONBLOCK it is not
// blocking, and a service whose queue is full is EAGAIN; without, the call waits for a place in the queue.
int kestrel_open(const char* path, int flags);

// 0x80040305: the peer's pid into *(int32_t *)arg. 0x400C0200, 0x400C0201: the send and receive buffer
// of a server's future connections, in bytes, from the third 32-bit word of arg. -1 and errno otherwise.
int kestrel_ioctl(int fd, unsigned long request, void* arg);

#ifdef __cplusplus
}
#endif

#endif
