#include <algorithm>
#include <chrono>
#include <cstdio>

#include "common/hostservices.h"
#include "common/textbridge.h"
#include "zel/commands.h"
#include "zel/ingest/follow.h"
#include "zel/ingest/ingestprogress.h"
#include "zel/ingest/noruletally.h"
#include "zel/ingest/readevents.h"
#include "zel/ingest/recordtaker.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/narrator.h"
#include "zel/terminal/output.h"
#include "zel/terminal/textfit.h"

// One run of `zel ingest`: files in, an account out. The account has to be true also where the disk
// is full, a folder is locked or somebody presses Ctrl-C. A record that the store's queue took is
// not stored yet, so nothing is called stored before the store is closed: then each record that was
// taken is on the disk, or the store has reported it as lost.

namespace zel {

namespace {

constexpr std::uint64_t eventsPerLook = 1000;

std::string Number(std::uint64_t number, const char* what) {
    return std::to_string(number) + " " + what;
}

// ", 3 lost", or nothing where there are none.
std::string Some(std::uint64_t number, const char* what) {
    return number != 0 ? ", " + Number(number, what) : "";
}

// Reads files event by event, hands the events on, and tells what became of them.
class Ingest final : public EventTaker {
public:
    // `follower` may be null. All must outlive this.
    Ingest(StoreSession& store, const IngestOptions& options, Follower* follower, Output& output)
        : store_(store),
          options_(options),
          follower_(follower),
          taker_(store, options, follower, output),
          problems_(TellsAll()),
          files_(AwaitDescriptor) {}

    // Ends early when interrupted, and when the store takes or writes no more.
    void ReadFiles();
    // The last line. Once the store is closed.
    void Summarise() const;
    // Whether the store took all that it was given.
    bool StoreWorks() const noexcept { return storeWorks_; }
    // Whether anything that was handed in is not in the store, as far as is known.
    bool LostAny() const noexcept;

    bool TakeLine(const std::string& line, const LinePlace& place) override;
    bool TakeItem(SourceItem& item, const LinePlace& place) override;

private:
    bool Take(const std::string& record, const LinePlace& place);
    void CountLostFromKey(const SourceItem& item, const LinePlace& place);
    bool LookAtStore(const LinePlace& place);
    void TellRepeats() const;
    std::string Fate() const;

