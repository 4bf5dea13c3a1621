// Building the contents of replies, in the pool of the message that they answer.
#ifndef APP_CFG_REPLY_H
#define APP_CFG_REPLY_H

#include <string>
#include <vector>

#include "app_cfg_framework.h"
#include "app_cfg_wire.h"

namespace SystemServer {

// What a handler answers. The content comes from the request's pool and lives as long as its message.
struct ReplyMsgInfo {
    uint16_t status;
    void* content;
    uint32_t contentLen;
};

// Fills the reply with the values and status 200; leaves it as it is, with a log line, when it cannot.
void BuildDataReply(tern_message* msg, const kestrel_connection* conn, const std::vector<std::string>& values,
                    ReplyMsgInfo& reply);

// Fills the reply with the fragment that the request asked for and status 200, or with status 500 and a log
// line when it cannot. The request's dataLen is changed in place.
void BuildRawReply(tern_message* msg, AppCfgRawDataReq& request, const std::string& query,
                   const std::string& fragment, ReplyMsgInfo& reply);

} // namespace SystemServer

#endif
