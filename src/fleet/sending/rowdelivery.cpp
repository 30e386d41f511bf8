#include "fleet/sending/rowdelivery.h"

#include <zlib.h>

#include <algorithm>
#include <new>
#include <utility>

#include "fleet/hostidentifier.h"

// One request is all or nothing, so whatever is not answered is sent again, and what is refused is
// cut into halves until the row is found that the refusal means. A fleet that refuses each row of
// many means something else, its table for instance: then nothing more is put aside, and a person
// has to look.

namespace zel::fleet {

namespace {

constexpr auto longestPause = std::chrono::seconds(60);
constexpr int laterFactor = 10;
constexpr std::size_t mostRefusedInARow = 100;

}  // namespace

void PackRows(std::string_view rows, std::string* packed) {
    constexpr int gzip = 16;
    z_stream stream{};
    if (deflateInit2(&stream, 1, Z_DEFLATED, MAX_WBITS + gzip, MAX_MEM_LEVEL, Z_DEFAULT_STRATEGY) !=
        Z_OK)
        throw std::bad_alloc();
    packed->resize(deflateBound(&stream, static_cast<uLong>(rows.size())));
    // The library does not write where it reads.
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(rows.data()));
    stream.avail_in = static_cast<uInt>(rows.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed->data());
    stream.avail_out = static_cast<uInt>(packed->size());
    const int result = deflate(&stream, Z_FINISH);
    packed->resize(stream.total_out);
    deflateEnd(&stream);
    if (result != Z_STREAM_END)
        throw std::bad_alloc();
}

RowDelivery::RowDelivery(FleetAddress address, const DeliveryOptions& options, SendingState& state,
                         const StateFile& file, RefusedRows& refused, ISessionListener& listener)
    : options_(options),
      state_(state),
      file_(file),
      refused_(refused),
      listener_(listener),
      client_(std::move(address), [this] { return stopping_.load() || listener_.Interrupted(); }),
      thread_([this] { Main(); }) {}

bool RowDelivery::Give(RowBatch&& batch) {
    std::unique_lock hold(mutex_);
    changed_.wait(hold, [this] { return !next_ || hasEnded_; });
    if (hasEnded_)
        return false;
    next_ = std::move(batch);
    changed_.notify_all();
    return true;
}

bool RowDelivery::Drain() {
    std::unique_lock hold(mutex_);
    changed_.wait(hold, [this] { return (!next_ && !isBusy_) || hasEnded_; });
    return !hasEnded_;
}

void RowDelivery::Stop() {
    stopping_ = true;
    {
        const std::lock_guard hold(mutex_);
        hasEnded_ = true;
        changed_.notify_all();
    }
    if (thread_.joinable())
        thread_.join();
}

RowDelivery::Sight RowDelivery::Look() const {
    const std::lock_guard hold(mutex_);
    return {state_, failing_, hasEnded_};
}

void RowDelivery::Main() {
    for (;;) {
        RowBatch batch;
        {
            std::unique_lock hold(mutex_);
            isBusy_ = false;
            changed_.notify_all();
            changed_.wait(hold, [this] { return next_ || hasEnded_; });
            if (hasEnded_)
                return;
            batch = std::move(*next_);
            next_.reset();
            isBusy_ = true;
            changed_.notify_all();
        }
        try {
            Deliver(batch);
        } catch (const std::exception& error) {
            End(std::string("sending failed: ") + error.what());
        }
    }
}

void RowDelivery::Deliver(RowBatch& batch) {
    if (SendRows(batch, 0, batch.ends.size()) == Outcome::ended || Keep(batch) == Outcome::ended)
        return;
    const std::uint64_t rate = options_.rowsPerSecond;
    if (rate == 0)
        return;
    notBefore_ = std::max(notBefore_, Clock::now()) +
                 std::chrono::milliseconds(batch.ends.size() * 1000 / rate);
    Pause(std::chrono::duration_cast<std::chrono::milliseconds>(notBefore_ - Clock::now()));
}

bool RowDelivery::TryOnce(std::string_view table, std::string_view rows, FleetFailure* failure) {
    if (options_.packs)
        PackRows(rows, &packed_);
    const bool isTaken =
        client_.Insert(table, options_.packs ? packed_ : rows, options_.packs, failure);
    if (isTaken) {
        TellGoing();
        refusedInARow_ = 0;
    }
    return isTaken;
}

RowDelivery::Outcome RowDelivery::SendRows(const RowBatch& batch, std::size_t first,
                                           std::size_t last) {
    if (first == last)
        return Outcome::there;
    const std::size_t begin = first == 0 ? 0 : batch.ends[first - 1];
    const std::string_view rows =
        std::string_view(batch.rows).substr(begin, batch.ends[last - 1] - begin);
    unsigned tried = 0;
    for (;;) {
        FleetFailure failure;
        if (TryOnce(batch.table, rows, &failure)) {
            const std::lock_guard hold(mutex_);
            state_.sent += last - first;
            return Outcome::there;
        }
        const bool isCut =
            failure.remedy == FleetRemedy::aside || failure.remedy == FleetRemedy::halves;
        if (isCut && last - first > 1)
            return SendParts(batch, first, last);
        if (failure.remedy == FleetRemedy::aside || (isCut && failure.code == 0))
            return PutAside(batch, first, failure);
        if (!Await(failure, &tried))
            return Outcome::ended;
    }
}

