#include "app_cfg_reply.h"

#include <cstring>

#include "app_cfg_limits.h"
#include "app_cfg_log.h"

namespace SystemServer {

namespace {

constexpr uint32_t WORD_SIZE = sizeof(uint32_t);
constexpr uint32_t RAW_DATA_OFFSET = sizeof(AppCfgRawDataReq);

uint64_t DataReplySize(const std::vector<std::string>& values) {
    uint64_t size = WORD_SIZE;
    for (const std::string& value : values) {
        size += WORD_SIZE + value.size();
    }
    return size;
}

// Copies byte by byte: values follow each other without gaps, so that a length word may be unaligned.
uint8_t* PutWord(uint8_t* at, size_t word) {
    const auto value = static_cast<uint32_t>(word);
    std::memcpy(at, &value, WORD_SIZE);
    return at + WORD_SIZE;
}

} // namespace

void BuildDataReply(tern_message* msg, const kestrel_connection* conn, const std::vector<std::string>& values,
                    ReplyMsgInfo& reply) {
    const uint64_t size = DataReplySize(values);
    if (size > MAX_REPLY_BYTES) {
        ACM_LOG(ACM_ERROR, "[connect fd[%d] : reply of %llu bytes is too long.", conn->fd,
                static_cast<unsigned long long>(size));
        return;
    }
    auto* const buffer = static_cast<uint8_t*>(pcalloc(msg->pool, static_cast<size_t>(size)));
    if (buffer == nullptr) {
        ACM_LOG(ACM_ERROR, "Failed to pcalloc buf len %u", static_cast<unsigned>(size));
        return;
    }
    uint8_t* at = PutWord(buffer, values.size());
    for (const std::string& value : values) {
        at = PutWord(at, value.size());
        if (value.empty()) {
            continue;
        }
        const int fault = memcpy_s(at, value.size(), value.data(), value.size());
        if (fault != 0) {
            ACM_LOG(ACM_ERROR, "[connect fd[%d] : call memcpy_s fail.return code[%d].", conn->fd, fault);
            return;
        }
        at += value.size();
    }
    reply = {APP_CFG_STATUS_OK, buffer, static_cast<uint32_t>(size)};
}

void BuildRawReply(tern_message* msg, AppCfgRawDataReq& request, const std::string& query,
                   const std::string& fragment, ReplyMsgInfo& reply) {
    reply.status = APP_CFG_STATUS_INTERNAL_ERROR;
    const uint64_t size = uint64_t{fragment.size()} + RAW_DATA_OFFSET + 1;
    auto* const buffer = size > MAX_REPLY_BYTES
                             ? nullptr
                             : static_cast<uint8_t*>(pcalloc(msg->pool, static_cast<size_t>(size)));
    if (buffer == nullptr) {
        ACM_LOG(ACM_ERROR, "Failed to pcalloc buf len %u", static_cast<unsigned>(size));
        return;
    }
    const auto total = static_cast<uint32_t>(size);
    const uint32_t dataLen = total - RAW_DATA_OFFSET;
    buffer[total - 1] = 0;
    if (memcpy_s(buffer + RAW_DATA_OFFSET, dataLen, fragment.data(), fragment.size()) != 0) {
        ACM_LOG(ACM_ERROR, "Failed to memcpy query XML %s", query.c_str());
        return;
    }
    request.dataLen = dataLen;
    ACM_LOG(ACM_INFO, "dataLen is %u, total is %u offsetPos %u", dataLen, total, RAW_DATA_OFFSET);
    if (memcpy_s(buffer, RAW_DATA_OFFSET, &request.dataLen, WORD_SIZE) != 0) {
        ACM_LOG(ACM_ERROR, "Failed to memcpy query %s", query.c_str());
        return;
    }
    PutWord(buffer + offsetof(AppCfgRawDataReq, dataLen), dataLen);
    reply = {APP_CFG_STATUS_OK, buffer, total};
}

} // namespace SystemServer
