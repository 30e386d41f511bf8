#include "zel/query/resultprinter.h"

#include "common/jsontext.h"
#include "common/valuetext.h"
#include "connection/storesession.h"
#include "zel/query/jsonscan.h"
#include "zel/terminal/messages.h"

// Results come in batches, on the thread of the query, in the midst of the store's walk. A result
// that is refused ends the walk of its database alone, so refusing goes on until the end.
//
// Positions: the store names one with each batch, that of the batch's last row. It is taken over
// only when the whole batch was printed and has left the program.

namespace zel {

namespace {

using ZEL::HRESULT;
namespace hr = ZEL::hr;

// Put into the text and not into a parsed one, so that all else stays as it was stored.
std::string WithKey(std::string_view event, const std::string& key) {
    std::string text(event);
    const std::size_t brace = text.find('{');
    if (brace != text.npos)
        text.insert(brace + 1, "\"key\":" + wm::JsonString(key) + ",");
    return text;
}

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

bool ResultPrinter::TakesResults() const noexcept {
    return !broken_ && !Interrupted();
}

bool ResultPrinter::WantsMore(std::int64_t rows) const {
    return rows >= 0 && rows_ >= rows && !hasMore_ && !plan_.byReceive && TakesResults();
}

// A position is not taken over once the limit has cut something off: the rows behind would never
// come.
HRESULT ResultPrinter::OnQueryResults(HRESULT, ZEL::IValueCollection* results, bool isFinal, bool,
                                      ZEL::IStringValue* resumeTime, std::int32_t resumeSequence) {
    if (!TakesResults())
        return hr::aborted;
    if (isFinal)
        return hr::ok;
    for (std::size_t i = 0; i < results->Count() && !broken_; ++i)
        Take(results->GetValue(i));
    // Each batch goes out whole, so that what was printed is behind the position.
    if (!output_.Flush())
        broken_ = true;
    if (!TakesResults())
        return hr::aborted;
    if (resumeTime != nullptr && resumeTime->GetLength(0) != 0 && !hasMore_)
        position_ = {wm::ToText(resumeTime), static_cast<std::uint32_t>(resumeSequence)};
    return hr::ok;
}

// Members that the store joined to the text change nothing of the key.
std::string ResultPrinter::KeyOf(ZEL::IStringValue* event) {
    ZEL::CountedPtr<ZEL::IStringValue> key;
    if (Succeeded(store_.MakeKey(event, ZEL::keyKindEvent, key.Receive())))
        return wm::ToText(key.Get());
    ++keyless_;
    return "";
}

// Repeats are sorted out ahead of the limit, which counts events.
void ResultPrinter::Take(ZEL::IStringValue* event) {
    ++rows_;
    // The store made the result of UTF-8, which is printed as it stands.
    std::string converted;
    const auto kept = wm::KeptUtf8(*event);
    const std::string_view text = kept ? * kept : converted = wm::ToText(event);
    const std::string key = wanted_.keys != Wanted::none ? KeyOf(event) : "";
    const bool isKeyAlone = wanted_.keys == Wanted::alone;
    if (isKeyAlone && key.empty())
        return;
    const std::string_view mark = isKeyAlone ? key : EventOf(text, plan_.joinsEnrichments);
    if (!plan_.byReceive && !wanted_.duplicates && !seen_.Insert(mark))
        return;
    if (plan_.limit >= 0 && count_ >= static_cast<std::uint64_t>(plan_.limit))
        hasMore_ = true;
    else if (isKeyAlone)
        Print(key);
    else if (key.empty())
        Print(text);
    else
        Print(WithKey(text, key));
}

// A row that could not be written is not counted.
void ResultPrinter::Print(std::string_view row) {
    if (output_.Write(form_.Row(row, count_ == 0)))
        ++count_;
    else
        broken_ = true;
}

}  // namespace zel