    StoreSession& store_;
    const IngestOptions& options_;
    Follower* const follower_;
    RecordTaker taker_;
    LineProblems problems_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    InputFiles files_;
    IngestProgress progress_;
    NoRuleTally noRule_;
    std::uint64_t events_ = 0;
    std::uint64_t lostFromKeys_ = 0;
    std::uint64_t unreadFiles_ = 0;
    bool storeWorks_ = true;
    bool writesFailed_ = false;
    bool readsFailed_ = false;
};

EventReading ReadingOf(const IngestOptions& options) {
    EventReading reading;
    reading.mapping = {options.writesUnmapped, options.keepsUnmapped, options.recovers};
    reading.format = options.format.empty() ? nullptr : FindFormat(options.format);
    return reading;
}

// A file that can't be read does not keep the others from being read.
void Ingest::ReadFiles() {
    const std::vector<std::string> standardInput = {"-"};
    const EventReading reading = ReadingOf(options_);
    for (const std::string& file : options_.files.empty() ? standardInput : options_.files) {
        const LinesEnd end = ReadEvents(file, reading, files_, problems_, *this);
        unreadFiles_ += end == LinesEnd::unreadable ? 1 : 0;
        if (end == LinesEnd::stopped || end == LinesEnd::interrupted)
            break;
    }
    ClearProgress();
    problems_.TellRest();
    noRule_.Tell(TellsAll());
    if (lostFromKeys_ > 1)
        Say(Number(lostFromKeys_, "value(s) in all that keys can't hold"));
    TellRepeats();
}

bool Ingest::TakeLine(const std::string& line, const LinePlace& place) {
    ++events_;
    return Take(line, place);
}

bool Ingest::TakeItem(SourceItem& item, const LinePlace& place) {
    ++events_;
    CountLostFromKey(item, place);
    if (item.fate == EventFate::refused)
        problems_.Add(place.Text(), {item.problem, item.detail});
    else if (item.fate == EventFate::noRule)
        noRule_.Add(item);
    const bool isStored = item.fate == EventFate::record || item.isKept;
    return isStored ? Take(item.record, place) : events_ % eventsPerLook != 0 || LookAtStore(place);
}

// Nothing is lost, but a condition on the key finds nothing: so people are told once.
void Ingest::CountLostFromKey(const SourceItem& item, const LinePlace& place) {
    if (lostFromKeys_ == 0 && item.lostFromKey > 0)
        Say(place.Text() +
            R"(: has a value with <, > or \\?\ in front, which keys can't hold; it stands in the )"
            "record, and conditions on it don't find it");
    lostFromKeys_ += item.lostFromKey;
}

// False when no more is to be read. The first replacement is told with its place, as one is mostly
// a sign that all records lack something; the others are counted.
bool Ingest::Take(const std::string& record, const LinePlace& place) {
    LineProblem problem;
    const std::uint64_t replacedBefore = taker_.Counts().replaced;
    const RecordTaker::Outcome outcome = taker_.Take(record, &problem);
    if (outcome == RecordTaker::Outcome::rejected)
        problems_.Add(place.Text(), problem);
    if (replacedBefore == 0 && taker_.Counts().replaced == 1)
        Say(place.Text() +
            ": has the key of an earlier record, which it replaces (seq_num tells records of one "
            "time apart)");
    storeWorks_ = outcome != RecordTaker::Outcome::refused;
    if (!storeWorks_)
        Say("stopped at " + place.Text());
    if (!storeWorks_ || outcome == RecordTaker::Outcome::ended)
        return false;
    return events_ % eventsPerLook != 0 || LookAtStore(place);
}

// The store drops a batch that it can't write, so there is no point in handing it more: false.
bool Ingest::LookAtStore(const LinePlace& place) {
    constexpr std::uint32_t read = 2;
    progress_.Show(files_.BytesRead(), files_.BytesInAll(), events_);
    if (options_.keysOnly)
        return true;
    if (follower_ != nullptr) {
        follower_->Failures().Look();
        writesFailed_ = follower_->Failures().WritesFailed();
    } else {
        for (const DatabaseError& error : store_.TakeDatabaseErrors()) {
            Say(error.Text());
            (error.operation == read ? readsFailed_ : writesFailed_) = true;
        }
    }
    if (writesFailed_)
        Say("stopped at " + place.Text() + ", since the store can't write");
    return !writesFailed_;
}

// A repeat of the same record loses nothing and is not among them.
bool Ingest::LostAny() const noexcept {
    const LostRecords lost = store_.Lost();
    return problems_.Count() + unreadFiles_ + taker_.Counts().replaced + lost.events +
                   lost.receiveRows >
               0 ||
           writesFailed_ || readsFailed_;
}

// What could not be compared is told beside the numbers, so that nobody takes a lower bound for
// all.
void Ingest::TellRepeats() const {
    const RecordTaker::Account& counts = taker_.Counts();
    if (counts.replaced > 0)
        Say(std::string(taker_.KnowsAllKeys() ? "" : "at least ") +
            Number(counts.replaced,
                   "record(s) replaced an earlier, different one of this run with the same key, "
                   "unless another folder was begun in between"));
    if (counts.repeated > 0)
        Say(std::string(taker_.KnowsAllKeys() ? "" : "at least ") +
            Number(counts.repeated, "record(s) came again, unchanged"));
    if (!taker_.KnowsAllKeys())
        Say("keys were compared with the last " +
            Number(RepeatedKeys::keysKept, "or more before them, not with all"));
}

// What has become of the records, by number. What was taken and neither written nor lost waits in
// the store's queue.
std::string Ingest::Fate() const {
    const RecordTaker::Account& counts = taker_.Counts();
    if (options_.keysOnly)
        return Number(counts.taken, "key(s) made");
    const LostRecords lost = store_.Lost();
    const std::uint64_t kept = counts.taken - lost.events;
    return (store_.Emptied() ? Number(kept, "record(s) stored")
                             : Number(kept, "record(s) stored or still waiting")) +
           Some(lost.events, "lost") + Some(counts.refused, "refused") +
           Some(lost.receiveRows + counts.rowsRefused, "receive-time row(s) lost");
}

// The time is that of the whole run, the wait for the disk included.
void Ingest::Summarise() const {
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start_;
    const std::uint64_t taken = taker_.Counts().taken;
    char time[64];
    int length = std::snprintf(time, sizeof(time), ", %.2f s", took.count());
    if (taken > 0 && took.count() > 0)
        std::snprintf(time + length, sizeof(time) - static_cast<std::size_t>(length),
                      ", %.0f records/s", static_cast<double>(taken) / took.count());
    Say(Fate() + ", " + Number(problems_.Count(), "line(s) rejected") +
        Some(noRule_.Count(),
             options_.keepsUnmapped ? "event(s) without a rule kept" : "event(s) without a rule") +
        Some(unreadFiles_, "file(s) not read to the end") + time);
}

// Beside the store's folders, where the next process finds it.
std::string PositionFileName(const IngestOptions& options) {
    std::wstring store;
    std::string utf8;
    if (!options.position.empty())
        return options.position;
    return wm::ResolvePathVariable(L"%ZELDataStore%", store) && wm::ToUtf8(store, utf8)
               ? utf8 + "/zel.position"
               : "";
}

bool IsService(const IngestOptions& options) {
    return options.live || options.follow;
}

// A service that is told to end, and has, has done what it should.
int CodeOf(const IngestOptions& options, int code) {
    const bool endedInOrder = IsService(options) && Terminated();
    return Interrupted() && !endedInOrder ? exitCode::interrupted : code;
}

// The end when following could not begin, so that nothing was taken.
int EndWithoutFollower(const IngestOptions& options, Output& output) {
    if (Interrupted())
        return CodeOf(options, exitCode::done);
    if (output.Usable())
        return exitCode::noStore;
    output.Finish(exitCode::losses);
    return exitCode::losses;
}

// No run of the job reaches the output or the store once they go, whatever ends the work on them.
struct FollowerEnd {
    Follower* const follower;
    ~FollowerEnd() {
        if (follower != nullptr)
            follower->Close();
    }
};

// Lets the follower print what is left. False when rows are missing that the next run can't print.
bool EndFollowing(Follower& follower) {
    const bool isWhole = follower.AwaitAll();
    follower.Close();
    Say(std::to_string(follower.Printed()) + " event(s) printed");
    const std::uint64_t unreadable = follower.Failures().Unreadable();
    if (unreadable > 0)
        Say(std::to_string(unreadable) + " failure(s) to read: not all rows could be printed");
    return isWhole && unreadable == 0;
}

void TellUnknownFormat(const std::string& name) {
    std::string known;
    for (const Format& format : Formats())
        known += (known.empty() ? "" : ", ") + std::string(format.name);
    Say("--format: there is no " + Escaped(name) + "; known: " + known);
}

// Needs no store, so it works where none is and beside one that is in use.
int MakeKeys(const IngestOptions& options) {
    StoreSession store(Terminal());
    if (!store.Load())
        return exitCode::noStore;
    Output output;
    Ingest ingest(store, options, nullptr, output);
    ingest.ReadFiles();
    const int code = ingest.LostAny() ? exitCode::losses : exitCode::done;
    const int end = std::max(code, output.Finish(code));
    ingest.Summarise();
    return CodeOf(options, end);
}

}  // namespace

// The order of the end matters: the follower prints what is on the disk, the store writes what is
// queued, and only then are the numbers of the account final.
int RunIngest(const IngestOptions& options) {
    if (options.follow && (options.printKeys || !options.receiveRows)) {
        Say("--follow prints events by their receive-time rows: it excludes --print-keys and "
            "--no-receive-rows");
        return exitCode::usage;
    }
    if (!options.format.empty() && FindFormat(options.format) == nullptr) {
        TellUnknownFormat(options.format);
        return exitCode::usage;
    }
    if (options.keysOnly)
        return MakeKeys(options);
    StoreSession store(Terminal());
    if (!store.Open(options.makesStore ? StoreNeed::anywhere : StoreNeed::writable))
        return exitCode::noStore;
    Output output;
    Follower* follower = nullptr;
    if (options.follow) {
        follower = Follower::Start(store, PositionFileName(options), output);
        if (follower == nullptr)
            return EndWithoutFollower(options, output);
    }
    const FollowerEnd end{follower};
    if (IsService(options))
        ZEL::IgnoreResult(store->SetLiveMode(true), "always succeeds");
    Ingest ingest(store, options, follower, output);
    ingest.ReadFiles();
    const bool followed = follower == nullptr || EndFollowing(*follower);
    const bool written = store.Close();
    const bool isWhole = written && followed && !ingest.LostAny();
    const int code = isWhole ? exitCode::done : exitCode::losses;
    const int printed = output.Finish(code);
    ingest.Summarise();
    if (!ingest.StoreWorks())
        return CodeOf(options, exitCode::noStore);
    return CodeOf(options, std::max(code, printed));  // a reader that went away hides no loss
}

}  // namespace zel
