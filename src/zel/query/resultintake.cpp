#include "zel/query/resultintake.h"

#include "common/valuetext.h"
#include "connection/storesession.h"
#include "zel/query/jsonscan.h"
#include "zel/terminal/messages.h"

// Results come in batches, on the thread of the query, in the midst of the store's walk. A result
// that is refused ends the walk of its database alone, so refusing goes on until the end.
//
// The way of a row: known already, by its text; no use to the sink; not fitting the filter; beyond
// the limit. What costs least is asked first, but for the filter, which is put only to what is new.
//
// Positions: the store names one with each batch, that of the batch's last row. It is taken over
// only when the whole batch was printed and has left the program.

namespace zel {

namespace {

using ZEL::HRESULT;
namespace hr = ZEL::hr;

}  // namespace

// The store puts enrichments ahead of the last brace; what stood behind that is gone then.
std::string_view EventOf(std::string_view result, bool mayBeJoined) {
    constexpr std::string_view name = ",\"enrichments\":";
    if (mayBeJoined) {
        const JsonScan scan(result);
        const std::string_view joined = scan.Ok() ? scan.LastMember("enrichments") : "";
        const auto at = static_cast<std::size_t>(joined.data() - result.data());
        if (!joined.empty() && at > name.size() &&
            result.substr(at - name.size(), name.size()) == name)
            return result.substr(0, at - name.size());
    }
    return result.substr(0, result.rfind('}'));
}

ZEL::TobResult ResultIntake::QueryInterface(const ZEL::GUID& iid, void** out) {
    *out = nullptr;
    if (plan_.ofFleet && iid == ZEL::iidQueryRows)
        *out = static_cast<ZEL::IQueryRows*>(this);
    else if (plan_.ofFleet && iid == iidFleetCallback)
        *out = static_cast<IFleetCallback*>(this);
    return *out != nullptr ? ZEL::TOB_OK : ZEL::TOBERR_NO_INTERFACE;
}

bool ResultIntake::TakesResults() const noexcept {
    return !broken_ && !Interrupted();
}

bool ResultIntake::WantsMore(std::int64_t rows) const {
    return rows >= 0 && rows_ >= rows && !hasMore_ && !plan_.byReceive && !plan_.ofFleet &&
           TakesResults();
}

// A position is not taken over once the limit has cut something off: the rows behind would never
// come.
HRESULT ResultIntake::OnQueryResults(HRESULT, ZEL::IValueCollection* results, bool isFinal, bool,
                                     ZEL::IStringValue* resumeTime, std::int32_t resumeSequence) {
    if (!TakesResults())
        return hr::aborted;
    if (isFinal) {
        broken_ = broken_ || !sink_.Flush();
        return hr::ok;
    }
    for (std::size_t i = 0; i < results->Count() && !broken_ && !hasEnough_; ++i)
        Take(results->GetValue(i));
    // Each batch goes out whole, so that what was printed is behind the position.
    if (!sink_.Flush())
        broken_ = true;
    if (!TakesResults())
        return hr::aborted;
    if (resumeTime != nullptr && resumeTime->GetLength(0) != 0 && !hasMore_)
        position_ = {wm::ToText(resumeTime), static_cast<std::uint32_t>(resumeSequence)};
    return hr::ok;
}

// The first row goes out at once.
HRESULT ResultIntake::OnQueryRow(const ZEL::QueryRow& row) {
    constexpr unsigned mostUnflushed = 100;
    if (!TakesResults())
        return hr::aborted;
    Take({row.text, row.key, row.host, nullptr});
    if (unflushed_-- == 0) {
        unflushed_ = mostUnflushed;
        broken_ = broken_ || !sink_.Flush();
    }
    if (!TakesResults())
        return hr::aborted;
    return hasEnough_ ? hr::nothingToDo : hr::ok;
}

// Members that the store joined to the text change nothing of the key.
std::string ResultIntake::KeyOf(const Came& event) {
    if (!event.key.empty())
        return std::string(event.key);
    ZEL::CountedPtr<ZEL::IStringValue> key;
    if (event.value != nullptr &&
        Succeeded(store_.MakeKey(event.value, ZEL::keyKindEvent, key.Receive())))
        return wm::ToText(key.Get());
    ++keyless_;
    return "";
}

bool ResultIntake::IsWanted(std::string_view mark, std::string_view text) {
    const bool isEachNew = plan_.byReceive || plan_.ofFleet || wanted_.duplicates;
    return sink_.MayMatter(text) && (filter_ == nullptr || filter_->Fits(text)) &&
           (isEachNew || seen_.Insert(mark));
}

// Repeats are sorted out ahead of the limit, which counts events.
void ResultIntake::Take(ZEL::IStringValue* event) {
    // The store made the result of UTF-8, which is handed on as it stands.
    std::string converted;
    const auto kept = wm::KeptUtf8(*event);
    const std::string_view text = kept ? * kept : converted = wm::ToText(event);
    // Where a fleet gives no rows, it was asked for one host.
    const bool isOfOneHost = plan_.ofFleet && FleetHosts().size() == 1;
    Take({text, {}, isOfOneHost ? std::string_view(FleetHosts().front()) : "", event});
}

void ResultIntake::Take(const Came& event) {
    ++rows_;
    const std::string_view text = event.text;
    const bool isKeyAlone = wanted_.keys == Wanted::alone;
    if (!wanted_.onlyKey.empty() && KeyOf(event) != wanted_.onlyKey)
        return;
    const std::string key = isKeyAlone ? KeyOf(event) : "";
    if (isKeyAlone && key.empty())
        return;
    if (IsWanted(isKeyAlone ? key : EventOf(text, plan_.joinsEnrichments), text))
        HandOn({text, wanted_.keys == Wanted::beside ? KeyOf(event) : key, event.host});
}

// What the limit lets through is counted once it was taken.
void ResultIntake::HandOn(const FoundEvent& event) {
    if (wanted_.limit >= 0 && count_ >= static_cast<std::uint64_t>(wanted_.limit)) {
        hasMore_ = true;
        hasEnough_ = plan_.FirstRows() < 0 && ReadDatabaseErrors(store_, &failures_);
    } else if (sink_.Take(event)) {
        ++count_;
        hasEnough_ = !wanted_.onlyKey.empty() && ReadDatabaseErrors(store_, &failures_);
    } else {
        broken_ = true;
    }
}

}  // namespace zel
