#include "agent/httpconnection.h"

#include <algorithm>
#include <optional>

#include "agent/httpsteps.h"

// A connection goes in a circle: wait for the first byte (idle), read the head, ask the handler
// whether the body is wanted, read the body, hand the request over, write the answer. Each step has
// a limit of time. That of the body grows with what has come, by 10 KiB a second, so that a slow
// peer is told from a large one. An early answer is followed by a pause in which what the peer
// still sends is read and thrown away: closing at once could destroy the answer on its way.

namespace zel {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using ErrorCode = boost::system::error_code;
using std::chrono::seconds;
using SteadyClock = std::chrono::steady_clock;

std::string Text(beast::string_view text) {
    return {text.data(), text.size()};
}

}  // namespace

// The time for a head begins with its first byte: a connection that is kept may be silent longer.
void HttpConnection::AwaitRequest() {
    isIdle_ = true;
    since_ = SteadyClock::now();
    if (server_.stopping)
        return;
    if (buffer_.size() > 0)
        return ReadHead();
    stream_.expires_after(seconds(server_.limits.idleTime));
    stream_.async_read_some(buffer_.prepare(4096),
                            [self = shared_from_this()](ErrorCode error, std::size_t bytes) {
                                if (error)
                                    return;
                                self->buffer_.commit(bytes);
                                self->ReadHead();
                            });
}

void HttpConnection::ReadHead() {
    head_.emplace();
    head_->header_limit(server_.limits.head);
    head_->body_limit(server_.limits.body);
    stream_.expires_after(seconds(server_.limits.headerTime));
    http::async_read_header(stream_, buffer_, *head_,
                            [self = shared_from_this()](ErrorCode error, std::size_t) {
                                if (error)
                                    return self->RefuseUnread(error);
                                self->OnHead();
                            });
}

HttpHead HttpConnection::Head() const {
    const auto& message = head_->get();
    const auto field = [&](http::field name) { return Text(message[name]); };
    HttpHead head;
    const std::string target = Text(message.target());
    const std::size_t mark = std::min(target.find('?'), target.size());
    head.method = Text(message.method_string());
    head.path = target.substr(0, mark);
    head.query = target.substr(std::min(mark + 1, target.size()));
    head.host = field(http::field::host);
    head.origin = field(http::field::origin);
    head.fetchSite = Text(message["Sec-Fetch-Site"]);
    head.authorization = field(http::field::authorization);
    head.accept = field(http::field::accept);
    head.contentType = field(http::field::content_type);
    head.contentEncoding = field(http::field::content_encoding);
    head.idempotencyKey = Text(message["Idempotency-Key"]);
    head.cookie = field(http::field::cookie);
    head.ifNoneMatch = field(http::field::if_none_match);
    head.lastEventId = Text(message["Last-Event-ID"]);
    head.bodyLength = head_->content_length().value_or(0);
    head.isChunked = head_->chunked();
    head.hasBody = head_->chunked() || head.bodyLength > 0;
    head.port = port_;
    head.peer = peer_;
    return head;
}

// Two lengths, or a length beside chunks, are how requests are smuggled past a proxy.
void HttpConnection::OnHead() {
    isIdle_ = false;
    const auto& message = head_->get();
    const bool isDoubtful =
        message.count(http::field::content_length) + message.count(http::field::transfer_encoding) >
            1 ||
        message.count(http::field::host) > 1 ||
        (message.count(http::field::transfer_encoding) > 0 && !head_->chunked());
    told_ = Head();
    closes_ = !head_->keep_alive();
    isHeadRequest_ = message.method() == http::verb::head;
    std::optional<HttpReply> refusal;
    if (isDoubtful)
        refusal = HttpReply{400, "text/plain", "two lengths, hosts or encodings\n", {}, true};
    else
        refusal = server_.handler.Refuse(told_);
    if (refusal) {
        refusal->closes = refusal->closes || told_.hasBody;
        return WriteLater(std::move(*refusal));
    }
    ReadBody();
}

void HttpConnection::WriteLater(HttpReply reply) {
    if (reply.pause.count() == 0)
        return Write(std::move(reply));
    stream_.expires_never();
    isIdle_ = true;  // others that come go before it
    since_ = SteadyClock::now();
    timer_.expires_after(reply.pause);
    timer_.async_wait([self = shared_from_this(), reply = std::move(reply)](ErrorCode error) {
        if (!error)
            self->Write(reply);
    });
}

// Whoever expects 100 has waited with the body until here, so a refusal costs none of it.
void HttpConnection::ReadBody() {
    const bool expects =
        beast::iequals(head_->get()[http::field::expect], "100-continue") && told_.hasBody;
    request_.emplace(std::move(*head_));
    taker_ = server_.handler.TakerOf(told_);
    if (taker_)
        request_->body_limit(boost::none);
    else
        request_->body_limit(server_.limits.body);
    since_ = SteadyClock::now();
    bodyRead_ = 0;
    if (!expects)
        return ReadSome();
    static constexpr std::string_view goOn = "HTTP/1.1 100 Continue\r\n\r\n";
    stream_.expires_after(httpWriteTime);
    asio::async_write(stream_, asio::buffer(goOn.data(), goOn.size()),
                      [self = shared_from_this()](ErrorCode error, std::size_t) {
                          if (!error)
                              self->ReadSome();
                      });
}

void HttpConnection::ReadSome() {
    if (taker_) {
        pausedSince_ = since_;
        return ReadPiece();
    }
    if (request_->is_done())
        return HandOver();
    stream_.expires_at(since_ + httpBodyGrace +
                       seconds(static_cast<std::int64_t>(bodyRead_ / httpSlowestBody)));
    http::async_read_some(stream_, buffer_, *request_,
                          [self = shared_from_this()](ErrorCode error, std::size_t bytes) {
                              self->bodyRead_ += bytes;
                              if (error)
                                  return self->RefuseUnread(error);
                              self->ReadSome();
                          });
}

// What could not be read to its end. A peer that went away or was too slow hears nothing.
void HttpConnection::RefuseUnread(ErrorCode error) {
    if (error == http::error::body_limit)
        return Write({413, "text/plain", "the body is larger than http.body_size\n", {}, true});
    if (error == http::error::header_limit)
        return Write({431, "text/plain", "the head is too large\n", {}, true});
    const bool isFormat =
        error.category() == http::make_error_code(http::error::bad_method).category();
    if (isFormat && error != http::error::end_of_stream && error != http::error::partial_message)
        Write({400, "text/plain", "no HTTP request: " + error.message() + "\n", {}, true});
}

// The answer may come from any thread, and after the peer has gone.
void HttpConnection::HandOver() {
    stream_.expires_never();
    auto request = std::make_shared<HttpRequest>();
    request->head = std::move(told_);
    request->body = std::move(request_->get().body());
    request_.reset();
    auto answer = [self = Kept()](HttpReply reply) {
        asio::post(self->server_.context,
                   [self, reply = std::move(reply)]() mutable { self->Write(std::move(reply)); });
    };
    asio::post(server_.workers, [&handler = server_.handler, request, answer] {
        handler.Handle(std::move(*request), answer);
    });
}

void BeginHttpConnection(HttpServerState& server, asio::generic::stream_protocol::socket socket,
                         std::uint16_t port) {
    std::make_shared<HttpConnection>(server, std::move(socket), port)->AwaitRequest();
}

}  // namespace zel
