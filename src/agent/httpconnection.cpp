#include "agent/httpconnection.h"

#include <sys/socket.h>

#include <algorithm>
#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <optional>

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
using Protocol = asio::generic::stream_protocol;
using Stream = beast::basic_stream<Protocol>;
using std::chrono::seconds;
using SteadyClock = std::chrono::steady_clock;

constexpr std::uint32_t headerLimit = 8192;      // bytes
constexpr std::size_t bufferLimit = 256U << 10;  // bytes; what is no chunk does not grow further
constexpr std::uint64_t slowestBody = 10240;     // bytes a second, past the first time
constexpr auto bodyGrace = seconds(10);
constexpr auto writeTime = seconds(30);
constexpr auto lingerTime = seconds(2);
constexpr std::size_t lingerBytes = 1U << 20;
constexpr std::size_t pieceBytes = 1U << 20;  // of a body that is taken in pieces
constexpr auto pieceTime = std::chrono::milliseconds(200);

std::string Text(beast::string_view text) {
    return {text.data(), text.size()};
}

class Connection final : public IHttpConnection, public std::enable_shared_from_this<Connection> {
public:
    Connection(HttpServerState& server, Protocol::socket socket, std::uint16_t port)
        : server_(server),
          stream_(std::move(socket)),
          port_(port),
          peer_(port == 0 ? PeerOf(stream_.socket().native_handle()) : Peer()) {
        server_.connections.insert(this);
        server_.count = server_.connections.size();
    }
    ~Connection() {
        if (answer_)
            answer_->Cancel();
        Leave();
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void AwaitRequest();
    bool IsIdle() const noexcept override { return isIdle_; }
    SteadyClock::time_point Since() const noexcept override { return since_; }
    void Close() override {
        isIdle_ = false;
        Leave();
        stream_.close();
    }

private:
    // For whoever answers: may be dropped on any thread, where a last reference of the ordinary
    // kind would end the connection right there, beside the server's thread.
    std::shared_ptr<Connection> Kept() {
        return {this, [self = shared_from_this()](Connection*) mutable {
                    asio::io_context& context = self->server_.context;
                    asio::post(context, [self = std::move(self)] {});
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
    void OnPieceRead(ErrorCode error, std::size_t bytes);
    void OfferPiece();
    void GivePiece(std::string piece, bool isLast);
    void OnPieceTaken(BodyStep step);
    void EndPieces(HttpReply reply);
    void HandOver();
    void RefuseUnread(ErrorCode error);
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
    Stream stream_;
    const std::uint16_t port_;
    beast::flat_buffer buffer_{bufferLimit};
    std::optional<http::request_parser<http::empty_body>> head_;
    std::optional<http::request_parser<http::string_body>> request_;
    http::response<http::string_body> response_;
    http::response<http::empty_body> streamHead_;
    std::optional<http::response_serializer<http::empty_body>> streamSerializer_;
    std::shared_ptr<AnswerStream> answer_;  // while it is sent
    std::string piece_;
    const Peer peer_;
    HttpHead told_;
    bool isIdle_ = true;
    bool closes_ = false;
    bool isHeadRequest_ = false;
    SteadyClock::time_point since_ = SteadyClock::now();
    std::uint64_t bodyRead_ = 0;
    asio::steady_timer timer_{server_.context};
    // While a body is taken in pieces.
    std::shared_ptr<BodyTaker> taker_;
    std::optional<SteadyClock::time_point> pieceSince_;  // when its first byte came
    SteadyClock::time_point pausedSince_;
    std::optional<HttpReply> early_;  // waits for the end of a read
    bool isReading_ = false;
    bool isTaking_ = false;
    bool gaveLast_ = false;
    std::size_t lingered_ = 0;
};

// The time for a head begins with its first byte: a connection that is kept may be silent longer.
void Connection::AwaitRequest() {
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

void Connection::ReadHead() {
    head_.emplace();
    head_->header_limit(headerLimit);
    head_->body_limit(server_.limits.body);
    stream_.expires_after(seconds(server_.limits.headerTime));
    http::async_read_header(stream_, buffer_, *head_,
                            [self = shared_from_this()](ErrorCode error, std::size_t) {
                                if (error)
                                    return self->RefuseUnread(error);
                                self->OnHead();
                            });
}

HttpHead Connection::Head() const {
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
void Connection::OnHead() {
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

void Connection::WriteLater(HttpReply reply) {
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
void Connection::ReadBody() {
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
    stream_.expires_after(writeTime);
    asio::async_write(stream_, asio::buffer(goOn.data(), goOn.size()),
                      [self = shared_from_this()](ErrorCode error, std::size_t) {
                          if (!error)
                              self->ReadSome();
                      });
}

void Connection::ReadSome() {
    if (taker_) {
        pausedSince_ = since_;
        return ReadPiece();
    }
    if (request_->is_done())
        return HandOver();
    stream_.expires_at(since_ + bodyGrace +
                       seconds(static_cast<std::int64_t>(bodyRead_ / slowestBody)));
    http::async_read_some(stream_, buffer_, *request_,
                          [self = shared_from_this()](ErrorCode error, std::size_t bytes) {
                              self->bodyRead_ += bytes;
                              if (error)
                                  return self->RefuseUnread(error);
                              self->ReadSome();
                          });
}

// Of a body that is taken in pieces one piece is read while the one before is being taken, and no
// more: the peer waits. What it waits for us does not count against it.
void Connection::ReadPiece() {
    if (isReading_ || request_->is_done() || request_->get().body().size() >= pieceBytes)
        return;
    isReading_ = true;
    since_ += SteadyClock::now() - pausedSince_;
    stream_.expires_at(since_ + bodyGrace +
                       seconds(static_cast<std::int64_t>(bodyRead_ / slowestBody)));
    http::async_read_some(stream_, buffer_, *request_,
                          [self = shared_from_this()](ErrorCode error, std::size_t bytes) {
                              self->OnPieceRead(error, bytes);
                          });
}

void Connection::OnPieceRead(ErrorCode error, std::size_t bytes) {
    isReading_ = false;
    bodyRead_ += bytes;
    pausedSince_ = SteadyClock::now();
    if (early_)
        return EndPieces(std::move(*early_));
    if (error) {
        taker_.reset();
        return RefuseUnread(error);
    }
    if (!pieceSince_)
        pieceSince_ = pausedSince_;
    OfferPiece();
    ReadPiece();
}

// A piece goes when it is large enough, when it has waited long enough, or when it is the last.
void Connection::OfferPiece() {
    if (!taker_ || isTaking_)
        return;
    std::string& body = request_->get().body();
    const bool isLast = request_->is_done();
    if (body.empty() && !isLast)
        return;
    const auto due = pieceSince_.value_or(SteadyClock::now()) + pieceTime;
    if (isLast || body.size() >= pieceBytes || SteadyClock::now() >= due) {
        pieceSince_.reset();
        return GivePiece(std::exchange(body, {}), isLast);
    }
    timer_.expires_at(due);
    timer_.async_wait([self = shared_from_this()](ErrorCode error) {
        if (!error)
            self->OfferPiece();
    });
}

void Connection::GivePiece(std::string piece, bool isLast) {
    isTaking_ = true;
    gaveLast_ = isLast;
    auto next = [self = Kept()](BodyStep step) {
        asio::post(self->server_.context, [self, step = std::move(step)]() mutable {
            self->OnPieceTaken(std::move(step));
        });
    };
    asio::post(server_.workers, [taker = taker_, piece = std::move(piece), isLast, next]() mutable {
        taker->Take(std::move(piece), isLast, next);
    });
}

void Connection::OnPieceTaken(BodyStep step) {
    isTaking_ = false;
    if (!taker_)
        return;
    if (!step.reply && server_.stopping)
        step.reply = taker_->Interrupt();
    if (!step.reply && step.again)
        return GivePiece(std::string(), gaveLast_);
    if (!step.reply) {
        OfferPiece();
        return ReadPiece();
    }
    if (!isReading_)
        return EndPieces(std::move(*step.reply));
    early_ = std::move(step.reply);
    stream_.cancel();
}

void Connection::EndPieces(HttpReply reply) {
    early_.reset();
    taker_.reset();
    pieceSince_.reset();
    reply.closes = reply.closes || !request_->is_done();
    request_.reset();
    Write(std::move(reply));
}

// What could not be read to its end. A peer that went away or was too slow hears nothing.
void Connection::RefuseUnread(ErrorCode error) {
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
void Connection::HandOver() {
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

void Connection::Write(HttpReply reply) {
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
    stream_.expires_after(writeTime);
    http::async_write(stream_, response_,
                      [self = shared_from_this()](ErrorCode error, std::size_t) {
                          if (!error)
                              self->OnWritten();
                      });
}

// An answer that comes by and by goes out in chunks. Each has as long as its reader may read
// nothing. The peer is watched from the first: it may have gone long before there is anything to
// write.
void Connection::WriteStream(HttpReply reply) {
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

void Connection::WriteStreamHead(int status, const HttpReply& reply) {
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
    stream_.expires_after(writeTime);
    http::async_write_header(stream_, *streamSerializer_,
                             [self = shared_from_this()](ErrorCode error, std::size_t) {
                                 if (error)
                                     return self->answer_->Cancel();
                                 self->AwaitPiece();
                             });
}

void Connection::AwaitPiece() {
    stream_.expires_never();
    answer_->WhenReady(
        [self = Kept()] { asio::post(self->server_.context, [self] { self->WritePiece(); }); });
}

void Connection::WritePiece() {
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

void Connection::EndStream() {
    answer_.reset();
    stream_.expires_after(writeTime);
    asio::async_write(stream_, http::make_chunk_last(),
                      [self = shared_from_this()](ErrorCode error, std::size_t) {
                          if (!error)
                              self->OnWritten();
                      });
}

// A peer that goes away while its answer is made shows as the end of what it sends.
void Connection::WatchPeer() {
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

void Connection::OnWritten() {
    if (!closes_)
        return AwaitRequest();
    ErrorCode ignored;
    stream_.socket().shutdown(Protocol::socket::shutdown_send, ignored);
    stream_.expires_after(lingerTime);
    isIdle_ = true;  // others that come go before it
    Linger();
}

void Connection::Linger() {
    buffer_.clear();
    stream_.async_read_some(buffer_.prepare(65536),
                            [self = shared_from_this()](ErrorCode error, std::size_t bytes) {
                                self->lingered_ += bytes;
                                if (!error && self->lingered_ < lingerBytes)
                                    self->Linger();
                            });
}

}  // namespace

void BeginHttpConnection(HttpServerState& server, Protocol::socket socket, std::uint16_t port) {
    std::make_shared<Connection>(server, std::move(socket), port)->AwaitRequest();
}

}  // namespace zel
