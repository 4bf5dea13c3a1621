// What a client of the service can meet, as exceptions.
#ifndef APPCFG_ERROR_H
#define APPCFG_ERROR_H

#include <cstdint>
#include <stdexcept>
#include <string>

namespace appcfg {

enum class Request { CREATE, DELETE_ITEM, GET, SET, RAW_GET, RAW_SET, RESTORE, CHANGE_KEY };

// The name of a request as messages show it, such as "raw get".
const char* RequestName(Request request);

// What a status says about this kind of request, in words; also for a status that it never answers.
const char* StatusMeaning(Request request, uint16_t status);

class Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// An argument that cannot be sent; nothing has been sent.
class InvalidArgument : public Error {
public:
    using Error::Error;
};

// A value that was read but is not of the type that was asked for.
class ValueError : public Error {
public:
    using Error::Error;
};

// The service cannot be reached, has closed the connection, or answered something that is no reply. The
// connection is closed afterwards, and the items that it held are gone.
class ConnectionError : public Error {
public:
    using Error::Error;
};

// The connection, or a request with its reply, was not done within the connection's time-out. Whether the
// request was carried out is not known.
class TimeoutError : public ConnectionError {
public:
    using ConnectionError::ConnectionError;
};

// The service answered with another status than 200.
class RequestRefused : public Error {
public:
    RequestRefused(Request request, const std::string& handle, uint16_t status);

    Request GetRequest() const { return m_request; }
    uint16_t Status() const { return m_status; }
    const char* Meaning() const { return StatusMeaning(m_request, m_status); }

private:
    Request m_request;
    uint16_t m_status;
};

} // namespace appcfg

#endif
