#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "common/result.h"

// How the store is laid out: one level of folders under the data store directory, each a complete
// LevelDB database.
//
//   YYYYMMDD       first event database of a date (UTC) on which records were written
//   YYYYMMDDnnn    further ones of that date, 001 to 998
//   YYYYMMDD999    silent enrichments of events whose own date it is
//
// Nothing else says what the store holds: the names are read again at every start. A folder with
// any other name counts as a database too; what stands for its date is no date.
namespace ZEL {

// What to do about a folder that holds no database.
enum class IfMissing { fail, create };

// What a process does with its store. One that reads alone changes nothing in the store's directory
// and takes no lock there: each folder is read as it stood when it was opened, also beside the
// process that writes it.
enum class StoreUse { readWrite, readAlone };

// The last event database takes whatever else the day brings, beyond its share.
inline constexpr std::uint32_t lastEventNumber = 998;
inline constexpr std::uint32_t silentNumber = 999;

// Today in UTC as YYYYMMDD.
std::wstring FormatToday();

// The first 8 characters of a folder's name, or all of a shorter one.
std::wstring DateFromPath(const std::wstring& path);
// The decimal digits behind the eighth character; 0 without any.
std::uint32_t NumberFromPath(const std::wstring& path);

// The directory that holds the folder, with its separator.
std::wstring StoreOfPath(const std::wstring& path);

// The first event database of a date, and one with a number, which gets three digits or more.
// Nothing is checked or made.
std::wstring FolderPath(const std::wstring& store, std::wstring_view date);
std::wstring FolderPath(const std::wstring& store, std::wstring_view date, std::uint32_t number);

// Whether a folder's name may hold `date`: a separator would lead out of the store.
bool IsSafeDate(std::wstring_view date) noexcept;

// What the library opens at once for one database and its background work, with some to spare. A
// write that finds too few looks to it like a broken device.
inline constexpr std::size_t handlesOfADatabase = 16;

// Whether the volume of `directory` has room for `bytes` more and for what the library needs beside
// them. A volume that can't be asked counts as roomy.
bool HasRoomFor(const std::wstring& directory, std::uint64_t bytes) noexcept;

// Order of the catalog: by UTF-16 code units, also where characters are wider.
struct PathLess {
    bool operator()(const std::wstring& a, const std::wstring& b) const noexcept {
        return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                            [](wchar_t x, wchar_t y) { return Rank(x) < Rank(y); });
    }

private:
    // Surrogates, that is all above U+FFFF, sort below U+E000.
    static std::uint32_t Rank(wchar_t character) noexcept {
        const std::uint32_t code = std::char_traits<wchar_t>::to_int_type(character);
        return code >= 0xE000 && code <= 0xFFFF ? code + 0x110000 : code;
    }
};

}  // namespace ZEL
