#include <string>
#include <utility>

#include "agent/httpsteps.h"

namespace zel {

namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using ErrorCode = boost::system::error_code;
using std::chrono::seconds;
using SteadyClock = std::chrono::steady_clock;

constexpr std::size_t pieceBytes = 1U << 20;
constexpr auto pieceTime = std::chrono::milliseconds(200);

}  // namespace

// Of a body that is taken in pieces one piece is read while the one before is being taken, and no
// more: the peer waits. What it waits for us does not count against it.
void HttpConnection::ReadPiece() {
    if (isReading_ || request_->is_done() || request_->get().body().size() >= pieceBytes)
        return;
    isReading_ = true;
    since_ += SteadyClock::now() - pausedSince_;
    stream_.expires_at(since_ + httpBodyGrace +
                       seconds(static_cast<std::int64_t>(bodyRead_ / httpSlowestBody)));
    http::async_read_some(stream_, buffer_, *request_,
                          [self = shared_from_this()](ErrorCode error, std::size_t bytes) {
                              self->OnPieceRead(error, bytes);
                          });
}

void HttpConnection::OnPieceRead(ErrorCode error, std::size_t bytes) {
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
void HttpConnection::OfferPiece() {
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

void HttpConnection::GivePiece(std::string piece, bool isLast) {
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

void HttpConnection::OnPieceTaken(BodyStep step) {
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

void HttpConnection::EndPieces(HttpReply reply) {
    early_.reset();
    taker_.reset();
    pieceSince_.reset();
    reply.closes = reply.closes || !request_->is_done();
    request_.reset();
    Write(std::move(reply));
}

}  // namespace zel
