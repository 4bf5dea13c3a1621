#include "appcfg/error.h"

namespace appcfg {
namespace {

const char* BadRequestMeaning(Request request) {
    switch (request) {
    case Request::CREATE:
        return "bad request: an invalid backup or default path, no such path for a file that is missing, or "
               "a file that cannot be read or copied";
    case Request::GET:
        return "bad request: a key is not in the document, or its value cannot be expanded";
    case Request::SET:
        return "bad request: a key is not in the document or a value cannot be stored there; pairs before it "
               "are set";
    case Request::RAW_SET:
        return "bad request: the key is unknown, or the data does not fit the document there";
    case Request::RESTORE:
        return "bad request: the item is read-only";
    case Request::CHANGE_KEY:
        return "bad request: a file could not be read in the old encryption or written in the new one";
    case Request::RAW_GET:
        return "bad request: the key is malformed";
    case Request::DELETE_ITEM:
        break;
    }
    return "bad request";
}

const char* NotFoundMeaning(Request request) {
    switch (request) {
    case Request::CREATE:
        return "not found: neither the file nor its backup nor its default exists";
    case Request::RAW_GET:
        return "not found: no item with this handle, or no such key in its document";
    default:
        return "not found: no item with this handle";
    }
}

const char* ForbiddenMeaning(Request request) {
    switch (request) {
    case Request::CREATE:
        return "forbidden: file, backup and default cannot be loaded with this storage type and encryption";
    case Request::CHANGE_KEY:
        return "forbidden: unsupported encryption";
    default:
        return "forbidden";
    }
}

} // namespace

const char* RequestName(Request request) {
    switch (request) {
    case Request::CREATE:
        return "create";
    case Request::DELETE_ITEM:
        return "delete";
    case Request::GET:
        return "get";
    case Request::SET:
        return "set";
    case Request::RAW_GET:
        return "raw get";
    case Request::RAW_SET:
        return "raw set";
    case Request::RESTORE:
        return "restore";
    case Request::CHANGE_KEY:
        return "rekey";
    }
    return "request";
}

const char* StatusMeaning(Request request, uint16_t status) {
    switch (status) {
    case 200:
        return request == Request::RESTORE
                   ? "accepted: restored, or as far as the default could be copied and loaded"
                   : "done";
    case 400:
        return BadRequestMeaning(request);
    case 403:
        return ForbiddenMeaning(request);
    case 404:
        return NotFoundMeaning(request);
    case 500:
        return "internal error: the service could not build the reply";
    default:
        return "a status that this client does not know";
    }
}

RequestRefused::RequestRefused(Request request, const std::string& handle, uint16_t status) :
    Error(std::string(RequestName(request)) + " " + handle + ": status " + std::to_string(status) + ", " +
          StatusMeaning(request, status)),
    m_request(request), m_status(status) {}

} // namespace appcfg
