#pragma once

#include <algorithm>
#include <iterator>
#include <string_view>

// Names of what stands in a store's directory, in either width of characters.
//
// The store, its purge and the tools that read a store from outside all have to agree on which
// folders are databases. Whatever has another name is somebody else's: it is neither counted,
// opened nor removed. Each routine takes the last component of a path alone.
namespace ZEL {

namespace detail {
// ASCII digits, whatever the locale. True for an empty text.
template <typename Char>
constexpr bool AreDigits(std::basic_string_view<Char> text) noexcept {
    return std::all_of(text.begin(), text.end(),
                       [](Char c) { return c >= Char('0') && c <= Char('9'); });
}
}  // namespace detail

// YYYYMMDD, or YYYYMMDDnnn with the number of a further database. The date is not checked against
// the calendar here: a name such as 20261399 is a database's by its form, and whoever makes a date
// of it finds out.
template <typename Char>
constexpr bool IsDatabaseName(std::basic_string_view<Char> name) noexcept {
    constexpr std::size_t date = 8, dateAndNumber = 11;
    return (name.size() == date || name.size() == dateAndNumber) && detail::AreDigits(name);
}

// What a database is renamed to when it is to go: .removed stands behind its name, and -2 and so on
// behind that when there is one already. No database has such a name. It is left behind when the
// process is killed, and the next start of the store takes it away. The name says that removing was
// decided on, so that a folder half removed is never taken for a database with records missing.
template <typename Char>
constexpr bool IsRemovedName(std::basic_string_view<Char> name) noexcept {
    constexpr Char mark[] = {'.', 'r', 'e', 'm', 'o', 'v', 'e', 'd'};
    const std::basic_string_view<Char> removed(mark, std::size(mark));
    const std::size_t end = name.find(removed);
    if (end == name.npos || !IsDatabaseName(name.substr(0, end)))
        return false;
    const std::basic_string_view<Char> rest = name.substr(end + removed.size());
    return rest.empty() ||
           (rest.size() > 1 && rest[0] == Char('-') && detail::AreDigits(rest.substr(1)));
}

}  // namespace ZEL
