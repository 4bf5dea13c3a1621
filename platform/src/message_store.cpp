#include "message_store.h"

#include <utility>

namespace Kestrel {

MessageStore::~MessageStore() {
    if (m_spare != nullptr) {
        m_spare->Delete();
    }
}

Message* MessageStore::Take(std::size_t room) {
    Message* msg = m_spare != nullptr ? std::exchange(m_spare, nullptr) : Message::New();
    if (msg != nullptr && !msg->Frame().Reserve(room)) {
        msg->Delete();
        return nullptr;
    }
    return msg;
}

void MessageStore::GiveBack(Message* msg) {
    if (m_spare != nullptr) {
        msg->Delete();
    } else {
        msg->Recycle();
        m_spare = msg;
    }
}

} // namespace Kestrel
