#include "zelstore/database/layout.h"

#include <cwchar>
#include <limits>

#include "common/filesystem.h"
#include "common/hostservices.h"

// Names and room. A folder's name is all that the store knows of it before it is opened, so
// whatever stands there has to give some date and number: names of other programs are read as far
// as they go, and no name is refused.
//
// Room is asked for ahead of each opening and writing, since what fails in the middle for want of
// it looks to the library like a device that is broken, and can't be mended without closing the
// database.

namespace ZEL {

namespace {

constexpr std::size_t dateLength = 8;

// Each record is written twice, to the log and later to a table.
constexpr std::uint64_t roomFactor = 2;
// A flush and a compaction write their tables before they remove what these replace. When that
// fails for lack of room, the library refuses all further writes with the error of a broken device.
constexpr std::uint64_t roomMarginBytes = 64ULL << 20;

std::wstring Digits(std::uint32_t number, std::size_t leastDigits) {
    std::wstring digits = std::to_wstring(number);
    if (digits.size() < leastDigits)
        digits.insert(0, leastDigits - digits.size(), L'0');
    return digits;
}

}  // namespace

std::wstring FormatToday() {
    const wm::SystemTime now = wm::Clock().UtcNow();
    return Digits(now.year, 4) + Digits(now.month, 2) + Digits(now.day, 2);
}

std::wstring DateFromPath(const std::wstring& path) {
    return wm::LastPathComponent(path).substr(0, dateLength);
}

std::uint32_t NumberFromPath(const std::wstring& path) {
    const std::wstring name = wm::LastPathComponent(path);
    std::uint64_t number = 0;
    for (std::size_t i = dateLength; i < name.size() && name[i] >= L'0' && name[i] <= L'9'; ++i) {
        number = number * 10 + static_cast<std::uint64_t>(name[i] - L'0');
        if (number > std::numeric_limits<std::uint32_t>::max())
            return std::numeric_limits<std::uint32_t>::max();
    }
    return static_cast<std::uint32_t>(number);
}

std::wstring StoreOfPath(const std::wstring& path) {
    return path.substr(0, path.size() - wm::LastPathComponent(path).size());
}

std::wstring FolderPath(const std::wstring& store, std::wstring_view date) {
    return wm::JoinPath(store, date);
}

std::wstring FolderPath(const std::wstring& store, std::wstring_view date, std::uint32_t number) {
    return wm::JoinPath(store, std::wstring(date) + Digits(number, 3));
}

bool IsSafeDate(std::wstring_view date) noexcept {
    return std::none_of(date.begin(), date.end(), [](wchar_t c) {
        const bool isControl = c < 0x20 || (c >= 0x7F && c < 0xA0);
        return isControl || c == L'/' || c == L'\\';
    });
}

bool HasRoomFor(const std::wstring& directory, std::uint64_t bytes) noexcept {
    std::uint64_t available = 0;
    if (Failed(wm::FreeSpace().AvailableBytes(directory, &available)))
        return true;
    return available >= roomMarginBytes && (available - roomMarginBytes) / roomFactor >= bytes;
}

}  // namespace ZEL
