#include "message_store.h"

#include <utility>

namespace Kestrel {

MessageStore::~MessageStore() {
    if (m_spare != nullptr) {
        m_spare->Unref();
    }
}

Message* MessageStore::Take(std::size_t room) {
    Message* msg = m_spare != nullptr ? std::exchange(m_spare, nullptr) : Message::New();
    if (msg != nullptr && !msg->Frame().Reserve(room)) {
        msg->Unref();
        return nullptr;
    }
    return msg;
}

void MessageStore::GiveBack(Message* msg) {
    if (msg->IsShared()) {
        msg->DropUnusedFrame();
        msg->Unref();
    } else if (m_spare != nullptr) {
        msg->Unref();
    } else {
        msg->Recycle();
        m_spare = msg;
    }
}

} // namespace Kestrel
