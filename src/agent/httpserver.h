#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "agent/http.h"

// The library behind this stands in httpserver.cpp alone.
namespace zel {

struct HttpLimits {
    std::uint64_t connections = 0;
    std::uint64_t threads = 0;
    std::uint64_t body = 0;        // bytes
    std::uint64_t headerTime = 0;  // seconds
    std::uint64_t idleTime = 0;
    std::uint32_t head = 8192;  // bytes
};

// Serves a Unix socket, a port of 127.0.0.1, or both. A peer that is slow, large or silent costs a
// connection and no thread, and that for a bounded time.
class HttpServer {
public:
    // `connections` is kept up to date. All outlive the server.
    HttpServer(IHttpHandler& handler, const HttpLimits& limits,
               std::atomic<std::uint64_t>& connections);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    // A socket that nobody serves any more is replaced. False, with a message, when it can't be
    // had.
    bool ListenAt(const std::string& path, std::string* problem);
    bool ListenAt(std::uint16_t port, std::string* problem);
    // That it listens at; 0 for none. Port 0 is a free one until then.
    std::uint16_t Port() const;
    // At a Unix socket that another process listens at as well, such as the service manager: those
    // who come while nobody serves it wait. The server owns the descriptor, and leaves the file.
    bool ListenOn(int descriptor, std::string* problem);
    void Start();
    // Takes no more connections, closes those without a request, and waits for the others to be
    // answered, for at most ten seconds.
    void Stop();

private:
    struct Impl;
    const std::unique_ptr<Impl> impl_;
};

}  // namespace zel
