// cpp-httplib's server with bounds on what a client can hold: a request's headers and body each
// arrive within a deadline (a client sending a byte now and then is cut off, as Apache's
// mod_reqtimeout does), an idle connection is closed, a request larger than the limit ends its
// connection, and up to kWorkers connections are served at once while more wait their turn.
// The handlers refuse a request by calling CloseAfterAnswer: its connection ends with the
// answer, so a client without the token holds no worker after it.
#pragma once

#include <httplib.h>

#include <atomic>
#include <cstddef>

namespace preview {

struct ServerBounds {
    int firstByteMs = 2000;      // a new connection's wait for its first request
    int keepAliveMs = 5000;      // an open connection's wait for its next request
    int headerMs = 2000;         // request line and headers, from their first byte
    int bodyMs = 10000;          // the body, from the end of the headers
    int writeMs = 5000;          // each part of the answer
    size_t maxRequestBytes = 0;  // headers and body; more ends the connection
};

// 64 slow or idle clients still leave workers free: each holds one for its deadlines at most.
constexpr size_t kWorkers = 96;

class GuardedServer : public httplib::Server {
  public:
    explicit GuardedServer(const ServerBounds& bounds);
    // The connection of the request this thread handles ends after its answer.
    static void CloseAfterAnswer();

  private:
    bool process_and_close_socket(socket_t sock) override;
    ServerBounds m_bounds;
};

}  // namespace preview
