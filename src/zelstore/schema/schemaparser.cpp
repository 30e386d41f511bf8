#include "zelstore/schema/schemaparser.h"

#include <cmath>
#include <limits>

// Numbers of JSON are doubles or integers of 64 bits; members are narrower. Nothing is refused
// here: a number out of range loses its high bits, and a fraction its digits behind the point.

namespace ZEL::Schema {

namespace {

// 2^63 and 2^64 as doubles: the first values that the 64-bit types do not hold.
constexpr double signedLimit = 9223372036854775808.0;
constexpr double unsignedLimit = 18446744073709551616.0;

// Cutting a double that is out of range has no meaning in C++, so the range ends are answered here.
std::uint64_t CutDouble(double value) {
    if (std::isnan(value))
        return 0;
    if (value >= unsignedLimit)
        return std::numeric_limits<std::uint64_t>::max();
    if (value >= signedLimit)
        return static_cast<std::uint64_t>(value);
    if (value < -signedLimit)
        return static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::min());
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(value));
}

std::uint64_t CutDoubleSigned(double value) {
    if (value >= signedLimit)
        return static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    return CutDouble(value);
}

const web::json::number& AsNumber(const web::json::value& in) {
    return in.as_number();
}

}  // namespace

std::uint32_t ReadNumber32(const web::json::value& in) {
    const web::json::number& number = AsNumber(in);
    if (!number.is_integral())
        return static_cast<std::uint32_t>(CutDoubleSigned(number.to_double()));
    return static_cast<std::uint32_t>(number.to_uint64());
}

std::uint64_t ReadNumber64(const web::json::value& in) {
    const web::json::number& number = AsNumber(in);
    return number.is_integral() ? number.to_uint64() : CutDouble(number.to_double());
}

void ReadNames(const Members& in, TextView key, const NameTable& table,
               std::vector<std::int32_t>& numbers) {
    numbers.clear();
    if (const web::json::value* const list = in.Find(key))
        for (const web::json::value& name : list->as_array())
            numbers.push_back(table.Number(name.as_string()));
}

std::uint32_t ReadNumber(const Members& in, TextView key, std::uint32_t absent) {
    const web::json::value* const number = in.Find(key);
    return number != nullptr ? ReadNumber32(*number) : absent;
}

std::optional<bool> ReadFlag(const Members& in, TextView key) {
    const web::json::value* const flag = in.Find(key);
    return flag != nullptr ? std::optional(flag->as_bool()) : std::nullopt;
}

bool ReadsOther(const Members& in, TextView key, TextView expected) {
    const web::json::value* const text = in.Find(key);
    return text != nullptr && text->as_string() != expected;
}

std::optional<Members> ReadMembers(const Members& in, TextView key) {
    const web::json::value* const object = in.Find(key);
    if (object == nullptr)
        return std::nullopt;
    static_cast<void>(object->as_object());  // throws for anything else
    return Members(*object);
}

void WriteNames(web::json::value& out, TextView key, const NameTable& table,
                const std::vector<std::int32_t>& numbers) {
    WriteList(out, key, numbers, [&table](std::int32_t number) {
        return web::json::value::string(table.Name(number));
    });
}

}  // namespace ZEL::Schema
