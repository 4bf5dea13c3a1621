// The service on an event loop of this process.
#ifndef LIFE_SERVICE_H
#define LIFE_SERVICE_H

#include <string>
#include <thread>
#include <vector>

#include "kestrel/kestrel_host.h"
#include "support/root_directory.h"

namespace Endurance {

// Owns a framework root, the loop and its thread; all end with it. Its log lines go nowhere, those of level 3
// are counted. One at a time: the root is told by the environment.
class Service {
public:
    Service();
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    const std::string& Root() const { return m_root.Path(); }
    static size_t ErrorLines();
    // Whether these items, and no other, are the registered ones before long.
    static bool ComesToHold(const std::vector<std::string>& items);

private:
    const Support::RootDirectory m_root{};
    kestrel_event_mgr* const m_loop;
    std::thread m_thread;
};

} // namespace Endurance

#endif
