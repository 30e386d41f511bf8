#include "records/eventkey.h"

#include <string>

#include "records/timearg.h"
#include "zelstore/keys/keyformat.h"

namespace zel {

std::string_view WhyNoEventKey(std::string_view key) {
    constexpr std::size_t dateLength = 10;
    const ZEL::KeyShape shape = ZEL::ShapeOf(key);
    if (shape == ZEL::KeyShape::receive)
        return "this is the key of a receive-time row, not of an event";
    if (shape == ZEL::KeyShape::none)
        return "an event's key begins with p<begin_time>";
    const std::string date(ZEL::BeginTimeOf(key).substr(0, dateLength));
    const TimeArgument time = ParseTimeArgument(date, {});
    if (date.empty() || date[0] < '0' || date[0] > '9' || !time.ok)
        return "the key has no date";
    if (shape == ZEL::KeyShape::cutOff)
        return "the key is cut off: it has no sequence, object_type or action";
    if (shape == ZEL::KeyShape::enrichment)
        return "this is the key of an enrichment, not of an event";
    return "";
}

std::string_view WhyNoKeyToEnrich(std::string_view key) {
    const std::size_t end = key.find("<silent_sequence>");
    const bool isEnrichment = ZEL::ShapeOf(key) == ZEL::KeyShape::enrichment && end != key.npos;
    return WhyNoEventKey(isEnrichment ? key.substr(0, end) : key);
}

}  // namespace zel
