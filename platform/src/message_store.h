#ifndef KESTREL_MESSAGE_STORE_H
#define KESTREL_MESSAGE_STORE_H

#include "message.h"

namespace Kestrel {

// Keeps one message for the next frame, so that a loop which serves one request after the other allocates
// nothing. Owned by the event manager. Loop thread only.
class MessageStore {
public:
    MessageStore() = default;
    ~MessageStore();
    MessageStore(const MessageStore&) = delete;
    MessageStore& operator=(const MessageStore&) = delete;

    // An empty message with this much room for a frame; null without memory.
    Message* Take(std::size_t room);

    // Takes a message back that nobody uses any more.
    void GiveBack(Message* msg);

private:
    Message* m_spare = nullptr;
};

} // namespace Kestrel

#endif
