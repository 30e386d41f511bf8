#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

namespace zel {

// One fact of a source event, under the source's own name. Nested members have dotted names
// ("process.parent.pid"). The values of an array are fields of one name that stand behind one
// another; an array that holds more than plain values is one field of JSON.
struct SourceField {
    enum class Kind : std::uint8_t {
        text,
        number,  // as it stood in the source
        json,    // true, false, null, {}, [], or an array of other things, as it stood
    };
    enum class Part : std::uint8_t { alone, first, further };  // within an array

    std::string_view name;
    std::string_view text;  // UTF-8
    Kind kind = Kind::text;
    Part part = Part::alone;
    // Nothing of it is lost when it is left out of the record's `unmapped`.
    bool taken = false;

    // Sources write "-" and "" for what they don't know.
    bool IsAbsent() const noexcept;
};

// The fields of one source event, found by name. One object is filled for one event after the
// other, so that its memory is taken once. For one thread.
//
// Texts are views. What was added must live as long as the fields are used; `Keep` makes texts that
// live until Clear.
class SourceFields {
public:
    void Clear() noexcept;

    SourceField& AddText(std::string_view name, std::string_view text);
    SourceField& AddNumber(std::string_view name, std::string_view digits);
    // `json` must be good JSON.
    SourceField& AddJson(std::string_view name, std::string_view json);
    // A copy of a field, of other fields too, whose texts must live on.
    SourceField& AddCopy(const SourceField& field) { return fields_.emplace_back(field); }
    // Room for `size` bytes, of which a text may be made; good until Clear.
    char* Room(std::size_t size);
    std::string_view Keep(std::string_view text);
    std::string_view Keep(std::string_view front, std::string_view back);

    // From here on names are looked for behind this prefix alone ("event_data."), and written to
    // `unmapped` without it. A text that lives as long as the fields; empty: all names.
    void SetScope(std::string_view prefix) noexcept { scope_ = prefix; }
    std::string_view Scope() const noexcept { return scope_; }

    // The name exactly, else without regard to the case of ASCII letters; null when there is none.
    // Absent values count: the caller asks IsAbsent. Good until the next field is added.
    SourceField* Find(std::string_view name) noexcept;
    // The same of "a|b": the first that is there and not absent.
    SourceField* FindPresent(std::string_view alternatives) noexcept;
    // By the full name, whatever the scope.
    SourceField* FindWhole(std::string_view fullName) noexcept;
    // Of FindWhole: the text, marked as taken; empty when there is none or it is absent.
    std::string_view Take(std::string_view fullName) noexcept;
    // Whether there is a field with this full name, or one below it ("winlog" for "winlog.api").
    bool Has(std::string_view fullName) const noexcept;

    // All, in the source's order.
    std::span<SourceField> All() noexcept { return fields_; }
    std::span<const SourceField> All() const noexcept { return fields_; }
    // To be called ahead of ShownName, and again once there are more fields.
    void GatherOuterNames();
    // The name that `unmapped` uses.
    std::string_view ShownName(const SourceField& field) const noexcept;

private:
    struct Block {
        std::unique_ptr<char[]> bytes;
        std::size_t size = 0;
    };

    SourceField& Add(std::string_view name, std::string_view text, SourceField::Kind kind);

    std::vector<SourceField> fields_;
    std::string_view scope_;
    std::vector<std::string_view> outerNames_;  // sorted, of the fields without the scope's prefix
    std::vector<Block> blocks_;
    std::size_t block_ = 0;  // the one that is being filled
    std::size_t used_ = 0;   // of it
};

// The pieces of "a|b|c", one after the other, as long as `use` gives false; whether it gave true.
template <typename Use>
bool AnyOfAlternatives(std::string_view alternatives, Use use) {
    for (;;) {
        const std::size_t bar = alternatives.find('|');
        if (use(alternatives.substr(0, bar)))
            return true;
        if (bar == alternatives.npos)
            return false;
        alternatives.remove_prefix(bar + 1);
    }
}

}  // namespace zel
