#pragma once

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "hunt/fieldplaces.h"
#include "hunt/ruleevent.h"
#include "hunt/rulesources.h"

namespace zel {

// The inside of a vocabulary, which events read.
struct RuleVocabulary::Tables {
    // Where a field is in the events of a source.
    struct Places {
        std::vector<FieldPlace> all;      // of all kinds of events, each once
        std::optional<FieldPlace> usual;  // of the kinds of the first; none: only in `unmapped`
        FieldStanding standing = FieldStanding::never;
        bool isKnown = false;
    };
    struct Source {
        SourceMeaning meaning;
        std::vector<EventKind> examples;
        std::vector<Places> fields;  // by FieldId, as far as they were asked for
    };

    const Places& PlacesIn(SourceId source, FieldId field);

    VocabularyOptions options;
    std::vector<Source> sources;
    std::vector<std::string> fields;
    std::unordered_map<std::string, FieldId> numbers;  // by names in upper case
};

}  // namespace zel
