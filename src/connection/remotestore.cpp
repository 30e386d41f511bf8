#include "connection/remotestore.h"

#include <map>
#include <utility>

#include "common/boundary.h"
#include "common/errorreport.h"
#include "common/eventobject.h"
#include "common/jsontext.h"
#include "common/lock.h"
#include "common/valuetext.h"
#include "connection/agentrequest.h"
#include "connection/distantstore.h"
#include "connection/rowframes.h"
#include "connection/storelook.h"

// A question's road: the document goes out as the body of a request, the answer comes as frames
// (rowframes.h), each of which becomes the call back or the report that the agent's store made.
// Nothing is read ahead of a call back that has not returned, so that a slow reader slows the
// agent's walk down and nothing heaps up here.
//
// An answer is whole when its end frame has come. A connection that ends before is a loss of the
// agent, whatever had come by then.

namespace zel {

namespace {

using ZEL::HRESULT;
using ZEL::IStringValue;
namespace hr = ZEL::hr;

// What failed in the questions so far, in the form of a store's own table: the first kind that
// fails in a folder has its number, a later kind 0. Any thread.
class FailureTable {
public:
    void Add(const std::string& folder, std::uint32_t operation, std::uint32_t result) {
        const wm::Hold hold(lock_);
        const auto [kinds, isNew] = folders_.try_emplace(folder);
        Entry& entry = kinds->second[operation];
        entry.shown = isNew ? operation : entry.shown;
        ++entry.count;
        entry.result = result;
    }
    void Clear() {
        const wm::Hold hold(lock_);
        folders_.clear();
    }
    HRESULT List(ZEL::IValueCollection** out) {
        auto list = ZEL::CountedPtr<ZEL::IValueCollection>::Adopt(wm::CreateValueCollection());
        const wm::Hold hold(lock_);
        for (const auto& [folder, kinds] : folders_)
            for (const auto& [operation, entry] : kinds) {
                const auto record =
                    ZEL::CountedPtr<ZEL::IValueRecord>::Adopt(wm::CreateValueRecord());
                const auto name = wm::ToValue(folder);
                if (!list || !record || !name || !record->AddText(name.Get()) ||
                    !record->AddNumber(entry.shown) || !record->AddNumber(entry.count) ||
                    !record->AddNumber(entry.result) || !list->AddRecord(record.Get()))
                    return hr::outOfMemory;
            }
        *out = list.Detach();
        return *out != nullptr ? hr::ok : hr::outOfMemory;
    }

private:
    struct Entry {
        std::uint32_t shown = 0, count = 0, result = 0;
    };

    wm::Lock lock_;
    std::map<std::string, std::map<std::uint32_t, Entry>> folders_ GUARDED_BY(lock_);
};

// One question under way, on its caller's thread.
class Question {
public:
    Question(const std::string& socket, ZEL::IQueryCallback& callback, ZEL::HANDLE stop,
             FailureTable& failures)
        : request_(socket, [this] { return IsOver(); }),
          callback_(callback),
          stop_(stop),
          failures_(failures) {}

    HRESULT Ask(const std::string& document) {
        HRESULT result = request_.Send("POST", "/v1/rows", document);
        while (Succeeded(result) && !hasEnded_)
            result = ReadFrames();
        return Succeeded(result) ? end_ : result;
    }
    bool IsComplete() const noexcept { return isComplete_; }
    const std::string& Problem() const noexcept {
        return words_.empty() ? request_.Problem() : words_;
    }

private:
    // A setting of an auto-reset event is used up by the look.
    bool IsOver() {
        isStopped_ = isStopped_ || (stop_ != nullptr && wm::WaitForAny(1, &stop_, 0) == 0);
        return isStopped_;
    }
    HRESULT ReadFrames();
    HRESULT Take(frames::Type type, std::string_view payload);
    HRESULT TakeRows(frames::Reader& reader);
    void TakeUntested(frames::Reader& reader);
    void TakeDamaged(frames::Reader& reader);
    HRESULT Garbled() {
        words_ = "the agent does not answer as an agent does: it may be of another version";
        return agentResult::lost;
    }

