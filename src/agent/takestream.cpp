#include "agent/takestream.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "agent/body.h"
#include "agent/eventtally.h"
#include "common/asciicase.h"
#include "common/jsontext.h"
#include "records/input/unpack.h"

// POST /v1/events in chunks, by a sender that need not know how much it will send. Its lines are
// committed piece by piece, and the next piece is asked for when the one before is on the disk: so
// the memory for a stream is that of two pieces, and while there is no room the sender's own
// buffers fill until it waits. A refusal tells where to go on.
//
// What has no lines, a JSON array or a file of another format, can only be read as a whole, and has
// the limits of a whole body.

namespace zel {

namespace {

constexpr std::uint64_t commitBytes = 1U << 20;
constexpr std::size_t stepBytes = 256U << 10;
constexpr std::size_t mostMagic = 16;  // bytes by which formats and packings are known

// What has come of a body, for a reader that asks for more than there is: that it waits is a
// failure to it, behind which it can be asked again.
class FedStream final : public ByteStream {
public:
    void Add(std::string_view bytes, bool isLast) {
        bytes_.erase(0, std::exchange(at_, 0));
        bytes_.append(bytes);
        isLast_ = isLast;
    }
    std::string_view Rest() const { return std::string_view(bytes_).substr(at_); }
    bool Awaits() const { return Rest().empty() && !isLast_; }
    long Read(char* buffer, std::size_t size, std::string* error) override {
        if (Awaits()) {
            *error = "more is to come";
            return -1;
        }
        const std::size_t count = std::min(size, Rest().size());
        std::memcpy(buffer, bytes_.data() + at_, count);
        at_ += count;
        return static_cast<long>(count);
    }

private:
    std::string bytes_;
    std::size_t at_ = 0;
    bool isLast_ = false;
};

class EventTaker final : public BodyTaker, public std::enable_shared_from_this<EventTaker> {
public:
    EventTaker(AgentParts& parts, const HttpHead& head)
        : parts_(parts),
          head_(head),
          isPacked_(!head.contentEncoding.empty() &&
                    !ZEL::EqualsNoCase(head.contentEncoding, "identity")),
          stream_(parts.store, parts.config, head.idempotencyKey),
          buffer_(stepBytes, '\0') {}

    void Take(std::string piece, bool isLast, const Next& next) override {
        sent_ += piece.size();
        isLast_ = isLast;
        fed_.Add(piece, isLast);
        piece = {};
        HttpReply refusal;
        if (!Open(&refusal))
            return next({std::move(refusal), false});
        while (stream_.Unsettled() < commitBytes && !hasEnded_ && ReadStep(&refusal)) {
        }
        if (refusal.status != 200)
            return next({std::move(refusal), false});
        if (form_ == Form::whole)
            return hasEnded_ ? TakeWhole(next) : next({});
        if (hasEnded_)
            stream_.End();
        Commit(next);
    }

    HttpReply Interrupt() override { return Stop(503, "the service stops", line_); }

private:
    enum class Form { unknown, lines, whole };

    // Ahead of the first bytes: what they are packed with.
    bool Open(HttpReply* refusal) {
        if (!isPacked_ || unpacker_)
            return true;
        const std::string_view encoding = head_.contentEncoding;
        if (!ZEL::EqualsNoCase(encoding, "gzip") && !ZEL::EqualsNoCase(encoding, "x-gzip") &&
            !ZEL::EqualsNoCase(encoding, "zstd")) {
            *refusal = PlainReply(415, "bodies may be packed with gzip or zstd");
            return false;
        }
        if (!isLast_ && fed_.Rest().size() < mostMagic)
            return true;
        unpacker_ = MakeUnpacker(fed_.Rest(), fed_);
        if (!unpacker_)
            *refusal = PlainReply(400, "the body is not packed as its Content-Encoding says");
        return unpacker_ != nullptr;
    }

