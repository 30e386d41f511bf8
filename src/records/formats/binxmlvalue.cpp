#include "records/formats/binxmlvalue.h"

#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "common/utctime.h"

namespace zel {

namespace {

enum ValueType : std::uint8_t {
    typeNull = 0x00,
    typeAnsi = 0x02,
    typeInt8 = 0x03,
    typeUint8 = 0x04,
    typeInt16 = 0x05,
    typeUint16 = 0x06,
    typeInt32 = 0x07,
    typeUint32 = 0x08,
    typeInt64 = 0x09,
    typeUint64 = 0x0A,
    typeFloat = 0x0B,
    typeDouble = 0x0C,
    typeBool = 0x0D,
    typeBinary = 0x0E,
    typeGuid = 0x0F,
    typeSize = 0x10,
    typeFileTime = 0x11,
    typeSystemTime = 0x12,
    typeSid = 0x13,
    typeHex32 = 0x14,
    typeHex64 = 0x15,
};

std::string Hex(std::uint64_t number) {
    char text[24];
    std::snprintf(text, sizeof(text), "0x%llx", static_cast<unsigned long long>(number));
    return text;
}

std::string GuidText(const std::uint8_t* b) {
    char text[40];
    std::snprintf(text, sizeof(text),
                  "{%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X}", b[3],
                  b[2], b[1], b[0], b[5], b[4], b[7], b[6], b[8], b[9], b[10], b[11], b[12], b[13],
                  b[14], b[15]);
    return text;
}

// revision, number of parts, authority in six bytes, parts of four
std::string SidText(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < 8 || bytes.size() < 8 + std::size_t{4} * bytes[1])
        return "";
    std::uint64_t authority = 0;
    for (std::size_t i = 2; i < 8; ++i)
        authority = authority << 8 | bytes[i];
    std::string text = "S-" + std::to_string(bytes[0]) + "-" + std::to_string(authority);
    for (std::size_t i = 0; i < bytes[1]; ++i) {
        std::uint32_t part = 0;
        std::memcpy(&part, bytes.data() + 8 + i * 4, sizeof(part));
        text += "-" + std::to_string(part);
    }
    return text;
}

// Hundreds of nanoseconds since 1601; with seven decimals, as Windows writes it.
std::string FileTimeText(std::uint64_t ticks) {
    using namespace std::chrono;
    constexpr std::uint64_t ticksPerSecond = 10'000'000;
    constexpr std::uint64_t most = ticksPerSecond * 60 * 60 * 24 * 366 * 8398;  // before 9999
    if (ticks > most)
        return Hex(ticks);
    const sys_seconds point = sys_days(year(1601) / 1 / 1) + seconds(ticks / ticksPerSecond);
    std::string text = wm::FormatUtc(wm::ToSystemTime(point));
    char decimals[16];
    std::snprintf(decimals, sizeof(decimals), ".%07llu",
                  static_cast<unsigned long long>(ticks % ticksPerSecond));
    return text.substr(0, text.find('.')) + decimals + "Z";
}

std::string HexBytes(std::span<const std::uint8_t> bytes) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    for (const std::uint8_t byte : bytes)
        text.append(1, digits[byte >> 4]).append(1, digits[byte & 15]);
    return text;
}

template <typename Number>
std::string Decimal(Number number) {
    char text[40];
    const auto end = std::to_chars(std::begin(text), std::end(text), number).ptr;
    return std::string(text, end);
}

// None of the number's bytes may lie outside.
template <typename Number>
Number First(std::span<const std::uint8_t> bytes) {
    Number number;
    std::memcpy(&number, bytes.data(), sizeof(number));
    return number;
}

template <typename Number>
std::string DecimalOf(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < sizeof(Number))
        return "";
    if constexpr (sizeof(Number) == 1)
        return Decimal(int{First<Number>(bytes)});
    else
        return Decimal(First<Number>(bytes));
}

// In whatever code page the machine had; the characters that all have are what there is mostly.
std::string AnsiText(std::span<const std::uint8_t> bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        if (byte >= 0x80)
            text.append(1, static_cast<char>(0xC0 | (byte >> 6)));
        text.append(1, static_cast<char>(byte < 0x80 ? byte : 0x80 | (byte & 0x3F)));
    }
    return text.substr(0, text.find('\0'));
}

std::string SystemTimeText(std::span<const std::uint8_t> bytes) {
    wm::SystemTime time;
    std::uint16_t* const parts[] = {&time.year, &time.month,  &time.dayOfWeek, &time.day,
                                    &time.hour, &time.minute, &time.second,    &time.milliseconds};
    for (std::size_t i = 0; i < std::size(parts); ++i)
        *parts[i] = First<std::uint16_t>(bytes.subspan(i * 2));
    return wm::FormatUtc(time);
}

// The size of a pointer is that of the machine that wrote it.
std::string HexOf(std::span<const std::uint8_t> bytes) {
    if (bytes.size() >= 8)
        return Hex(First<std::uint64_t>(bytes));
    return bytes.size() >= 4 ? Hex(First<std::uint32_t>(bytes)) : "";
}

}  // namespace

std::string BinXmlValueText(std::uint8_t type, std::span<const std::uint8_t> bytes) {
    switch (type) {
        case typeNull:
            return "";
        case typeAnsi:
            return AnsiText(bytes);
        case typeInt8:
            return DecimalOf<std::int8_t>(bytes);
        case typeUint8:
            return DecimalOf<std::uint8_t>(bytes);
        case typeInt16:
            return DecimalOf<std::int16_t>(bytes);
        case typeUint16:
            return DecimalOf<std::uint16_t>(bytes);
        case typeInt32:
            return DecimalOf<std::int32_t>(bytes);
        case typeUint32:
            return DecimalOf<std::uint32_t>(bytes);
        case typeInt64:
            return DecimalOf<std::int64_t>(bytes);
        case typeUint64:
            return DecimalOf<std::uint64_t>(bytes);
        case typeFloat:
            return DecimalOf<float>(bytes);
        case typeDouble:
            return DecimalOf<double>(bytes);
        case typeBool:
            return bytes.empty() ? "" : bytes[0] != 0 ? "true" : "false";
        case typeGuid:
            return bytes.size() < 16 ? "" : GuidText(bytes.data());
        case typeSize:
        case typeHex32:
        case typeHex64:
            return HexOf(bytes);
        case typeFileTime:
            return bytes.size() < 8 ? "" : FileTimeText(First<std::uint64_t>(bytes));
        case typeSystemTime:
            return bytes.size() < 16 ? "" : SystemTimeText(bytes);
        case typeSid:
            return SidText(bytes);
        default:
            return HexBytes(bytes);
    }
}

}  // namespace zel
