#include <chrono>
#include <cstdio>
#include <thread>

#include "commands.h"
#include "common/textbridge.h"
#include "linereader.h"
#include "messages.h"
#include "storesession.h"

namespace zel {

namespace {

using ZEL::CountedPtr;
using ZEL::HRESULT;
using ZEL::IStringValue;
namespace hr = ZEL::hr;

std::string WhyNoKey(HRESULT result) {
    if (result == hr::unexpected)
        return "not JSON, or a name that no record may hold";
    if (result == hr::invalidArgument)
        return "no begin_time";
    if (result == hr::fail)
        return "no target or no action";
    return "no key: " + Describe(static_cast<std::int32_t>(result));
}

class Ingest {
public:
    Ingest(StoreSession& store, const IngestOptions& options) : store_(store), options_(options) {}

    // False when the store has stopped to work.
    bool ReadFile(const std::string& file);
    void Summarise() const;
    std::uint64_t Rejected() const noexcept { return rejected_; }

private:
    bool TakeLine(const std::string& file, std::uint64_t number, const std::string& line);
    bool Insert(IStringValue* key, IStringValue* value);
    bool InsertReceiveRow(IStringValue* eventKey);
    void Reject(const std::string& file, std::uint64_t number, const std::string& why);

    StoreSession& store_;
    const IngestOptions& options_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::uint64_t taken_ = 0;
    std::uint64_t rejected_ = 0;
};

void Ingest::Reject(const std::string& file, std::uint64_t number, const std::string& why) {
    ++rejected_;
    Say((file == "-" ? "(stdin)" : file) + ":" + std::to_string(number) + ": " + why);
}

bool Ingest::ReadFile(const std::string& file) {
    constexpr std::uint64_t linesPerProgress = 5000;
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
        if (reader.LineNumber() % linesPerProgress == 0)
            ShowProgress(std::to_string(taken_) + " records");
    }
    return true;
}

bool Ingest::TakeLine(const std::string& file, std::uint64_t number, const std::string& line) {
    const CountedPtr<IStringValue> text = ToValue(line);
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
    if (options_.printKeys)
        std::printf("%s\n", ToText(key.Get()).c_str());
    if (!Insert(key.Get(), text.Get()) || (options_.receiveRows && !InsertReceiveRow(key.Get())))
        return false;
    ++taken_;
    return true;
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

bool Ingest::InsertReceiveRow(IStringValue* eventKey) {
    CountedPtr<IStringValue> key;
    const HRESULT made = store_->MakeKey(eventKey, ZEL::keyKindReceive, key.Receive());
    const auto value = ToValue("{\"event_pkey\":" + JsonString(ToText(eventKey)) + "}");
    if (Failed(made) || !value) {
        Say("a receive-time row can't be made: " + Describe(static_cast<std::int32_t>(made)));
        return false;
    }
    return Insert(key.Get(), value.Get());
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
}

}  // namespace

int RunIngest(const IngestOptions& options) {
    StoreSession store;
    if (!store.Open(StoreSession::Need::writable))
        return exitCode::noStore;
    Ingest ingest(store, options);
    bool works = true;
    std::vector<std::string> files = options.files;
    if (files.empty())
        files.emplace_back("-");
    for (const std::string& file : files)
        works = works && !Interrupted() && ingest.ReadFile(file);
    const bool written = store.Close();
    ingest.Summarise();
    if (Interrupted())
        return exitCode::interrupted;
    if (!works)
        return exitCode::noStore;
    return written && ingest.Rejected() == 0 ? exitCode::done : exitCode::losses;
}

}  // namespace zel
