#pragma once

#include <array>
#include <atomic>
#include <set>
#include <string>
#include <vector>

#include "rows.h"

namespace ZEL::soak {

// What is known of one producer's rows in a phase. For each number, and each kind of row:
// acknowledged + n for the n-th row that the event queue took, or another Fate.
struct Producer {
    std::atomic<unsigned> sent{0};
    std::vector<std::array<std::atomic<std::uint32_t>, kinds>> fates{mostEvents};
};

// Asks for events with numbers `from` to below `to` on the date of `from`; or for the receive-time
// rows since `since`.
struct Question {
    unsigned phase = 0, from = 0, to = 3000;
    bool creations = false, enrichments = true, isReceive = false;
    std::string since = "";

    bool AsksFor(Kind kind, unsigned number) const {
        if (isReceive || kind == receive)
            return isReceive && kind == receive;
        return number >= from && number < to && DayOf(number) == DayOf(from) &&
               (!creations || IsCreation(number));
    }

    std::string Document() const {
        std::string text =
            isReceive ? R"({"receive_time":{"value":")" + since
                      : R"({"begin_time":{"value":")" + TimeText(phase, DayOf(from), from) +
                            R"("},"end_time":{"operator":{"value":"less_than"},"value":")" +
                            TimeText(phase, DayOf(from), to);
        text += creations ? R"("},"action":["create"]})" : R"("}})";
        return R"({"event_query":{"events":[)" + text + R"(],"include_enrichments":)" +
               (enrichments ? "true}}" : "false}}");
    }

    // Nothing but what was asked for, whole, and nothing twice; and, when the query ran to its end,
    // all that the event queue took before the `onDisk`-th row. Of the receive-time rows of a
    // producer those after the first that came.
    void Check(const std::vector<Producer>& producers, const std::vector<std::string>& results,
               bool isWhole, std::uint32_t onDisk) const {
        std::set<std::array<unsigned, 3>> seen;
        std::vector<unsigned> first(producers.size(), isReceive ? mostEvents : 0);
        for (const std::string& text : results) {
            const RowId id = IdOf(text);
            const bool isEnriched = enrichments && id.kind == event && text != Result(id, false);
            if (id.kind == kinds || id.phase != phase || id.producer >= producers.size() ||
                id.number >= producers[id.producer].sent || !AsksFor(id.kind, id.number) ||
                text != Result(id, isEnriched) ||
                !seen.insert({id.producer, id.number, id.kind}).second)
                return Broken(Document() + " gave " + text.substr(0, 200));
            first[id.producer] = std::min(first[id.producer], id.number);
        }
        for (unsigned producer = 0; isWhole && producer < producers.size(); ++producer)
            for (unsigned number = first[producer]; number < producers[producer].sent; ++number)
                for (const Kind kind : {event, receive, live}) {
                    const std::uint32_t fate = producers[producer].fates[number][kind];
                    if (fate >= acknowledged && fate - acknowledged < onDisk &&
                        AsksFor(kind, number) && !seen.contains({producer, number, kind}))
                        Broken(Document() + " did not give row " + std::to_string(kind) + " of " +
                               EventKey({kind, phase, producer, number}));
                }
    }
};

}  // namespace ZEL::soak
