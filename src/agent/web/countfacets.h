#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/web/countgaps.h"

namespace zel {

// What the values of events are counted by.
enum class FacetKind : std::uint8_t {
    object,
    action,
    actor,
    target,
    address,
    user,
    computer,
    rule
};

struct FacetsAsk {
    std::vector<FacetKind> kinds;
    std::size_t most = 12;  // values of each
};

// Of a list with commas between; none, with words, for a name that there is not. An empty one: all.
std::optional<std::vector<FacetKind>> ReadFacetKinds(std::string_view list, std::string* problem);

// Writes the most frequent values, each with the parameter that asks for it and the one that
// excludes it, as one object of JSON. For the thread of the question.
void AnswerFacets(QuestionWork& work, const CountContext& context, EventQuestion question,
                  const FacetsAsk& ask);

}  // namespace zel
