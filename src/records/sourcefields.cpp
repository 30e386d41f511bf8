#include "records/sourcefields.h"

#include <algorithm>
#include <cstring>

#include "common/asciicase.h"

// Events have a few dozen fields, and each is asked for a few times. So they stand in a list and
// are searched from the front: to put them into a map would cost more than it saved.

namespace zel {

namespace {

constexpr std::size_t blockSize = 16U << 10;
// One event of many megabytes must not keep its memory for the rest of the run.
constexpr std::size_t mostBlocksKept = 64;
constexpr std::size_t mostFieldsKept = 4096;

}  // namespace

bool SourceField::IsAbsent() const noexcept {
    if (kind == Kind::json)
        return text == "null" || text == "{}" || text == "[]";
    return text.empty() || text == "-";
}

void SourceFields::Clear() noexcept {
    fields_.clear();
    if (fields_.capacity() > mostFieldsKept)
        fields_.shrink_to_fit();
    if (blocks_.size() > mostBlocksKept)
        blocks_.clear();
    scope_ = {};
    block_ = used_ = 0;
}

SourceField& SourceFields::Add(std::string_view name, std::string_view text,
                               SourceField::Kind kind) {
    SourceField& field = fields_.emplace_back();
    field.name = name;
    field.text = text;
    field.kind = kind;
    return field;
}

SourceField& SourceFields::AddText(std::string_view name, std::string_view text) {
    return Add(name, text, SourceField::Kind::text);
}

SourceField& SourceFields::AddNumber(std::string_view name, std::string_view digits) {
    return Add(name, digits, SourceField::Kind::number);
}

SourceField& SourceFields::AddJson(std::string_view name, std::string_view json) {
    return Add(name, json, SourceField::Kind::json);
}

// Blocks stay for the next event; what does not fit gets a block of its own size.
char* SourceFields::Room(std::size_t size) {
    while (block_ < blocks_.size() && blocks_[block_].size - used_ < size) {
        ++block_;
        used_ = 0;
    }
    if (block_ == blocks_.size()) {
        const std::size_t room = std::max(size, blockSize);
        blocks_.push_back({std::make_unique_for_overwrite<char[]>(room), room});
        used_ = 0;
    }
    char* const place = blocks_[block_].bytes.get() + used_;
    used_ += size;
    return place;
}

std::string_view SourceFields::Keep(std::string_view text) {
    return Keep(text, {});
}

std::string_view SourceFields::Keep(std::string_view front, std::string_view back) {
    char* const place = Room(front.size() + back.size());
    std::copy(front.begin(), front.end(), place);
    std::copy(back.begin(), back.end(), place + front.size());
    return {place, front.size() + back.size()};
}

// The lengths settle nearly all comparisons.
SourceField* SourceFields::Find(std::string_view name) noexcept {
    SourceField* likely = nullptr;
    for (SourceField& field : fields_) {
        if (field.name.size() != scope_.size() + name.size() || !field.name.starts_with(scope_))
            continue;
        const std::string_view own = field.name.substr(scope_.size());
        if (own == name)
            return &field;
        if (likely == nullptr && ZEL::EqualsNoCase(own, name))
            likely = &field;
    }
    return likely;
}

SourceField* SourceFields::FindPresent(std::string_view alternatives) noexcept {
    SourceField* found = nullptr;
    AnyOfAlternatives(alternatives, [&](std::string_view name) {
        found = Find(name);
        if (found != nullptr && found->IsAbsent())
            found = nullptr;
        return found != nullptr;
    });
    return found;
}

SourceField* SourceFields::FindWhole(std::string_view fullName) noexcept {
    const auto found = std::find_if(fields_.begin(), fields_.end(), [&](const SourceField& field) {
        return field.name == fullName;
    });
    return found != fields_.end() ? &*found : nullptr;
}

std::string_view SourceFields::Take(std::string_view fullName) noexcept {
    SourceField* const field = FindWhole(fullName);
    if (field == nullptr || field->IsAbsent())
        return {};
    field->taken = true;
    return field->text;
}

bool SourceFields::Has(std::string_view fullName) const noexcept {
    return std::any_of(fields_.begin(), fields_.end(), [&](const SourceField& field) {
        return field.name.starts_with(fullName) &&
               (field.name.size() == fullName.size() || field.name[fullName.size()] == '.');
    });
}

// An event may have as many fields as fit into a line, so each is not looked for among all.
void SourceFields::GatherOuterNames() {
    outerNames_.clear();
    if (scope_.empty())
        return;
    for (const SourceField& field : fields_)
        if (!field.name.starts_with(scope_))
            outerNames_.push_back(field.name);
    std::sort(outerNames_.begin(), outerNames_.end());
}

// A name of the event's own data stands without its prefix, so that it is the same whatever
// collector has brought it; unless the collector has a field of that name.
std::string_view SourceFields::ShownName(const SourceField& field) const noexcept {
    if (scope_.empty() || !field.name.starts_with(scope_))
        return field.name;
    const std::string_view own = field.name.substr(scope_.size());
    const bool isDouble = std::binary_search(outerNames_.begin(), outerNames_.end(), own);
    return isDouble ? field.name : own;
}

}  // namespace zel
