// What a host process and tests need of the framework beside what services call.
#ifndef KESTREL_KESTREL_HOST_H
#define KESTREL_KESTREL_HOST_H

#include "kestrel/kestrel.h"

#ifdef __cplusplus
extern "C" {
#endif

// Asks a running loop to stop as SIGTERM does. Any thread; also safe before the loop runs.
void kestrel_event_mgr_stop(kestrel_event_mgr* mgr);

// Catches SIGTERM and SIGINT until the process ends, not only while a loop runs: one that arrives earlier
// stops the loop as soon as it runs, and one that arrives later changes nothing. Any thread.
void kestrel_catch_stop_signals(void);

// Frees a loop that does not run, with its servers and what is left of their connections.
void kestrel_event_mgr_free(kestrel_event_mgr* mgr);

// Mode bits and group of the sockets that servers registered from now on listen at; a group of -1 leaves
// the process's own. Default: 0666 and (unsigned)-1, since any local process may be a client.
void kestrel_socket_access(unsigned mode, unsigned group);

#ifdef __cplusplus
}
#endif

#endif
