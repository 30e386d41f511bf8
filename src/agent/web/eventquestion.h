#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/asking/questions.h"
#include "agent/parameters.h"
#include "agent/web/countkey.h"
#include "records/seentexts.h"

namespace zel {

// A range of time in milliseconds since 1970, both ends inclusive.
struct EventSpan {
    static constexpr std::int64_t noBegin = -11644473600000;  // 1601
    static constexpr std::int64_t noEnd = 253402300799999;    // 9999

    std::int64_t since = noBegin, until = noEnd;
    bool Holds(std::int64_t time) const noexcept { return since <= time && time <= until; }
    bool operator==(const EventSpan&) const = default;
};

// What an enrichment says of a rule that fits its event. Texts as JSON decodes them.
struct RuleMark {
    std::string id, title, level;
    // By which the rule is known: its identifier, or its title where it has none.
    const std::string& Name() const noexcept { return id.empty() ? title : id; }
};
// Of a JSON array of enrichments; empty for any other text.
std::vector<RuleMark> RuleMarksIn(std::string_view enrichments);
// The highest level of the marks; "none" without any.
std::string_view HighestLevel(const std::vector<RuleMark>& marks);

// Which events are asked for: the conditions of `zel query` as parameters, and beside them
//
//   rule, without_rule   the identifier of a rule, or its title where it has none
//   level                of the highest rule that fits, or "none"
//
// For one thread.
class EventQuestion {
public:
    // None, with words, where a parameter can't be asked. `ask` must outlive the question.
    static std::optional<EventQuestion> Make(Parameters parameters, const AskByParameters& ask,
                                             std::string* problem);

    // Rules and levels are known by enrichments, which cost a look for each event.
    void ReadEnrichments() { readsEnrichments_ = true; }
    bool HasEnrichments() const noexcept { return readsEnrichments_; }

    // Whether nothing but a range is asked.
    bool IsOfAllEvents() const noexcept {
        return parameters_.empty() && rules_.empty() && withoutRules_.empty() && levels_.empty();
    }
    // Whether conditions of that name are asked, and none with that value, which beside them would
    // be an alternative.
    bool AsksOther(std::string_view name, std::string_view value) const;
    const EventSpan& Range() const noexcept { return range_; }
    // What tells the question from all others, so that its answer may be kept; none where it
    // depends on the moment.
    const std::optional<std::string>& Name() const noexcept { return name_; }

    using OnEvent = std::function<ZEL::HRESULT(const ZEL::QueryRow& row, const EventKeyHead& head)>;
    // Walks what fits within a part of the range, in no order over folders. An event may come
    // again where it was stored on several days.
    ZEL::HRESULT Walk(QuestionWork& work, const EventSpan& part, const OnEvent& onEvent);
    // The same, of the whole range, each event once. One that was stored on several days has one
    // key.
    ZEL::HRESULT WalkOnce(QuestionWork& work, const OnEvent& onEvent);

private:
    EventQuestion() = default;
    bool ReadDocument(const std::string& document, std::string* problem);
    std::optional<std::string> DocumentFor(const EventSpan& part) const;
    bool Fits(const ZEL::QueryRow& row) const;

    const AskByParameters* ask_ = nullptr;
    Parameters parameters_;  // without those of the range
    std::vector<std::string> rules_, withoutRules_, levels_;
    std::function<bool(std::string_view)> fits_;
    EventSpan range_;
    std::optional<std::string> name_;
    bool readsEnrichments_ = false;
};

// In the store's form.
std::string TimeText(std::int64_t milliseconds);

}  // namespace zel