    AgentRequest request_;
    ZEL::IQueryCallback& callback_;
    const ZEL::HANDLE stop_;
    FailureTable& failures_;
    std::string bytes_;  // of which no frame was made yet
    bool isStopped_ = false, hasEnded_ = false, isComplete_ = true;
    HRESULT end_ = hr::ok;
    std::string words_;
};

HRESULT Question::ReadFrames() {
    const std::size_t before = bytes_.size();
    if (const HRESULT result = request_.Read(&bytes_); Failed(result))
        return result;
    if (bytes_.size() == before) {
        words_ = "the agent has ended its answer early";
        return agentResult::lost;
    }
    std::size_t at = 0;
    HRESULT result = hr::ok;
    while (Succeeded(result) && !hasEnded_ && bytes_.size() - at >= frames::headLength) {
        const std::uint32_t length = frames::NumberAt(bytes_.data() + at + 1);
        if (length > frames::longest)
            return Garbled();
        if (bytes_.size() - at - frames::headLength < length)
            break;
        result = Take(static_cast<frames::Type>(bytes_[at]),
                      std::string_view(bytes_).substr(at + frames::headLength, length));
        at += frames::headLength + length;
    }
    bytes_.erase(0, at);
    return result;
}

HRESULT Question::Take(frames::Type type, std::string_view payload) {
    frames::Reader reader(payload);
    HRESULT result = hr::ok;
    switch (type) {
        case frames::Type::rows:
            return TakeRows(reader);
        case frames::Type::failure: {
            const std::string folder(reader.Text());
            const std::uint32_t operation = reader.Number();
            failures_.Add(folder, operation, reader.Number());
            break;
        }
        case frames::Type::untested:
            TakeUntested(reader);
            break;
        case frames::Type::damaged:
            TakeDamaged(reader);
            break;
        case frames::Type::end:
            end_ = hr::Code(reader.Number());
            isComplete_ = reader.Number() != 0;
            words_ = reader.Text();
            hasEnded_ = true;
            break;
        default:
            result = Garbled();
    }
    return reader.IsGood() ? result : Garbled();
}

// Texts are checked as they become values. A batch that lacks one goes nowhere.
HRESULT Question::TakeRows(frames::Reader& reader) {
    const auto resumeTime = wm::ToValue(reader.Text());
    const auto resumeSequence = static_cast<std::int32_t>(reader.Number());
    const auto rows = ZEL::CountedPtr<ZEL::IValueCollection>::Adopt(wm::CreateValueCollection());
    for (std::uint32_t left = reader.Number(); left != 0; --left) {
        const auto row = reader.HasMore() ? wm::ToValue(reader.Text()) : nullptr;
        if (!row || !rows || !rows->Add(row.Get()))
            return Garbled();
    }
    if (!reader.IsGood() || !resumeTime || rows->Count() == 0)
        return Garbled();
    if (IsOver())
        return hr::aborted;
    const HRESULT taken = callback_.OnQueryResults(hr::ok, rows.Get(), false, false,
                                                   resumeTime.Get(), resumeSequence);
    return Failed(taken) ? hr::aborted : hr::ok;
}

void Question::TakeUntested(frames::Reader& reader) {
    const std::uint32_t count = reader.Number();
    wm::ErrorReport report;
    report.SetError(hr::unexpected, wm::reportLabel::lostRow)
        .AddDetail("Exception", std::string(reader.Text()))
        .AddDetail(wm::lostDetail::rows, std::to_string(count));
    report.Submit();
}

// A read is a report of its own, as there are few.
void Question::TakeDamaged(frames::Reader& reader) {
    constexpr std::uint32_t most = 10000;
    for (std::uint32_t left = std::min(reader.Number(), most); left != 0; --left)
        wm::ReportError(hr::corrupt, wm::reportLabel::damagedData, "Where", "in the agent");
}

class RemoteStore final : public DistantStore {
public:
    RemoteStore(std::string socket, ISessionListener& listener,
                ZEL::CountedPtr<ZEL::IEventStore7> keys)
        : DistantStore(listener, std::move(keys)), socket_(std::move(socket)) {}

