#include "common/result.h"

// From the object model's codes to results. The order of the rows is part of the rule: one of the
// tables is cut off after a row, so a code that stands further down is unknown to it though another
// table has it.

namespace ZEL {

namespace {

struct Row {
    std::uint32_t code;
    std::uint32_t result;
};

// Searched from the top; the first match wins.
constexpr Row rows[] = {
    {0x00010000, 0x00000000}, {0x8001FFFF, 0x80004005}, {0x80010203, 0x80070057},
    {0x80010200, 0x80004002}, {0x80010201, 0x8007000E}, {0x80010202, 0x80004001},
    {0x80010204, 0x80070005}, {0x80010300, 0x80070003}, {0x80010302, 0x8007007F},
    {0x80010303, 0x8007000B}, {0x00010001, 0x00000001}, {0x80000100, 0x80070490},
    {0x80000200, 0x8007007A}, {0x80000202, 0x8007054F}, {0x80000203, 0x800401F0},
    {0x80000204, 0x80010110}, {0x80000206, 0x800706F8}, {0x80000207, 0x80004011},
    {0x80000208, 0x80028CA0}, {0x8000020D, 0x80070020}, {0x8000020C, 0x80070070},
    {0x8000020F, 0x80070570}, {0x80000213, 0x80071A90}, {0x80000205, 0x8000FFFF},
    {0x80000201, 0x80028CA0},
};
// Itself still in that table.
constexpr std::uint32_t lastRowOfSettings = 0x8000020F;

constexpr bool LeftOutForLoader(std::uint32_t code) {
    return code == 0x8000020D || code == 0x8000020C || code == 0x8000020F || code == 0x80000213;
}

}  // namespace

HRESULT ToHResult(TobResult result, ResultTable table) noexcept {
    const auto code = static_cast<std::uint32_t>(result);
    for (const Row& row : rows) {
        const bool leftOut = table == ResultTable::loader && LeftOutForLoader(code);
        if (row.code == code && !leftOut)
            return hr::Code(row.result);
        if (table == ResultTable::settings && row.code == lastRowOfSettings)
            break;
    }
    return Failed(result) ? hr::fail : hr::ok;
}

}  // namespace ZEL
