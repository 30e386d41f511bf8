#include <sys/socket.h>

#include <utility>

#include "agent/httpsteps.h"

namespace zel {

namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using ErrorCode = boost::system::error_code;
using Protocol = asio::generic::stream_protocol;

constexpr auto lingerTime = std::chrono::seconds(2);
constexpr std::size_t lingerBytes = 1U << 20;

}  // namespace

void HttpConnection::Write(HttpReply reply) {
    if (reply.isCut)
        return Close();
    closes_ = closes_ || reply.closes || server_.stopping;
    if (reply.stream)
        return WriteStream(std::move(reply));
    response_ = {};
    response_.version(11);
    response_.result(static_cast<unsigned>(reply.status));
    response_.set(http::field::content_type, reply.type);
    response_.set("X-Content-Type-Options", "nosniff");
    for (const auto& [name, value] : reply.headers)
        response_.set(name, value);
    response_.body() = std::move(reply.body);
    response_.keep_alive(!closes_);
    response_.prepare_payload();
    if (isHeadRequest_)
        response_.body().clear();  // its length stays
    stream_.expires_after(httpWriteTime);
    http::async_write(stream_, response_,
                      [self = shared_from_this()](ErrorCode error, std::size_t) {
                          if (!error)
                              self->OnWritten();
                      });
}

// An answer that comes by and by goes out in chunks. Each has as long as its reader may read
// nothing. The peer is watched from the first: it may have gone long before there is anything to
// write.
void HttpConnection::WriteStream(HttpReply reply) {
    answer_ = std::move(reply.stream);
    WatchPeer();
    if (!reply.statusOf)
        return WriteStreamHead(reply.status, reply);
    stream_.expires_never();
    answer_->WhenReady([self = Kept(), reply = std::move(reply)] {
        asio::post(self->server_.context,
                   [self, reply] { self->WriteStreamHead(reply.statusOf(*self->answer_), reply); });
    });
}

void HttpConnection::WriteStreamHead(int status, const HttpReply& reply) {
    streamHead_ = {};
    streamHead_.version(11);
    streamHead_.result(static_cast<unsigned>(status));
    streamHead_.set(http::field::content_type, reply.type);
    streamHead_.set("X-Content-Type-Options", "nosniff");
    for (const auto& [name, value] : reply.headers)
        streamHead_.set(name, value);
    streamHead_.keep_alive(!closes_);
    streamHead_.chunked(true);
    streamSerializer_.emplace(streamHead_);
    stream_.expires_after(httpWriteTime);
    http::async_write_header(stream_, *streamSerializer_,
                             [self = shared_from_this()](ErrorCode error, std::size_t) {
                                 if (error)
                                     return self->answer_->Cancel();
                                 self->AwaitPiece();
                             });
}

void HttpConnection::AwaitPiece() {
    stream_.expires_never();
    answer_->WhenReady(
        [self = Kept()] { asio::post(self->server_.context, [self] { self->WritePiece(); }); });
}

void HttpConnection::WritePiece() {
    if (!answer_->Take(&piece_))
        return EndStream();
    if (piece_.empty())
        return AwaitPiece();
    stream_.expires_after(answer_->LongestStall());
    asio::async_write(stream_, http::make_chunk(asio::buffer(piece_)),
                      [self = shared_from_this()](ErrorCode error, std::size_t) {
                          if (error)
                              return self->answer_->Cancel();
                          self->AwaitPiece();
                      });
}

void HttpConnection::EndStream() {
    answer_.reset();
    stream_.expires_after(httpWriteTime);
    asio::async_write(stream_, http::make_chunk_last(),
                      [self = shared_from_this()](ErrorCode error, std::size_t) {
                          if (!error)
                              self->OnWritten();
                      });
}

// A peer that goes away while its answer is made shows as the end of what it sends.
void HttpConnection::WatchPeer() {
    stream_.socket().async_wait(Protocol::socket::wait_read, [self = shared_from_this()](
                                                                 ErrorCode error) {
        char byte = 0;
        if (error || !self->answer_ ||
            ::recv(self->stream_.socket().native_handle(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) > 0)
            return;
        self->answer_->Cancel();
        self->Close();
    });
}

void HttpConnection::OnWritten() {
    if (!closes_)
        return AwaitRequest();
    ErrorCode ignored;
    stream_.socket().shutdown(Protocol::socket::shutdown_send, ignored);
    stream_.expires_after(lingerTime);
    isIdle_ = true;  // others that come go before it
    Linger();
}

void HttpConnection::Linger() {
    buffer_.clear();
    stream_.async_read_some(buffer_.prepare(65536),
                            [self = shared_from_this()](ErrorCode error, std::size_t bytes) {
                                self->lingered_ += bytes;
                                if (!error && self->lingered_ < lingerBytes)
                                    self->Linger();
                            });
}

}  // namespace zel
