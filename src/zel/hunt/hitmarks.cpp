#include "zel/hunt/hitmarks.h"

#include "common/valuetext.h"
#include "hunt/hittexts.h"
#include "zel/query/resultintake.h"
#include "zel/terminal/messages.h"

namespace zel {

bool HitMarks::Add(const Rule& rule, std::string_view event, std::string_view result) {
    // What stands behind the event's own text was joined to it.
    const std::string_view joined = result.substr(EventOf(result, true).size());
    if (joined.find(StartOfMark(rule)) != joined.npos) {
        ++known_;
        return true;
    }
    ZEL::CountedPtr<ZEL::IStringValue> key;
    const auto text = wm::ToValue(event);
    if (!text || Failed(store_->MakeKey(text.Get(), ZEL::keyKindEvent, key.Receive()))) {
        ++keyless_;
        return true;
    }
    return writer_.Add(wm::ToText(key.Get()), MarkOf(rule));
}

bool HitMarks::Tell() const {
    const std::uint64_t lost = store_.Lost().enrichments;
    std::string text = std::to_string(writer_.Taken() - lost) + " hit(s) stored with their events";
    if (known_ != 0)
        text += ", " + std::to_string(known_) + " stood there already";
    if (lost != 0)
        text += ", " + std::to_string(lost) + " lost";
    if (writer_.Refused() + keyless_ != 0)
        text += ", " + std::to_string(writer_.Refused() + keyless_) + " refused";
    Say(text);
    return lost + writer_.Refused() + keyless_ == 0;
}

}  // namespace zel
