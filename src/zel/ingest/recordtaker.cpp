#include "zel/ingest/recordtaker.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "common/jsontext.h"
#include "common/valuetext.h"
#include "connection/resultwords.h"
#include "zel/ingest/recordcheck.h"
#include "zel/terminal/messages.h"

// The road of one line. The store makes its key, which is where a line that is no record shows; the
// key is looked at for what the store would take and nobody would find again; then the record goes
// into the store's queue, and behind it the row that names it by the time of its receipt. The queue
// is bounded and never waits: when it is full the same record is offered again until there is room,
// so that the input waits and nothing is dropped.

namespace zel {

namespace {

using ZEL::CountedPtr;
using ZEL::HRESULT;
using ZEL::IStringValue;
namespace hr = ZEL::hr;

}  // namespace

// A NUL would end the text for whoever reads it as one that ends there, so the record would not
// come back whole.
RecordTaker::Outcome RecordTaker::Take(const std::string& line, LineProblem* problem) {
    const CountedPtr<IStringValue> text = wm::ToValue(line);
    if (!text) {
        *problem = {"not UTF-8", ""};
        return Outcome::rejected;
    }
    if (line.find('\0') != line.npos) {
        *problem = {"holds a NUL", ""};
        return Outcome::rejected;
    }
    std::string key;
    if (!MakeKey(line, *text, &key, problem))
        return Outcome::rejected;
    if (options_.printKeys || options_.keysOnly)
        output_.Write(key + "\n");
    if (options_.keysOnly) {
        ++counts_.taken;
        return output_.Usable() ? Outcome::taken : Outcome::ended;
    }
    return Store(key, line, *text);
}

// The event first: a row that names an event which is not there would be found and lead nowhere.
RecordTaker::Outcome RecordTaker::Store(const std::string& key, const std::string& line,
                                        IStringValue& text) {
    Outcome outcome = Insert(key_.Get(), &text);
    if (outcome != Outcome::taken) {
        counts_.refused += outcome == Outcome::refused ? 1 : 0;
        return outcome;
    }
    ++counts_.taken;
    CountRepeat(key, line);
    if (options_.receiveRows)
        outcome = InsertReceiveRow(key);
    counts_.rowsRefused += outcome != Outcome::taken ? 1 : 0;
    return outcome;
}

// A key that was made may still hold a time by which nobody would find the record.
bool RecordTaker::MakeKey(const std::string& line, IStringValue& text, std::string* keyText,
                          LineProblem* problem) {
    const HRESULT made = store_->MakeKey(&text, ZEL::keyKindEvent, key_.Receive());
    if (Failed(made)) {
        *problem = WhyNoKey(made, line);
        return false;
    }
    *keyText = wm::ToText(key_.Get());
    *problem = WhyBadTime(*keyText);
    return problem->kind.empty();
}

void RecordTaker::CountRepeat(const std::string& key, const std::string& line) {
    const RepeatedKeys::Repeat repeat = keys_.Add(key, line);
    counts_.repeated += repeat == RepeatedKeys::Repeat::same ? 1 : 0;
    counts_.replaced += repeat == RepeatedKeys::Repeat::other ? 1 : 0;
}

// A full queue is the only failure that passes. The pauses grow, so that a short wait costs little
// time and a long one little work.
RecordTaker::Outcome RecordTaker::Insert(IStringValue* key, IStringValue* value) {
    auto pause = std::chrono::microseconds(200);
    constexpr auto longestPause = std::chrono::microseconds(20000);
    HRESULT result = hr::outOfMemory;
    while (key != nullptr && value != nullptr &&
           (result = store_->Insert(key, value)) == hr::fail) {
        if (Interrupted())
            return Outcome::ended;
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, longestPause);
    }
    if (Succeeded(result))
        return Outcome::taken;
    Say("the store takes no more records: " + Describe(static_cast<std::int32_t>(result)));
    return Outcome::refused;
}

// A follower makes the key, since it has to know which rows to wait for.
RecordTaker::Outcome RecordTaker::InsertReceiveRow(const std::string& eventKey) {
    CountedPtr<IStringValue> key;
    if (follower_ != nullptr)
        key = wm::ToValue(follower_->NextKey());
    else
        ZEL::IgnoreResult(store_->MakeKey(key_.Get(), ZEL::keyKindReceive, key.Receive()),
                          "a key that is missing is not inserted");
    const auto value = wm::ToValue("{\"event_pkey\":" + wm::JsonString(eventKey) + "}");
    return Insert(key.Get(), value.Get());
}

}  // namespace zel
