#include "agent/web/webrange.h"

#include <memory>

#include "questions/narrowing.h"
#include "zelstore/keys/keyformat.h"

namespace zel {

EventRange RangeOf(QuestionWork& work, const CountContext& context) {
    const std::string name = "range of all";
    if (const auto known = context.cache.Find(name, context.changes))
        return *static_cast<const EventRange*>(known.get());
    const std::string mark = context.changes.Mark();
    const auto range = std::make_shared<EventRange>();
    Narrowing all;
    const ZEL::HRESULT walked = work.Walk(R"({"event_query":{"events":[)" + SubQueryOf(all) + "]}}",
                                          [&range](const ZEL::QueryRow& row) {
                                              const std::string_view time =
                                                  ZEL::BeginTimeOf(row.key);
                                              if (time > range->last)
                                                  range->last = time;
                                              if (range->first.empty() || time < range->first)
                                                  range->first = time;
                                              return ZEL::hr::ok;
                                          });
    if (Succeeded(walked) && !work.IsOver())
        context.cache.Keep(name, {mark, EventSpan(), false, range, sizeof(EventRange)});
    return *range;
}

}  // namespace zel