RowDelivery::Outcome RowDelivery::SendParts(const RowBatch& batch, std::size_t first,
                                            std::size_t last) {
    const std::size_t middle = first + (last - first) / 2;
    const Outcome front = SendRows(batch, first, middle);
    return front == Outcome::ended ? front : SendRows(batch, middle, last);
}

RowDelivery::Outcome RowDelivery::PutAside(const RowBatch& batch, std::size_t row,
                                           const FleetFailure& failure) {
    const std::size_t begin = row == 0 ? 0 : batch.ends[row - 1];
    const std::string_view text =
        std::string_view(batch.rows).substr(begin, batch.ends[row] - begin);
    FleetFailure why = failure;
    unsigned tried = 0;
    if (++refusedInARow_ > mostRefusedInARow) {
        why.remedy = FleetRemedy::stop;
        why.text = "each of " + std::to_string(mostRefusedInARow) +
                   " rows was refused, so the table may not be as it should: " + failure.text;
        return Await(why, &tried) ? SendRows(batch, row, row + 1) : Outcome::ended;
    }
    why.remedy = FleetRemedy::again;
    while (!refused_.Add(batch.table, text, failure, &why.text))
        if (!Await(why, &tried))
            return Outcome::ended;
    listener_.Say("a row was refused, and put aside in " + refused_.Name() + ": " + failure.text);
    const std::lock_guard hold(mutex_);
    ++state_.refused;
    return Outcome::there;
}

// A place that can't be kept costs nothing but a repeat, so what was sent goes on; but who would go
// on for long would repeat much.
RowDelivery::Outcome RowDelivery::Keep(RowBatch& batch) {
    SendingState now;
    {
        const std::lock_guard hold(mutex_);
        if (!batch.place.empty())
            state_.place = std::move(batch.place);
        state_.missed += batch.missed;
        if (!batch.folder.empty())
            state_.folders[batch.folder] = batch.folderLook;
        now = state_;
    }
    FleetFailure failure;
    unsigned tried = 0;
    while (!file_.Save(now, &failure.text))
        if (!Await(failure, &tried))
            return Outcome::ended;
    TellGoing();
    return Outcome::there;
}

bool RowDelivery::Await(const FleetFailure& failure, unsigned* tried) {
    using std::chrono::milliseconds;
    if (failure.remedy == FleetRemedy::over) {
        End("");
        return false;
    }
    const bool needsPerson = failure.remedy == FleetRemedy::stop;
    ++*tried;
    if ((needsPerson && !options_.personPause) ||
        (!needsPerson && options_.tries != 0 && *tried >= options_.tries)) {
        End(failure.text);
        return false;
    }
    milliseconds pause = options_.firstPause;
    for (unsigned i = 1; i < *tried && pause < longestPause; ++i)
        pause *= 2;
    pause = std::min<milliseconds>(pause, longestPause);
    if (failure.remedy == FleetRemedy::later)
        pause *= laterFactor;
    if (needsPerson)
        pause = *options_.personPause;
    // Hosts that were refused together come back one after the other.
    pause += milliseconds(
        static_cast<std::int64_t>(TurnOf(state_.host) * static_cast<double>(pause.count()) / 4));
    TellFailing(failure.text, pause);
    return Pause(pause);
}

bool RowDelivery::Pause(std::chrono::milliseconds time) {
    constexpr auto look = std::chrono::milliseconds(50);
    const auto until = Clock::now() + time;
    std::unique_lock hold(mutex_);
    while (!hasEnded_ && Clock::now() < until) {
        changed_.wait_for(hold, std::min<Clock::duration>(look, until - Clock::now()));
        if (listener_.Interrupted()) {
            hasEnded_ = true;
            changed_.notify_all();
        }
    }
    return !hasEnded_;
}

// Once for each row of failures that say the same.
void RowDelivery::TellFailing(const std::string& why, std::chrono::milliseconds pause) {
    {
        const std::lock_guard hold(mutex_);
        if (failing_.empty())
            failingSince_ = Clock::now();
        if (failing_ == why)
            return;
        failing_ = why;
    }
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(pause).count();
    listener_.Say("nothing can be sent: " + why + "; it is tried again in " +
                  std::to_string(seconds) + " s, and so on");
}

void RowDelivery::TellGoing() {
    {
        const std::lock_guard hold(mutex_);
        if (failing_.empty())
            return;
        failing_.clear();
    }
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - failingSince_).count();
    listener_.Say("sending goes on, after " + std::to_string(seconds) + " s");
}

void RowDelivery::End(const std::string& why) {
    {
        const std::lock_guard hold(mutex_);
        failing_ = why;
        hasEnded_ = true;
        changed_.notify_all();
    }
    if (!why.empty())
        listener_.Say("nothing can be sent: " + why);
}

}  // namespace zel::fleet
