// All that the service takes from the framework that loads it, and what it relies on there: the members that
// it reads and fills, and where they stand. A device's own headers need no other member, and no other
// position.
#ifndef APP_CFG_FRAMEWORK_H
#define APP_CFG_FRAMEWORK_H

#include <cstddef>
#include <type_traits>

#include "kestrel/kestrel.h"
#include "securec/securec.h"
#include "tern/tern.h"

#ifdef ACM_PLATFORM_DEVICE
// On a device a service is a path like others.
#include <fcntl.h>
#include <sys/ioctl.h>
#define kestrel_open open
#define kestrel_ioctl ioctl
#endif

namespace SystemServer {

// A message leads to its header, which stands before the content as it came from the wire, and to its pool.
static_assert(sizeof(tern_header) == 16 && offsetof(tern_header, method) == 3 &&
              offsetof(tern_header, uri) == 4 && offsetof(tern_header, status) == 6 &&
              offsetof(tern_header, length) == 12);
static_assert(offsetof(tern_message, header) == 0 && offsetof(tern_message, pool) == sizeof(void*));
static_assert(std::is_same_v<decltype(tern_message::pool), kestrel_pool*>);

// A connection and a server begin with their descriptor; a server's operations are set by name.
static_assert(offsetof(kestrel_connection, fd) == 0 && std::is_same_v<decltype(kestrel_connection::fd), int>);
static_assert(offsetof(kestrel_server, fd) == 0 && std::is_same_v<decltype(kestrel_server::fd), int>);
static_assert(std::is_same_v<decltype(kestrel_server::protocol_ops), const kestrel_protocol_ops*> &&
              std::is_same_v<decltype(kestrel_server::connection_ops), const kestrel_connection_ops*>);

// Tables of functions, filled by position: the slots that are the service's own are the second, the second
// and the first.
static_assert(sizeof(kestrel_connection_ops) == 3 * sizeof(void*));
static_assert(sizeof(kestrel_protocol_ops) == 2 * sizeof(void*));
static_assert(sizeof(kestrel_server_ops) == 2 * sizeof(void*));

} // namespace SystemServer

#endif