    HRESULT GetDatabaseErrors(ZEL::IValueCollection** out) override {
        return ZEL::AtBoundary([&] { return failures_.List(out); });
    }
    HRESULT ClearDatabaseErrors() override {
        failures_.Clear();
        return hr::ok;
    }
    HRESULT GetOldestDate(IStringValue** oldestDate, std::uint64_t* totalBytes) override;

    HRESULT InsertSilent(IStringValue* key, IStringValue* value) override;
    HRESULT Purge(std::uint32_t maxSizeMegabytes) override;
    HRESULT Stop() override {
        return ZEL::AtBoundary([&] { return SendEnrichments(); });
    }

private:
    ~RemoteStore() override = default;

    HRESULT Ask(const std::string& document, ZEL::IQueryCallback& callback, ZEL::HANDLE stopEvent,
                bool* isComplete, std::string* problem) override {
        Question question(socket_, callback, stopEvent, failures_);
        const HRESULT end = question.Ask(document);
        *isComplete = question.IsComplete();
        *problem = question.Problem();
        return end;
    }
    HRESULT Call(const char* method, const std::string& target, const std::string& body,
                 std::string* answer);
    HRESULT SendEnrichments();

    const std::string socket_;
    FailureTable failures_;
    // One thread adds enrichments.
    std::string waiting_;  // lines of them
    std::uint64_t waitingCount_ = 0;
};

HRESULT RemoteStore::Call(const char* method, const std::string& target, const std::string& body,
                          std::string* answer) {
    std::string problem;
    const HRESULT result = CallAgent(method, target, body, answer, &problem);
    return Told(result, problem);
}

HRESULT RemoteStore::GetOldestDate(IStringValue** oldestDate, std::uint64_t* totalBytes) {
    return ZEL::AtBoundary([&] {
        std::string problem;
        StoreLook look;
        if (!LookAtStore(StoreNeed::reading, &look, &problem))
            return Told(agentResult::lost, problem);
        *totalBytes = look.estimatedBytes;
        auto value = wm::ToValue(look.oldestDate);
        if (!value)
            return hr::outOfMemory;
        *oldestDate = value.Detach();
        return hr::ok;
    });
}

// A line holds the key as it stands in the store, with its number behind the event's: the agent
// knows both forms.
HRESULT RemoteStore::InsertSilent(IStringValue* key, IStringValue* value) {
    constexpr std::size_t sendBeyond = 1U << 20;
    if (key == nullptr || value == nullptr)
        return hr::invalidArgument;
    return ZEL::AtBoundary([&] {
        waiting_ += "{\"key\":" + wm::JsonString(wm::ToText(key)) +
                    ",\"enrichment\":" + wm::ToText(value) + "}\n";
        ++waitingCount_;
        return waiting_.size() > sendBeyond ? SendEnrichments() : hr::ok;
    });
}

HRESULT RemoteStore::SendEnrichments() {
    if (waiting_.empty())
        return hr::ok;
    const std::string lines = std::exchange(waiting_, {});
    const std::uint64_t count = std::exchange(waitingCount_, 0);
    std::string answer;
    const HRESULT result = Call("POST", "/v1/enrichments", lines, &answer);
    if (Failed(result))
        wm::ReportError(result, wm::reportLabel::lostBatch, wm::lostDetail::enrichments,
                        std::to_string(count).c_str());
    return result;
}

HRESULT RemoteStore::Purge(std::uint32_t maxSizeMegabytes) {
    return ZEL::AtBoundary([&] {
        std::string answer;
        return Call("POST", "/v1/purge?max_size=" + std::to_string(maxSizeMegabytes) + "M", "",
                    &answer);
    });
}

}  // namespace

ZEL::CountedPtr<ZEL::IEventStore7> MakeRemoteStore(const std::string& socket,
                                                   ISessionListener& listener,
                                                   ZEL::CountedPtr<ZEL::IEventStore7> keys) {
    return ZEL::CountedPtr<ZEL::IEventStore7>::Adopt(
        new RemoteStore(socket, listener, std::move(keys)));
}

}  // namespace zel
