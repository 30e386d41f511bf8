#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "hunt/eventkind.h"
#include "hunt/rule.h"
#include "questions/narrowing.h"

namespace zel {

// Which events a log source means.
struct SourceMeaning {
    struct Deed {
        std::string_view object;
        std::string_view action;  // empty: any
        bool operator==(const Deed&) const = default;
    };

    Product product = Product::unknown;  // unknown: any
    std::string_view format;             // empty: any
    std::vector<std::string_view> channels;
    std::vector<std::uint32_t> numbers;  // of their events; empty: all
    // What all of them are; empty: not known.
    std::vector<Deed> deeds;
    // Records that are of no channel of Windows are meant, too, where they are such a deed.
    bool isShared = false;
    bool asksAuditLog = false;  // so are those of the channel Security

    bool operator==(const SourceMeaning&) const = default;

    bool Means(const EventKind& kind) const;
    // Kinds of events that have their fields where those of the source have them, one for each
    // place that there is.
    std::vector<EventKind> Examples() const;
    std::vector<Narrowing> Narrowings() const;
};

// False, with the reason, where no record can be meant.
bool FindSource(const LogSource& source, bool asksAuditLog, SourceMeaning* meaning,
                std::string* problem);

// The names of the fields that Sysmon gives events of the number, beside those of all its events.
std::span<const std::string_view> SysmonFields(std::uint32_t number);

}  // namespace zel
