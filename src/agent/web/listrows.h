#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/web/countgaps.h"
#include "agent/web/listbest.h"

namespace zel {

// Columns of an event (records/columns.h), members of its record by JSON pointers such as
// /unmapped/gap, and "rule" and "level" of the rules that fit it.
class ListCells {
public:
    // None, with words, for a column that there is not. An empty list: those that suit.
    static std::optional<ListCells> Read(std::string_view list, std::string* problem);

    bool NeedEnrichments() const noexcept { return needsEnrichments_; }

    // As a JSON array. For one thread.
    std::string Write(const ListedEvent& event, RecordReader& reader) const;

private:
    struct Cell {
        const Column* column = nullptr;
        std::string member;  // with dots
        enum { ofColumn, ofMember, rules, level } from = ofColumn;
    };
    std::string ValueOf(const Cell& cell, const ListedEvent& event, RecordReader& reader,
                        bool isRead) const;

    std::vector<Cell> cells_;
    bool needsEnrichments_ = false;
};

struct ListAsk {
    bool newestFirst = true;
    std::size_t most = 200;
    std::uint64_t skip = 0;              // rows behind the position
    std::optional<EventPlace> behind{};  // of the row behind which the list goes on
    std::int64_t window = 0;             // milliseconds that likely hold a page; 0: not known
    ListCells cells{};
};
// A position as the list tells it; empty: from the begin. False for any other text.
bool ReadListPosition(std::string_view text, ListAsk* ask);

// Writes a page of the events in the order of their places, one row a line, and a last line that
// tells whether there are more. For the thread of the question.
void AnswerList(QuestionWork& work, const CountContext& context, EventQuestion question,
                const ListAsk& ask);

// The same of events around a moment that a test lets pass: the nearest ones, in their order.
struct AroundAsk {
    std::int64_t time = 0, distance = 0;  // milliseconds
    std::size_t most = 200;
    std::function<bool(std::string_view text)> fits = nullptr;  // null: all
    ListCells cells{};
};
void AnswerAround(QuestionWork& work, EventQuestion question, const AroundAsk& ask);

}  // namespace zel
