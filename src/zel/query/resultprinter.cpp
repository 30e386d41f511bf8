#include "zel/query/resultprinter.h"

#include <cpprest/json.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <cstring>

#include "common/valuetext.h"
#include "connection/storesession.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/textfit.h"

namespace zel {

namespace {

using web::json::value;
using ZEL::HRESULT;
namespace hr = ZEL::hr;

class Lines final : public ResultForm {
public:
    std::string Row(const std::string& event, bool) override { return event + "\n"; }
};

class OneArray final : public ResultForm {
public:
    std::string Row(const std::string& event, bool isFirst) override {
        return (isFirst ? "[\n" : ",\n") + event;
    }
    std::string End(bool isEmpty) override { return isEmpty ? "[]\n" : "\n]\n"; }
};

const value* Find(const value& in, const char* key) {
    if (!in.is_object())
        return nullptr;
    const auto found = in.as_object().find(key);
    return found != in.as_object().end() ? &found->second : nullptr;
}

// The first value of a pair, as text; empty when there is none.
std::string FirstValue(const value& in, const char* key) {
    const value* found = Find(in, key);
    if (found != nullptr && found->is_object())
        found = Find(*found, "value");
    if (found != nullptr && found->is_array())
        found = found->size() != 0 ? &found->at(0) : nullptr;
    if (found == nullptr || found->is_null())
        return "";
    return found->is_string() ? found->as_string() : found->serialize();
}

std::string NameOf(const value& artifact) {
    const std::string source = FirstValue(artifact, "src_ip");
    const std::string destination = FirstValue(artifact, "dst_ip");
    if (!source.empty() || !destination.empty())
        return source + " -> " + destination;
    for (const char* key : {"path", "name", "text", "resource", "id", "sha2"}) {
        std::string text = FirstValue(artifact, key);
        if (!text.empty())
            return text;
    }
    return "";
}

// Time, kind and action keep their widths; actor and target share what is left. Of paths the ends
// tell most, so they lose their beginnings.
class Table final : public ResultForm {
public:
    explicit Table(std::size_t columns) : columns_(columns) {
        constexpr std::size_t fixed = timeWidth + objectWidth + actionWidth + 4 * gap;
        constexpr std::size_t narrowest = 8;
        const std::size_t left = columns > fixed ? columns - fixed : 0;
        actorWidth_ = columns == 0 ? 40 : std::max(left * 2 / 5, narrowest);
        targetWidth_ = columns == 0 ? noLimit : std::max(left - left * 2 / 5, narrowest);
    }

    std::string Row(const std::string& event, bool isFirst) override {
        const std::string heading =
            isFirst ? Line("TIME", "OBJECT", "ACTION", "ACTOR", "TARGET") : "";
        value parsed;
        try {
            parsed = value::parse(event);
        } catch (const std::exception&) {
            return heading + Cut(Escaped(event)) + "\n";
        }
        const value none = value::object();
        const value* const artifacts = Find(parsed, "artifacts");
        const value* const actor = artifacts != nullptr ? Find(*artifacts, "actor") : nullptr;
        const value* const target = artifacts != nullptr ? Find(*artifacts, "target") : nullptr;
        return heading + Line(FirstValue(parsed, "begin_time"),
                              target != nullptr ? FirstValue(*target, "object_type") : "",
                              FirstValue(parsed, "action"), NameOf(actor ? *actor : none),
                              NameOf(target ? *target : none));
    }

private:
    static constexpr std::size_t timeWidth = 24, objectWidth = 13, actionWidth = 9, gap = 1;
    static constexpr std::size_t noLimit = std::string::npos;

    std::string Cut(const std::string& line) const {
        return columns_ == 0 ? line : Fit(line, columns_, Keep::start);
    }

    static std::string Column(const std::string& text, std::size_t width, std::size_t widest,
                              Keep keep) {
        std::string column = Fit(text, widest, keep);
        const std::size_t taken = DisplayWidth(column);
        return column + std::string(taken < width ? width - taken + gap : gap, ' ');
    }

    std::string Line(const std::string& time, const std::string& object, const std::string& action,
                     const std::string& actor, const std::string& target) const {
        const bool cuts = columns_ != 0;
        const auto most = [cuts](std::size_t width) { return cuts ? width : noLimit; };
        std::string line = Column(time, timeWidth, most(timeWidth), Keep::start) +
                           Column(object, objectWidth, most(objectWidth), Keep::start) +
                           Column(action, actionWidth, most(actionWidth), Keep::start) +
                           Column(actor, actorWidth_, most(actorWidth_), Keep::end) +
                           Fit(target, targetWidth_, Keep::end);
        line.erase(line.find_last_not_of(' ') + 1);
        return Cut(line) + "\n";
    }

    const std::size_t columns_;
    std::size_t actorWidth_, targetWidth_;
};

}  // namespace

std::unique_ptr<ResultForm> MakeResultForm(const std::string& name, std::size_t columns) {
    if (name == "table")
        return std::make_unique<Table>(columns);
    if (name == "json")
        return std::make_unique<OneArray>();
    return std::make_unique<Lines>();
}

std::size_t TerminalColumns() {
    const char* const given = std::getenv("COLUMNS");
    std::size_t columns = 0;
    if (given != nullptr && *given != '\0') {
        const char* const end = given + std::strlen(given);
        const auto parsed = std::from_chars(given, end, columns);
        if (parsed.ec == std::errc() && parsed.ptr == end && columns > 0)
            return columns;
    }
    winsize size{};
    return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

bool ResultPrinter::Wanted() const noexcept {
    return !broken_ && !Interrupted();
}

HRESULT ResultPrinter::OnQueryResults(HRESULT, ZEL::IValueCollection* results, bool isFinal,
                                      bool isComplete, ZEL::IStringValue* resumeTime,
                                      std::int32_t resumeSequence) {
    if (!Wanted())
        return hr::aborted;
    if (isFinal) {
        complete_ = complete_ && isComplete;
        output_.Write(form_.End(count_ == 0));
        return hr::ok;
    }
    for (std::size_t i = 0; i < results->Count() && !broken_; ++i)
        Print(results->GetValue(i));
    // Each batch goes out whole, so that what was printed is behind the position.
    if (!output_.Flush())
        broken_ = true;
    if (!Wanted())
        return hr::aborted;
    if (resumeTime != nullptr && resumeTime->GetLength(0) != 0)
        position_ = {wm::ToText(resumeTime), static_cast<std::uint32_t>(resumeSequence)};
    return hr::ok;
}

// The key tells an event, whatever enrichments were joined to its text meanwhile.
bool ResultPrinter::IsNew(ZEL::IStringValue* event, const std::string& text) {
    if (!plan_.distinct)
        return true;
    ZEL::CountedPtr<ZEL::IStringValue> key;
    const bool hasKey = Succeeded(store_.MakeKey(event, ZEL::keyKindEvent, key.Receive()));
    return keys_.insert(hasKey ? wm::ToText(key.Get()) : text).second;
}

void ResultPrinter::Print(ZEL::IStringValue* event) {
    const std::string text = wm::ToText(event);
    if (!IsNew(event, text))
        return;
    if (plan_.printLimit >= 0 && count_ >= static_cast<std::uint64_t>(plan_.printLimit)) {
        complete_ = false;
        return;
    }
    if (output_.Write(form_.Row(text, count_ == 0)))
        ++count_;
    else
        broken_ = true;
}

}  // namespace zel
