#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

#include "common/hostservices.h"
#include "common/jsontext.h"
#include "common/textbridge.h"
#include "common/valuetext.h"
#include "connection/resultwords.h"
#include "connection/storereports.h"
#include "connection/storesession.h"
#include "zel/commands.h"
#include "zel/ingest/follow.h"
#include "zel/ingest/linereader.h"
#include "zel/ingest/recordcheck.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/narrator.h"
#include "zel/terminal/output.h"

namespace zel {

namespace {

using ZEL::CountedPtr;
using ZEL::HRESULT;
using ZEL::IStringValue;
namespace hr = ZEL::hr;

std::string WhyNoKey(HRESULT result) {
    if (result == hr::unexpected)
        return "no record: " + TakeReason();
    if (result == hr::invalidArgument)
        return "no begin_time";
    if (result == hr::fail)
        return "no target or no action";
    return "no key: " + Describe(static_cast<std::int32_t>(result));
}

std::string Name(const std::string& file) {
    return file == "-" ? "(stdin)" : file;
}

class Ingest {
public:
    // `follower`, which may be null, makes the receive-time keys.
    Ingest(StoreSession& store, const IngestOptions& options, Follower* follower, Output& output)
        : store_(store), options_(options), follower_(follower), output_(output) {}

    // False when the store has stopped to work.
    bool ReadFile(const std::string& file);
    void Summarise() const;
    bool CanNotWrite() const noexcept { return unwritten_; }
    bool LostAny() const noexcept { return rejected_ + replaced_ > 0 || unwritten_ || unread_; }

private:
    bool TakeLine(const std::string& file, std::uint64_t number, const std::string& line);
    bool Check(const std::string& file, std::uint64_t number, const std::string& key,
               const std::string& line);
    bool WritesFail(const std::string& file, std::uint64_t number);
    bool Insert(IStringValue* key, IStringValue* value);
    bool InsertReceiveRow(IStringValue* eventKey, const std::string& keyText);
    CountedPtr<IStringValue> MakeReceiveKey(IStringValue* eventKey);
    void Reject(const std::string& file, std::uint64_t number, const std::string& why);

    StoreSession& store_;
    const IngestOptions& options_;
    Follower* const follower_;
    Output& output_;  // for keys, unless there is a follower
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::uint64_t taken_ = 0;
    std::uint64_t rejected_ = 0;
    std::uint64_t replaced_ = 0;
    bool unwritten_ = false;
    bool unread_ = false;
    RepeatedKeys keys_;
};

void Ingest::Reject(const std::string& file, std::uint64_t number, const std::string& why) {
    ++rejected_;
    Say(Name(file) + ":" + std::to_string(number) + ": " + why);
}

bool Ingest::ReadFile(const std::string& file) {
    constexpr std::uint64_t linesPerLook = 1000;
    LineReader reader(file);
    std::string line;
    while (!Interrupted()) {
        const LineReader::Status status = reader.Next(&line);
        if (status == LineReader::Status::end || Interrupted())
            return true;
        if (status == LineReader::Status::failed) {
            Reject(file, reader.LineNumber(), "can't be read: " + reader.Error());
            return true;
        }
        if (status == LineReader::Status::tooLong) {
            Reject(file, reader.LineNumber(), "longer than 64 MiB");
            continue;
        }
        if (line.find_first_not_of(" \t") == std::string::npos)
            continue;
        if (!TakeLine(file, reader.LineNumber(), line))
            return false;
        if (reader.LineNumber() % linesPerLook != 0)
            continue;
        ShowProgress(std::to_string(taken_) + " records");
        if (WritesFail(file, reader.LineNumber()))
            return true;
    }
    return true;
}

bool Ingest::TakeLine(const std::string& file, std::uint64_t number, const std::string& line) {
    const CountedPtr<IStringValue> text = wm::ToValue(line);
    if (!text) {
        Reject(file, number, "not UTF-8");
        return true;
    }
    if (line.find('\0') != std::string::npos) {
        Reject(file, number, "holds a NUL");
        return true;
    }
    CountedPtr<IStringValue> key;
    const HRESULT made = store_->MakeKey(text.Get(), ZEL::keyKindEvent, key.Receive());
    if (Failed(made)) {
        Reject(file, number, WhyNoKey(made));
        return true;
    }
    const std::string keyText = wm::ToText(key.Get());
    if (!Check(file, number, keyText, line))
        return true;
    if (options_.printKeys)
        output_.Write(keyText + "\n");
    if (!Insert(key.Get(), text.Get()) ||
        (options_.receiveRows && !InsertReceiveRow(key.Get(), keyText)))
        return false;
    ++taken_;
    return true;
}

bool Ingest::Check(const std::string& file, std::uint64_t number, const std::string& key,
                   const std::string& line) {
    const std::string badTime = WhyBadTime(key);
    if (!badTime.empty()) {
        Reject(file, number, badTime);
        return false;
    }
    if (keys_.Replaces(key, line) && ++replaced_ == 1)
        Say(Name(file) + ":" + std::to_string(number) +
            ": has the key of an earlier record, which it replaces (seq_num tells records of one "
            "time apart)");
    return true;
}

// The store drops a batch that it can't write, so there is no point in handing it more.
bool Ingest::WritesFail(const std::string& file, std::uint64_t number) {
    constexpr std::uint32_t read = 2;
    if (follower_ != nullptr) {
        follower_->Failures().Look();
        unwritten_ = follower_->Failures().WritesFailed();
    } else {
        for (const DatabaseError& error : store_.TakeDatabaseErrors()) {
            Say(error.Text());
            (error.operation == read ? unread_ : unwritten_) = true;
        }
    }
    if (unwritten_)
        Say("stopped at " + Name(file) + ":" + std::to_string(number) +
            ", since the store can't write; each failure cost up to 500 rows");
    return unwritten_;
}

// A full queue refuses: the same record is offered again until the coordinator has made room.
bool Ingest::Insert(IStringValue* key, IStringValue* value) {
    auto pause = std::chrono::microseconds(200);
    constexpr auto longestPause = std::chrono::microseconds(20000);
    for (;;) {
        const HRESULT result = store_->Insert(key, value);
        if (Succeeded(result))
            return true;
        if (result != hr::fail) {
            Say("the store takes no more records: " + Describe(static_cast<std::int32_t>(result)));
            return false;
        }
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, longestPause);
    }
}

CountedPtr<IStringValue> Ingest::MakeReceiveKey(IStringValue* eventKey) {
    if (follower_ != nullptr)
        return wm::ToValue(follower_->NextKey());
    CountedPtr<IStringValue> key;
    const HRESULT made = store_->MakeKey(eventKey, ZEL::keyKindReceive, key.Receive());
    if (Failed(made))
        Say("a receive-time row can't be made: " + Describe(static_cast<std::int32_t>(made)));
    return key;
}

bool Ingest::InsertReceiveRow(IStringValue* eventKey, const std::string& keyText) {
    const CountedPtr<IStringValue> key = MakeReceiveKey(eventKey);
    const auto value = wm::ToValue("{\"event_pkey\":" + wm::JsonString(keyText) + "}");
    return key && value && key->GetLength(0) > 0 && Insert(key.Get(), value.Get());
}

void Ingest::Summarise() const {
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start_;
    char figures[96];
    std::snprintf(figures, sizeof(figures), "%llu record(s) taken, %llu line(s) rejected, %.2f s",
                  static_cast<unsigned long long>(taken_),
                  static_cast<unsigned long long>(rejected_), took.count());
    std::string text = figures;
    if (taken_ > 0 && took.count() > 0)
        text += ", " +
                std::to_string(static_cast<long long>(static_cast<double>(taken_) / took.count())) +
                " records/s";
    Say(text);
    if (replaced_ > 0)
        Say(std::to_string(replaced_) + " record(s) replaced an earlier one with the same key");
}

}  // namespace

