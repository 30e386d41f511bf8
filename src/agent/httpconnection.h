#pragma once

#include <atomic>
#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/thread_pool.hpp>
#include <chrono>
#include <cstdint>
#include <memory>
#include <set>

#include "agent/http.h"
#include "agent/httpserver.h"

// One connection of the server; for httpserver.cpp alone.
namespace zel {

// A connection, as the server sees it. It lives until its last step has been told; all of it, its
// end included, happens on the thread of the server's context.
class IHttpConnection {
public:
    // Whether it may be closed for want of room, and since when it waits.
    virtual bool IsIdle() const noexcept = 0;
    virtual std::chrono::steady_clock::time_point Since() const noexcept = 0;
    // It counts no more from here on.
    virtual void Close() = 0;

protected:
    ~IHttpConnection() = default;
};

// What all connections of a server share; of its thread alone, but for the handler and the workers.
struct HttpServerState {
    IHttpHandler& handler;
    const HttpLimits limits;
    std::atomic<std::uint64_t>& count;
    std::set<IHttpConnection*> connections;
    bool stopping = false;
    // Behind what connections need to the last: with it go those that were not closed.
    boost::asio::io_context context{1};
    boost::asio::thread_pool workers;

    HttpServerState(IHttpHandler& theHandler, const HttpLimits& theLimits,
                    std::atomic<std::uint64_t>& theCount)
        : handler(theHandler),
          limits(theLimits),
          count(theCount),
          workers(static_cast<std::size_t>(theLimits.threads)) {}
};

// Serves a peer until either side has enough. `port` is 0 for the Unix socket. On the server's
// thread.
void BeginHttpConnection(HttpServerState& server,
                         boost::asio::generic::stream_protocol::socket socket, std::uint16_t port);

}  // namespace zel
