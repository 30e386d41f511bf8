#include "hunt/valueforms.h"

#include <algorithm>
#include <charconv>

#include "common/asciicase.h"
#include "records/conversions.h"

// Records write in one way what sources write in several, and rules are written for the sources'.
// So a value is given in each form that its conversion would have taken. A form too many does no
// harm: a rule asks for the one that it knows.

namespace zel {

namespace {

constexpr std::string_view longRoots[] = {"HKEY_LOCAL_MACHINE", "HKEY_USERS", "HKEY_CLASSES_ROOT",
                                          "HKEY_CURRENT_USER", "HKEY_CURRENT_CONFIG"};

void AppendPaths(std::string_view stored, SourceFields& keeper,
                 std::vector<std::string_view>* forms) {
    const std::string_view root = stored.substr(0, stored.find('\\'));
    const auto known = std::find_if(std::begin(longRoots), std::end(longRoots),
                                    [&](auto each) { return ZEL::EqualsNoCase(root, each); });
    if (known == std::end(longRoots))
        return;
    for (std::size_t n = 0;; ++n) {
        const std::string_view written = RegistryRootOf(*known, n);
        if (written.empty())
            return;
        forms->push_back(keeper.Keep(written, stored.substr(root.size())));
    }
}

std::string_view Digits(std::uint64_t number, int base, SourceFields& keeper) {
    char digits[24];
    const auto end = std::to_chars(std::begin(digits), std::end(digits), number, base).ptr;
    return {keeper.Keep(base == 16 ? "0x" : "", {digits, static_cast<std::size_t>(end - digits)})};
}

void AppendNumbers(Conversion conversion, std::string_view stored, SourceFields& keeper,
                   std::vector<std::string_view>* forms) {
    std::uint64_t number = 0;
    const char* const end = stored.data() + stored.size();
    const auto [at, failure] = std::from_chars(stored.data(), end, number);
    if (failure != std::errc() || at != end)
        return;
    constexpr std::uint64_t firstTypeMessage = 1872;  // %%1872 is REG_NONE
    if (conversion == Conversion::registryType)
        forms->push_back(keeper.Keep("%%", Digits(number + firstTypeMessage, 10, keeper)));
    else
        forms->push_back(Digits(number, 16, keeper));
    const bool isOfService =
        conversion == Conversion::plainNumber || conversion == Conversion::plainNumbers;
    for (std::size_t n = 0;; ++n) {
        const std::string_view word = conversion == Conversion::number ? WordFor(number, n)
                                      : isOfService                    ? ServiceWordFor(number, n)
                                                                       : std::string_view();
        if (word.empty())
            return;
        forms->push_back(word);
    }
}

// The part without its beginning, if that may be the end of a root: "\x" of "KLM\x". A part that
// lies within a root has nothing certain in it.
std::string_view BehindRoot(std::string_view part) {
    std::string_view behind = part;
    const auto cut = [&](std::string_view root) {
        for (std::size_t from = 0; from < root.size(); ++from) {
            const std::string_view tail = root.substr(from);
            if (ZEL::StartsWithNoCase(tail, part))
                behind = {};
            const bool isAhead = ZEL::StartsWithNoCase(part, tail) &&
                                 (part.size() == tail.size() || part[tail.size()] == '\\');
            if (isAhead && part.size() - tail.size() < behind.size())
                behind = part.substr(tail.size());
        }
    };
    for (const std::string_view root : longRoots) {
        cut(root);
        std::string_view written;
        for (std::size_t n = 0; !(written = RegistryRootOf(root, n)).empty(); ++n)
            cut(written);
    }
    return behind;
}

// A hash of a list. The names of algorithms are shorter, and a list may not stand in the text.
std::string_view LongestHash(std::string_view part) {
    constexpr std::size_t longestName = 6;  // SHA256, of those that records have members for
    std::string_view longest;
    while (!part.empty()) {
        const std::size_t end = std::min(part.find_first_of("=,"), part.size());
        if (end > longestName && end > longest.size())
            longest = part.substr(0, end);
        part.remove_prefix(std::min(end + 1, part.size()));
    }
    return longest;
}

std::string_view WithoutBraces(std::string_view part) {
    if (part.starts_with('{'))
        part.remove_prefix(1);
    if (part.ends_with('}'))
        part.remove_suffix(1);
    return part;
}

}  // namespace

void AppendForms(Conversion conversion, std::string_view stored, SourceFields& keeper,
                 std::vector<std::string_view>* forms) {
    forms->push_back(stored);
    switch (conversion) {
        case Conversion::registryPath:
            return AppendPaths(stored, keeper, forms);
        case Conversion::guid:
            forms->push_back(keeper.Keep(keeper.Keep("{", stored), "}"));
            return;
        case Conversion::number:
        case Conversion::low32:
        case Conversion::plainNumber:
        case Conversion::plainNumbers:
        case Conversion::registryType:
            return AppendNumbers(conversion, stored, keeper, forms);
        default:
            return;
    }
}

std::string_view CertainPiece(const FieldPlace& place, std::string_view part) {
    using enum Conversion;
    using Kind = FieldPlace::Kind;
    if (place.kind == Kind::constant || place.kind == Kind::time)
        return {};
    if (place.kind == Kind::hashList)
        return LongestHash(part);
    switch (place.conversion) {
        case registryPath:
            return BehindRoot(part);
        case guid:
            return WithoutBraces(part);
        case text:
        case plainText:
            return part;
        default:
            return {};
    }
}

std::string_view HashList(std::string_view md5, std::string_view sha256, SourceFields& keeper) {
    std::string_view list;
    if (!md5.empty())
        list = keeper.Keep("MD5=", md5);
    if (!sha256.empty())
        list = keeper.Keep(list, keeper.Keep(list.empty() ? "SHA256=" : ",SHA256=", sha256));
    return list;
}

}  // namespace zel
