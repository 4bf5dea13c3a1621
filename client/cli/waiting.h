// Tells a person at a terminal that something takes long.
#ifndef APPCFG_CLI_WAITING_H
#define APPCFG_CLI_WAITING_H

#include <condition_variable>
#include <mutex>
#include <ostream>
#include <thread>

namespace appcfg::cli {

// After a second a line says that the service is waited for; it is erased when this goes away. The thread
// that owns this writes nothing to the terminal meanwhile.
class Waiting {
public:
    // Null: there is no terminal, and nothing happens.
    explicit Waiting(std::ostream* terminal);
    ~Waiting();
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

private:
    void Show();

    std::ostream* m_terminal;
    std::mutex m_mutex; // guards m_isOver
    bool m_isOver = false;
    std::condition_variable m_over;
    std::thread m_thread;
};

} // namespace appcfg::cli

#endif
