// The recorder's client for services on the same host: one HTTP request (RFC 9110), one reply, one
// deadline.
#pragma once

#include <map>
#include <string>

/// The query part of a request.
struct query_object {
    std::map<std::string, std::string> parameters;  ///< name to value, neither percent-encoded
    std::string fragment;                           ///< left empty by this system; not sent

    std::string& operator[](const std::string& name) { return parameters[name]; }
};

// The three calls share one contract.
//
// host      IP address of the service; only "127.0.0.1" is ever used
// port      TCP port, 1 to 65535
// path      absolute path, sent as it stands
// response  receives the reply body, byte for byte, NUL bytes included, at most 64 MiB; on failure
//           it keeps what it held before
// timeout   seconds for the whole call, from connecting to the last byte of the reply; a service
//           that drips bytes gains no time by it. Values below 1 or above 5 count as 5.
// the last four arguments belong to remote hosts (TLS, verification, retries, reply headers); pass
//           false, false, 0 and null
//
// Return 0 when the service answered with a status from 200 to 299 and the reply arrived whole.
// Otherwise a non-zero result:
//   -1          no connection, or it broke before the reply was complete, or the reply is no HTTP
//   -2          the time-out passed
//   -3          the reply is longer than 64 MiB
//   100 to 599  the service's own HTTP status when it is none of 200 to 299

/// Sends `body` with method PUT as application/json.
int ssci_PUT_request(const char* host, int port, const char* path, std::string body,
                     std::string& response, long timeout, bool use_tls, bool verify_peer,
                     int retries, char** reply_headers);

/// Sends GET with the parameters of `query` (null: none) percent-encoded.
int ssci_GET_request(const char* host, int port, const char* path, query_object* query,
                     std::string& response, long timeout, bool use_tls, bool verify_peer,
                     int retries, char** reply_headers);

/// Sends DELETE with the parameters of `query` (null: none) percent-encoded.
int ssci_DELETE_request(const char* host, int port, const char* path, query_object* query,
                        std::string& response, long timeout, bool use_tls, bool verify_peer,
                        int retries, char** reply_headers);
