#pragma once

#include <cstdint>

#include "common/wmapi.h"

// Results are values, and a failure says by its code alone what kind it is. Two families meet in
// the component: the store's own operations have the 32-bit results that hosts on every system know
// (HRESULT), and the object model has codes with values of its own (TobResult), in which success is
// not 0. Mixing them up would compile as integers and be wrong at run time; as two enumerations it
// does not compile.

namespace ZEL {

// Result of a store operation: 32 bits and signed on every platform, negative for a failure. It is
// a type of its own, so that it can neither be dropped in silence nor be mixed up with the results
// of the object model (TobResult), whose success has another value.
enum class [[nodiscard]] HRESULT : std::int32_t{};

// Result of an object-model operation (QueryInterface, CreateInstance, the exports). Its values
// have no meaning in the other family: ToHResult is the way across.
enum class [[nodiscard]] TobResult : std::uint32_t{};

// The codes that the component itself gives or asks for. Hosts compare the numbers, so a code is
// never given another meaning. Those of the form 0x8007xxxx carry a Win32 code, also on other
// systems.
namespace hr {
// Written as hosts print it, with eight hexadecimal digits.
constexpr HRESULT Code(std::uint32_t bits) noexcept {
    return static_cast<HRESULT>(static_cast<std::int32_t>(bits));
}
inline constexpr HRESULT ok = Code(0);
inline constexpr HRESULT nothingToDo = Code(1);  // success without an effect (S_FALSE)
inline constexpr HRESULT notImplemented = Code(0x80004001);
inline constexpr HRESULT noInterface = Code(0x80004002);
inline constexpr HRESULT aborted = Code(0x80004004);
inline constexpr HRESULT fail = Code(0x80004005);
inline constexpr HRESULT unexpected = Code(0x8000FFFF);
inline constexpr HRESULT pathNotFound = Code(0x80070003);
inline constexpr HRESULT tooManyOpenFiles = Code(0x80070004);
inline constexpr HRESULT accessDenied = Code(0x80070005);
inline constexpr HRESULT invalidData = Code(0x8007000D);
inline constexpr HRESULT outOfMemory = Code(0x8007000E);
inline constexpr HRESULT notReady = Code(0x80070015);
inline constexpr HRESULT sharingViolation = Code(0x80070020);
inline constexpr HRESULT invalidArgument = Code(0x80070057);
inline constexpr HRESULT diskFull = Code(0x80070070);
inline constexpr HRESULT threadNotStarted = Code(0x8007009B);
inline constexpr HRESULT deviceError = Code(0x8007045D);
inline constexpr HRESULT notFound = Code(0x80070490);
inline constexpr HRESULT corrupt = Code(0x80070570);
inline constexpr HRESULT timeTextLength = Code(0x800705B6);
}  // namespace hr

// A success may tell more than hr::ok does, so nobody compares with it to learn whether something
// worked.
constexpr bool Failed(HRESULT result) noexcept {
    return static_cast<std::int32_t>(result) < 0;
}
constexpr bool Succeeded(HRESULT result) noexcept {
    return !Failed(result);
}
// For printing, and for what is kept as a plain number.
constexpr std::uint32_t Bits(HRESULT result) noexcept {
    return static_cast<std::uint32_t>(result);
}

// The system's codes travel in the lower half of a result. Codes above 0xFFFF are cut. A code of 0
// would become a failure without a reason: ask whether there is an error first.
constexpr HRESULT FromWin32(std::uint32_t code) noexcept {
    return hr::Code(0x80070000U | (code & 0xFFFFU));
}
// A result of another family is given back as it is.
constexpr std::uint32_t Win32Code(HRESULT result) noexcept {
    return Bits(result) >> 16 == 0x8007U ? Bits(result) & 0xFFFFU : Bits(result);
}
// The bare code as a value of its own, which is what a report of a system's failure tells.
constexpr HRESULT BareWin32(HRESULT result) noexcept {
    return hr::Code(Win32Code(result));
}

// The object model's codes. The top bit is set for failures, as in the other family.
inline constexpr TobResult TOB_OK{0x00010000};
inline constexpr TobResult TOBERR_NO_INTERFACE{0x80010200};
inline constexpr TobResult TOBERR_OUT_OF_MEMORY{0x80010201};
inline constexpr TobResult TOBERR_NOT_IMPLEMENTED{0x80010202};
inline constexpr TobResult TOBERR_INVALID_ARG{0x80010203};
inline constexpr TobResult TOBERR_ACCESS_DENIED{0x80010204};
inline constexpr TobResult TOBERR_PATH_NOT_FOUND{0x80010300};  // no install directory
inline constexpr TobResult TOBERR_PROC_NOT_FOUND{0x80010302};  // a library lacks an export
inline constexpr TobResult TOBERR_BAD_LIBRARY{0x80010303};     // path too long, or no library
inline constexpr TobResult TOBERR_NOT_FOUND{0x80000100};       // no such settings value
inline constexpr TobResult TOBERR_FAIL{0x8001FFFF};

constexpr bool Failed(TobResult result) noexcept {
    return (static_cast<std::uint32_t>(result) & 0x80000000U) != 0;
}
constexpr bool Succeeded(TobResult result) noexcept {
    return !Failed(result);
}

// States that a result is dropped on purpose, and why. A result that is dropped without it stops
// the build. The reason is for the reader: it says why a failure needs no answer there.
template <typename Result>
constexpr void IgnoreResult(Result, const char* /*reason*/) noexcept {}

// How much of the conversion table below applies. Callers differ on purpose. Each of the three grew
// beside its callers, and hosts know the numbers that come out.
enum class ResultTable {
    full,      // the component's own services
    settings,  // settings access: cut off behind the row of 0x8000020F
    loader,    // a query that loads its store object: four rows left out
};

// The HRESULT for a code of the object model. A code with no row becomes hr::fail when it is
// negative and hr::ok otherwise.
WMLIB_API HRESULT ToHResult(TobResult code, ResultTable table = ResultTable::full) noexcept;

}  // namespace ZEL
