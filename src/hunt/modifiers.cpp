#include "hunt/modifiers.h"

#include <algorithm>
#include <array>
#include <vector>

// Modifiers work on the value one after the other, in the order in which they stand. Most orders
// that make a difference make no sense: what `contains` has put wildcards around can't be encoded.
// So each modifier says what may not stand ahead of it, and the order of the rest does not matter.

namespace zel {

namespace {

using Kind = ValueTest::Kind;

enum class Group : std::uint8_t {
    list,    // how the values of a list stand together
    manner,  // how a value is compared
    expand,
    dashes,
    utf16,
    base64,
    place,      // where in the value
    reference,  // to another field
    type,       // the value is no text
    flag,       // of an expression
};

struct Modifier {
    std::string_view name;
    Group group;
    void (*apply)(Modifiers*);
};

template <Kind kind>
void OfKind(Modifiers* modifiers) {
    modifiers->kind = kind;
}
template <Utf16Form form>
void InUtf16(Modifiers* modifiers) {
    modifiers->utf16 = form;
}
template <Modifiers::Base64 form>
void InBase64(Modifiers* modifiers) {
    modifiers->base64 = form;
}
template <bool ahead, bool behind>
void At(Modifiers* modifiers) {
    modifiers->runAhead = ahead;
    modifiers->runBehind = behind;
}
template <char flag>
void WithFlag(Modifiers* modifiers) {
    modifiers->flags += flag;
}

constexpr std::array modifierTable = {
    Modifier{"all", Group::list, [](Modifiers* m) { m->isAll = true; }},
    Modifier{"neq", Group::list, [](Modifiers* m) { m->isNegated = true; }},
    Modifier{"cased", Group::manner, [](Modifiers* m) { m->isCased = true; }},
    Modifier{"expand", Group::expand, [](Modifiers* m) { m->expands = true; }},
    Modifier{"windash", Group::dashes, [](Modifiers* m) { m->dashes = true; }},
    Modifier{"wide", Group::utf16, InUtf16<Utf16Form::little>},
    Modifier{"utf16le", Group::utf16, InUtf16<Utf16Form::little>},
    Modifier{"utf16be", Group::utf16, InUtf16<Utf16Form::big>},
    Modifier{"utf16", Group::utf16, InUtf16<Utf16Form::littleWithMark>},
    Modifier{"base64", Group::base64, InBase64<Modifiers::Base64::whole>},
    Modifier{"base64offset", Group::base64, InBase64<Modifiers::Base64::offsets>},
    Modifier{"contains", Group::place, At<true, true>},
    Modifier{"startswith", Group::place, At<false, true>},
    Modifier{"endswith", Group::place, At<true, false>},
    Modifier{"fieldref", Group::reference, OfKind<Kind::equalsField>},
    Modifier{"re", Group::type, OfKind<Kind::expression>},
    Modifier{"cidr", Group::type, OfKind<Kind::network>},
    Modifier{"exists", Group::type, OfKind<Kind::isThere>},
    Modifier{"lt", Group::type, OfKind<Kind::less>},
    Modifier{"lte", Group::type, OfKind<Kind::atMost>},
    Modifier{"gt", Group::type, OfKind<Kind::greater>},
    Modifier{"gte", Group::type, OfKind<Kind::atLeast>},
    Modifier{"i", Group::flag, WithFlag<'i'>},
    Modifier{"m", Group::flag, WithFlag<'m'>},
    Modifier{"s", Group::flag, WithFlag<'s'>},
};

bool IsOneOf(Group group, std::initializer_list<Group> groups) {
    return std::find(groups.begin(), groups.end(), group) != groups.end();
}

// Whether `later` may stand behind `earlier`.
bool MayFollow(const Modifier& earlier, const Modifier& later) {
    using enum Group;
    const bool isOnce = IsOneOf(later.group, {utf16, base64, place});
    if (earlier.name == later.name || (isOnce && earlier.group == later.group))
        return false;
    if (earlier.group == list || later.group == list)
        return earlier.name != "exists" && later.name != "exists" && earlier.group != later.group;
    switch (later.group) {
        case flag:
            return earlier.name == "re" || earlier.group == flag;
        case type:
            return later.name == "cidr" && earlier.group == expand;
        case reference:
            return earlier.group == manner;
        case base64:
        case utf16:
            return IsOneOf(earlier.group, {manner, expand, dashes, utf16});
        case expand:
        case dashes:
            return IsOneOf(earlier.group, {manner, expand, dashes, place});
        case manner:
        case place:
            return earlier.group != type && earlier.group != flag;
        case list:
            break;
    }
    return true;
}

bool Refuse(std::string what, std::string* problem) {
    *problem = std::move(what);
    return false;
}

bool Understand(std::string_view text, std::vector<const Modifier*>* all, std::string* problem) {
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find('|', begin), text.size());
        const std::string_view name = text.substr(begin, end - begin);
        const auto* const known =
            std::find_if(modifierTable.begin(), modifierTable.end(),
                         [&](const Modifier& modifier) { return modifier.name == name; });
        if (known == modifierTable.end())
            return Refuse("unknown modifier \"" + std::string(name) + "\"", problem);
        for (const Modifier* const earlier : *all) {
            if (!MayFollow(*earlier, *known))
                return Refuse("the modifier \"" + std::string(known->name) +
                                  "\" can't stand behind \"" + std::string(earlier->name) + "\"",
                              problem);
        }
        all->push_back(known);
        begin = end + 1;
    }
    return true;
}

Kind OfField(const Modifiers& modifiers) {
    if (modifiers.runAhead && modifiers.runBehind)
        return Kind::containsField;
    if (modifiers.runAhead)
        return Kind::endsWithField;
    return modifiers.runBehind ? Kind::startsWithField : Kind::equalsField;
}

// What one of them asks of the others.
bool IsSensible(const Modifiers& modifiers, bool isKeyword, std::string* problem) {
    const bool isOfField = !modifiers.IsText() && modifiers.kind != Kind::expression;
    const bool isPlacedAtEnd = modifiers.runAhead != modifiers.runBehind;
    if (isKeyword && (isOfField || isPlacedAtEnd || modifiers.isNegated))
        return Refuse(
            "keywords are looked for anywhere in an event; of the modifiers of place and "
            "type they can have contains and re alone",
            problem);
    if (modifiers.utf16 && modifiers.base64 == Modifiers::Base64::none)
        return Refuse("UTF-16 needs base64 or base64offset behind it", problem);
    if (modifiers.base64 == Modifiers::Base64::offsets && !modifiers.IsPlaced() && !isKeyword)
        return Refuse("\"base64offset\" needs contains behind it", problem);
    if (!modifiers.flags.empty() && modifiers.kind != Kind::expression)
        return Refuse("\"" + modifiers.flags + "\" needs re ahead of it", problem);
    return true;
}

}  // namespace

bool ReadModifiers(std::string_view text, bool isKeyword, Modifiers* modifiers,
                   std::string* problem) {
    std::vector<const Modifier*> all;
    if (!Understand(text, &all, problem))
        return false;
    for (const Modifier* const modifier : all)
        modifier->apply(modifiers);
    if (!IsSensible(*modifiers, isKeyword, problem))
        return false;
    if (modifiers->kind == Kind::equalsField)
        modifiers->kind = OfField(*modifiers);
    if (isKeyword && modifiers->IsText())
        modifiers->runAhead = modifiers->runBehind = true;
    return true;
}

}  // namespace zel
