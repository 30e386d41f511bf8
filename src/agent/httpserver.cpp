#include "agent/httpserver.h"

#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <boost/asio.hpp>
#include <cerrno>
#include <chrono>
#include <thread>

#include "agent/httpconnection.h"

// The server. One thread serves all connections, none of which it ever waits for; bodies are worked
// on by a few others. So what belongs to a connection is touched by the one thread alone and needs
// no lock.

namespace zel {

namespace {

namespace asio = boost::asio;
using ErrorCode = boost::system::error_code;
using Protocol = asio::generic::stream_protocol;
using std::chrono::seconds;
using SteadyClock = std::chrono::steady_clock;

// A socket file that a process left behind is taken away; one that answers is another's.
bool IsServed(const std::string& path) {
    asio::io_context context;
    asio::local::stream_protocol::socket probe(context);
    ErrorCode error;
    probe.connect(asio::local::stream_protocol::endpoint(path), error);
    return !error;
}

}  // namespace

struct HttpServer::Impl : HttpServerState {
    using HttpServerState::HttpServerState;

    asio::local::stream_protocol::acceptor socket{context};
    asio::ip::tcp::acceptor port{context};
    asio::steady_timer socketPause{context}, portPause{context};
    std::string socketPath;
    struct stat socketFile {};
    std::thread thread;

    template <typename Acceptor>
    void Accept(Acceptor& acceptor, asio::steady_timer& pause, std::uint16_t portNumber);
    void RemoveSocket();
    void MakeRoom();
    void CloseIdle();
};

// Beyond the limit the one that has been silent longest goes. When all are at work the new one is
// closed: who comes again later is served then.
void HttpServer::Impl::MakeRoom() {
    IHttpConnection* oldest = nullptr;
    for (IHttpConnection* const one : connections)
        if (one->IsIdle() && (oldest == nullptr || one->Since() < oldest->Since()))
            oldest = one;
    if (oldest != nullptr && connections.size() >= limits.connections)
        oldest->Close();
}

void HttpServer::Impl::CloseIdle() {
    const std::set<IHttpConnection*> all = connections;  // those that are closed leave it
    for (IHttpConnection* const one : all)
        if (one->IsIdle())
            one->Close();
}

// Who can't be taken for want of descriptors or memory stays in the line, so that the next call
// fails at once, too: a pause keeps that from taking a whole processor.
template <typename Acceptor>
void HttpServer::Impl::Accept(Acceptor& acceptor, asio::steady_timer& pause,
                              std::uint16_t portNumber) {
    acceptor.async_accept([this, &acceptor, &pause, portNumber](ErrorCode error, auto peer) {
        if (stopping || error == asio::error::operation_aborted)
            return;
        if (!error) {
            MakeRoom();
            if (connections.size() < limits.connections)
                BeginHttpConnection(*this, Protocol::socket(std::move(peer)), portNumber);
            return Accept(acceptor, pause, portNumber);
        }
        pause.expires_after(std::chrono::milliseconds(100));
        pause.async_wait([this, &acceptor, &pause, portNumber](ErrorCode) {
            if (!stopping)
                Accept(acceptor, pause, portNumber);
        });
    });
}

// The file may be another process's by now, when somebody has removed this one's.
void HttpServer::Impl::RemoveSocket() {
    struct stat now {};
    if (!socketPath.empty() && ::lstat(socketPath.c_str(), &now) == 0 &&
        now.st_dev == socketFile.st_dev && now.st_ino == socketFile.st_ino)
        ::unlink(socketPath.c_str());
}

HttpServer::HttpServer(IHttpHandler& handler, const HttpLimits& limits,
                       std::atomic<std::uint64_t>& connections)
    : impl_(std::make_unique<Impl>(handler, limits, connections)) {}

HttpServer::~HttpServer() {
    Stop();
}

bool HttpServer::ListenAt(const std::string& path, std::string* problem) {
    if (path.size() >= sizeof(sockaddr_un::sun_path)) {
        *problem = "the socket's path is too long: " + path;
        return false;
    }
    struct stat info {};
    if (::lstat(path.c_str(), &info) == 0 && S_ISSOCK(info.st_mode)) {
        if (IsServed(path)) {
            *problem = "another process serves " + path;
            return false;
        }
        ::unlink(path.c_str());
    }
    ErrorCode error;
    impl_->socket.open({}, error);
    if (!error)
        impl_->socket.bind(asio::local::stream_protocol::endpoint(path), error);
    // Nobody can connect yet. The mask of the process belongs to the store's threads as well.
    constexpr mode_t ownerAndGroup = 0660;
    if (!error && ::chmod(path.c_str(), ownerAndGroup) != 0)
        error.assign(errno, boost::system::system_category());
    if (!error)
        impl_->socket.listen(asio::socket_base::max_listen_connections, error);
    if (error)
        *problem = "can't listen at " + path + ": " + error.message();
    else if (::lstat(path.c_str(), &impl_->socketFile) == 0)
        impl_->socketPath = path;
    return !error;
}

bool HttpServer::ListenAt(std::uint16_t port, std::string* problem) {
    const asio::ip::tcp::endpoint place(asio::ip::address_v4::loopback(), port);
    ErrorCode error;
    impl_->port.open(place.protocol(), error);
    if (!error)
        impl_->port.set_option(asio::socket_base::reuse_address(true), error);
    if (!error)
        impl_->port.bind(place, error);
    if (!error)
        impl_->port.listen(asio::socket_base::max_listen_connections, error);
    if (error)
        *problem = "can't listen at 127.0.0.1:" + std::to_string(port) + ": " + error.message();
    return !error;
}

std::uint16_t HttpServer::Port() const {
    ErrorCode none;
    return impl_->port.is_open() ? impl_->port.local_endpoint(none).port() : std::uint16_t{0};
}

bool HttpServer::ListenOn(int descriptor, std::string* problem) {
    ErrorCode error;
    impl_->socket.assign({}, descriptor, error);
    if (error)
        *problem = "can't listen at the socket that was handed over: " + error.message();
    return !error;
}

void HttpServer::Start() {
    if (impl_->socket.is_open())
        impl_->Accept(impl_->socket, impl_->socketPause, 0);
    if (impl_->port.is_open())
        impl_->Accept(impl_->port, impl_->portPause, Port());
    // While all requests are in the hands of others the thread has nothing to do, and waits.
    impl_->thread = std::thread([this] {
        const auto work = asio::make_work_guard(impl_->context);
        impl_->context.run();
    });
}

void HttpServer::Stop() {
    if (!impl_->thread.joinable())
        return;
    asio::post(impl_->context, [this] {
        impl_->stopping = true;
        impl_->socket.close();
        impl_->port.close();
        impl_->socketPause.cancel();
        impl_->portPause.cancel();
        impl_->CloseIdle();
    });
    constexpr auto longest = seconds(10);
    const auto until = SteadyClock::now() + longest;
    while (impl_->count > 0 && SteadyClock::now() < until)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    impl_->workers.join();
    impl_->context.stop();
    impl_->thread.join();
    impl_->RemoveSocket();
}

}  // namespace zel