namespace {

// Runs all files through the store. False when the store has stopped to work.
bool ReadFiles(Ingest& ingest, const IngestOptions& options) {
    std::vector<std::string> files = options.files;
    if (files.empty())
        files.emplace_back("-");
    bool works = true;
    for (const std::string& file : files)
        works = works && !Interrupted() && !ingest.CanNotWrite() && ingest.ReadFile(file);
    return works;
}

// Beside the store's folders, where the next process finds it.
std::string PositionFile(const IngestOptions& options) {
    std::wstring store;
    std::string utf8;
    if (!options.position.empty())
        return options.position;
    return wm::ResolvePathVariable(L"%ZELDataStore%", store) && wm::ToUtf8(store, utf8)
               ? utf8 + "/zel.position"
               : "";
}

// The end when following could not begin, so that nothing was taken.
int EndWithoutFollower(Output& output) {
    if (Interrupted())
        return exitCode::interrupted;
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

// False when rows could not be read.
bool TellFollowed(Follower& follower) {
    Say(std::to_string(follower.Printed()) + " event(s) printed");
    const std::uint64_t unreadable = follower.Failures().Unreadable();
    if (unreadable > 0)
        Say(std::to_string(unreadable) + " failure(s) to read: not all rows could be printed");
    return unreadable == 0;
}

}  // namespace

int RunIngest(const IngestOptions& options) {
    if (options.follow && (options.printKeys || !options.receiveRows)) {
        Say("--follow prints events by their receive-time rows: it excludes --print-keys and "
            "--no-receive-rows");
        return exitCode::usage;
    }
    StoreSession store(Terminal());
    if (!store.Open(options.makesStore ? StoreNeed::anywhere : StoreNeed::writable))
        return exitCode::noStore;
    Output output;
    Follower* follower = nullptr;
    if (options.follow) {
        follower = Follower::Start(store, PositionFile(options), output);
        if (follower == nullptr)
            return EndWithoutFollower(output);
    }
    const FollowerEnd end{follower};
    if (options.live || options.follow)
        ZEL::IgnoreResult(store->SetLiveMode(true), "always succeeds");
    Ingest ingest(store, options, follower, output);
    const bool works = ReadFiles(ingest, options);
    bool followed = true;
    if (follower != nullptr) {
        followed = follower->AwaitAll();
        follower->Close();
    }
    const bool written = store.Close();
    ingest.Summarise();
    if (follower != nullptr)
        followed = TellFollowed(*follower) && followed;
    if (Interrupted())
        return exitCode::interrupted;
    if (!works)
        return exitCode::noStore;
    const bool isWhole = written && followed && !ingest.LostAny();
    const int code = isWhole ? exitCode::done : exitCode::losses;
    return std::max(code, output.Finish(code));  // a reader that went away hides no loss
}

}  // namespace zel