    // False when nothing more can be read for now, or never.
    bool ReadStep(HttpReply* refusal) {
        if (isPacked_ && !unpacker_)
            return false;
        std::string problem;
        ByteStream& source = unpacker_ ? *unpacker_ : fed_;
        const long got = source.Read(buffer_.data(), buffer_.size(), &problem);
        if (got < 0 && fed_.Awaits())
            return false;
        if (got < 0)
            *refusal = Stop(400, problem, line_);
        hasEnded_ = got <= 0;
        return TakeBytes(std::string_view(buffer_).substr(
                             0, static_cast<std::size_t>(std::max<long>(got, 0))),
                         refusal) &&
               got > 0;
    }

    bool TakeBytes(std::string_view bytes, HttpReply* refusal) {
        if (form_ == Form::lines) {
            stream_.Feed(bytes);
            return true;
        }
        begin_.append(bytes);
        if (form_ == Form::unknown && (hasEnded_ || begin_.size() >= mostMagic)) {
            const std::size_t first = begin_.find_first_not_of(" \t\r\n\xEF\xBB\xBF");
            const bool isArray = first != begin_.npos && begin_[first] == '[';
            form_ = isArray || FindFileFormat(begin_) != nullptr ? Form::whole : Form::lines;
        }
        if (form_ == Form::lines)
            stream_.Feed(std::exchange(begin_, {}));
        const auto config = parts_.config.Now();
        if (begin_.size() > config->inflatedSize)
            *refusal = PlainReply(413, "the body is larger than http.inflated_size");
        else if (form_ == Form::whole && sent_ > config->bodySize)
            *refusal = PlainReply(413, "the body is larger than http.body_size");
        return refusal->status == 200;
    }

    void TakeWhole(const Next& next) {
        HttpRequest request{head_, std::move(begin_)};
        request.head.contentEncoding.clear();
        TakeEvents(parts_, request, [next](HttpReply reply) { next({std::move(reply), false}); });
    }

    // What happens behind the commit is told on the thread that commits, so it has to be short.
    void Commit(const Next& next) {
        const auto part = std::make_shared<StreamPart>(stream_.TakePart());
        part->delivery->source = intakeSource::events;
        part->delivery->sender = head_.Sender();
        auto done = [self = shared_from_this(), part, next](Verdict verdict) {
            if (verdict == Verdict::noRoom)
                return next({self->Stop(503, "there is no room", self->line_), false});
            self->line_ = part->line;
            self->tally_.Add(*part->delivery, part->problems, self->parts_.log);
            if (!self->hasEnded_)
                return next({std::nullopt, self->isLast_ || !self->fed_.Awaits()});
            HttpReply reply;
            reply.body = self->tally_.Json();
            next({std::move(reply), false});
        };
        if (part->delivery->items.empty())
            return done(Verdict::taken);
        parts_.admission.Submit(part->delivery, std::move(done));
    }

    HttpReply Stop(int status, const std::string& reason, std::uint64_t line) const {
        HttpReply reply{status,
                        "application/json",
                        tally_.Json(",\"reason\":" + wm::JsonString(reason) +
                                    ",\"next_line\":" + std::to_string(line)),
                        {}};
        if (status == 503)
            reply.headers.emplace_back("Retry-After", "5");
        return reply;
    }

    AgentParts& parts_;
    const HttpHead head_;
    const bool isPacked_;
    FedStream fed_;
    std::unique_ptr<ByteStream> unpacker_;
    Form form_ = Form::unknown;
    std::string begin_;  // until the form is known; of a whole body all of it
    LineStream stream_;
    std::string buffer_;
    EventTally tally_;
    std::uint64_t line_ = 1;  // the first that is not on the disk
    std::uint64_t sent_ = 0;
    bool isLast_ = false;    // no further piece comes
    bool hasEnded_ = false;  // and all was read
};

}  // namespace

std::shared_ptr<BodyTaker> MakeEventTaker(AgentParts& parts, const HttpHead& head) {
    return std::make_shared<EventTaker>(parts, head);
}

}  // namespace zel
