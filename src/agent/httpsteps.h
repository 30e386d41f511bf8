#pragma once

#include <utility>
// Asio uses std::exchange without it.
#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "agent/httpconnection.h"

namespace zel {

inline constexpr std::size_t httpBufferLimit =
    256U << 10;  // bytes; what is no chunk does not grow further
inline constexpr std::uint64_t httpSlowestBody = 10240;  // bytes a second, past the first time
inline constexpr auto httpBodyGrace = std::chrono::seconds(10);
inline constexpr auto httpWriteTime = std::chrono::seconds(30);

// One connection, for the sources of its steps alone: httpconnection.cpp reads heads and whole
// bodies, httpbody.cpp takes bodies in pieces, httpanswer.cpp writes.
class HttpConnection final : public IHttpConnection,
                             public std::enable_shared_from_this<HttpConnection> {
public:
    HttpConnection(HttpServerState& server, boost::asio::generic::stream_protocol::socket socket,
                   std::uint16_t port)
        : server_(server),
          stream_(std::move(socket)),
          port_(port),
          peer_(port == 0 ? PeerOf(stream_.socket().native_handle()) : Peer()) {
        server_.connections.insert(this);
        server_.count = server_.connections.size();
    }
    ~HttpConnection() {
        if (answer_)
            answer_->Cancel();
        Leave();
    }
    HttpConnection(const HttpConnection&) = delete;
    HttpConnection& operator=(const HttpConnection&) = delete;

    void AwaitRequest();
    bool IsIdle() const noexcept override { return isIdle_; }
    std::chrono::steady_clock::time_point Since() const noexcept override { return since_; }
    void Close() override {
        isIdle_ = false;
        Leave();
        stream_.close();
    }

private:
    // For whoever answers: may be dropped on any thread, where a last reference of the ordinary
    // kind would end the connection right there, beside the server's thread.
    std::shared_ptr<HttpConnection> Kept() {
        return {this, [self = shared_from_this()](HttpConnection*) mutable {
                    boost::asio::io_context& context = self->server_.context;
                    boost::asio::post(context, [self = std::move(self)] {});
                }};
    }
    void Leave() {
        server_.connections.erase(this);
        server_.count = server_.connections.size();
    }
    void ReadHead();
    void OnHead();
    HttpHead Head() const;
    void ReadBody();
    void ReadSome();
    void ReadPiece();
    void OnPieceRead(boost::system::error_code error, std::size_t bytes);
    void OfferPiece();
    void GivePiece(std::string piece, bool isLast);
    void OnPieceTaken(BodyStep step);
    void EndPieces(HttpReply reply);
    void HandOver();
    void RefuseUnread(boost::system::error_code error);
    void WriteLater(HttpReply reply);
    void Write(HttpReply reply);
    void OnWritten();
    void WriteStream(HttpReply reply);
    void WriteStreamHead(int status, const HttpReply& reply);
    void AwaitPiece();
    void WritePiece();
    void EndStream();
    void WatchPeer();
    void Linger();

    HttpServerState& server_;
    boost::beast::basic_stream<boost::asio::generic::stream_protocol> stream_;
    const std::uint16_t port_;
    boost::beast::flat_buffer buffer_{std::max<std::size_t>(httpBufferLimit, server_.limits.head)};
    std::optional<boost::beast::http::request_parser<boost::beast::http::empty_body>> head_;
    std::optional<boost::beast::http::request_parser<boost::beast::http::string_body>> request_;
    boost::beast::http::response<boost::beast::http::string_body> response_;
    boost::beast::http::response<boost::beast::http::empty_body> streamHead_;
    std::optional<boost::beast::http::response_serializer<boost::beast::http::empty_body>>
        streamSerializer_;
    std::shared_ptr<AnswerStream> answer_;  // while it is sent
    std::string piece_;
    const Peer peer_;
    HttpHead told_;
    bool isIdle_ = true;
    bool closes_ = false;
    bool isHeadRequest_ = false;
    std::chrono::steady_clock::time_point since_ = std::chrono::steady_clock::now();
    std::uint64_t bodyRead_ = 0;
    boost::asio::steady_timer timer_{server_.context};
    // While a body is taken in pieces.
    std::shared_ptr<BodyTaker> taker_;
    std::optional<std::chrono::steady_clock::time_point> pieceSince_;  // when its first byte came
    std::chrono::steady_clock::time_point pausedSince_;
    std::optional<HttpReply> early_;  // waits for the end of a read
    bool isReading_ = false;
    bool isTaking_ = false;
    bool gaveLast_ = false;
    std::size_t lingered_ = 0;
};

}  // namespace zel
