#include "agent/linestream.h"

#include "agent/body.h"

namespace zel {

namespace {

// Beyond that an event that waits for further lines waits no longer, so that the places of the
// lines behind it are bounded.
constexpr std::size_t mostPlaces = 50000;

constexpr std::size_t mostDetails = 100;  // of a part's problems; the kinds of all are counted

}  // namespace

LineStream::LineStream(ZEL::IEventStore7& store, const LiveConfig& config, std::string key,
                       std::uint64_t offset)
    : store_(store),
      config_(config),
      key_(std::move(key)),
      cutter_(static_cast<std::size_t>(config->lineSize), offset) {}

void LineStream::Cut(std::string_view bytes, bool isLast) {
    unsettled_ += bytes.size();
    cutter_.Feed(bytes, isLast, [this](const CutLine& line) { TakeLine(line); });
}

void LineStream::TakeLine(const CutLine& line) {
    if (!intake_) {
        intake_.emplace(store_, config_.Now(), UINT64_MAX);
        given_ = 0;
        places_.clear();
    }
    if (places_.size() >= mostPlaces)
        Settle();
    places_.push_back({++given_, {{}, line.number, line.part, line.offset}});
    Note(line.number, intake_->TakeLine(line.text, IdOfLine(key_, line)));
}

void LineStream::Note(std::uint64_t line, Intake::Outcome outcome) {
    if (problems_.size() >= mostDetails)
        outcome.problem.detail.clear();
    if (!outcome.problem.kind.empty())
        problems_.emplace_back(line, std::move(outcome.problem));
    const std::uint64_t from = intake_->HeldFrom();
    while (!places_.empty() && (from == 0 || places_.front().given < from))
        places_.pop_front();
}

void LineStream::Settle() {
    if (intake_)
        Note(cutter_.Next().number, intake_->End());
}

void LineStream::End() {
    Cut({}, true);
    Settle();
}

// An intake remembers what it has seen, such as the hashes of processes. It goes with its part, so
// that a line gives the same key whichever part it comes in.
StreamPart LineStream::TakePart() {
    StreamPart part;
    const CutLine next = places_.empty() ? cutter_.Next() : places_.front().line;
    part.line = next.number;
    part.offset = next.offset;
    part.problems = std::exchange(problems_, {});
    part.delivery = std::make_shared<Delivery>();
    if (intake_)
        std::swap(part.delivery->items, intake_->Taken().items);
    if (!HoldsEvents())
        intake_.reset();
    unsettled_ = 0;
    return part;
}

}  // namespace zel
