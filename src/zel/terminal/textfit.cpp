#include "zel/terminal/textfit.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <numeric>
#include <vector>

#include "common/textbridge.h"

// Text is taken apart into cells: what is shown of one character, the columns that it takes, and
// the byte where it came from. A mark that combines belongs to the cell ahead of it; what a
// terminal would obey, and bytes that are no UTF-8, become visible escapes. Cutting, measuring and
// pointing then count cells and never bytes.
//
// The tables of ranges are coarse on purpose: a character that they don't know is one column wide,
// and a column that is off by one does no harm. The last of them is the one that protects the
// terminal.

namespace zel {

namespace {

struct Range {
    char32_t first, last;
};

// Two columns wide: East Asian scripts and pictures.
constexpr Range wide[] = {{0x1100, 0x115F},   {0x2E80, 0x303E},   {0x3041, 0xA4CF},
                          {0xAC00, 0xD7A3},   {0xF900, 0xFAFF},   {0xFE30, 0xFE6F},
                          {0xFF00, 0xFF60},   {0xFFE0, 0xFFE6},   {0x1F300, 0x1F64F},
                          {0x1F680, 0x1F6FF}, {0x1F900, 0x1F9FF}, {0x20000, 0x3FFFD}};
// Marks that stand on the character ahead of them.
constexpr Range combining[] = {{0x0300, 0x036F}, {0x0483, 0x0489}, {0x0591, 0x05BD},
                               {0x064B, 0x065F}, {0x1AB0, 0x1AFF}, {0x1DC0, 0x1DFF},
                               {0x20D0, 0x20FF}, {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F}};
// What a terminal obeys or hides.
constexpr Range unsafe[] = {{0x0000, 0x001F}, {0x007F, 0x009F}, {0x061C, 0x061C}, {0x200B, 0x200F},
                            {0x2028, 0x202E}, {0x2060, 0x206F}, {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}};

template <std::size_t n>
bool IsIn(char32_t c, const Range (&ranges)[n]) {
    return std::any_of(std::begin(ranges), std::end(ranges),
                       [c](const Range& r) { return c >= r.first && c <= r.last; });
}

struct Cell {
    std::size_t at;  // the byte of the source where it begins
    std::string shown;
    std::size_t width;
};

// The bytes of the character at the start of `text`; 0 when it is malformed. The length that the
// first byte claims is believed only if that many bytes are well-formed UTF-8.
std::size_t CharacterSize(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t size = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    return size <= text.size() && wm::IsUtf8(text.substr(0, size)) ? size : 0;
}

char32_t Decode(std::string_view character) {
    constexpr unsigned char leadMasks[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
    char32_t c = static_cast<unsigned char>(character.front()) & leadMasks[character.size()];
    for (const char byte : character.substr(1))
        c = (c << 6) | (static_cast<unsigned char>(byte) & 0x3F);
    return c;
}

std::string Hex(const char* form, unsigned value) {
    char text[16];
    std::snprintf(text, sizeof(text), form, value);
    return text;
}

std::string EscapeOf(char32_t c) {
    if (c == '\n')
        return "\\n";
    if (c == '\r')
        return "\\r";
    if (c == '\t')
        return "\\t";
    return Hex(c < 0x100 ? "\\x%02x" : "\\u%04x", static_cast<unsigned>(c));
}

// A combining mark at the very start has nothing to stand on and becomes a cell of its own.
std::vector<Cell> Cells(std::string_view text) {
    std::vector<Cell> cells;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t size = CharacterSize(text.substr(at));
        const std::string_view character = text.substr(at, std::max<std::size_t>(size, 1));
        const char32_t c = size != 0 ? Decode(character) : 0;
        if (size == 0 || IsIn(c, unsafe)) {
            const std::string escape =
                size != 0 ? EscapeOf(c)
                          : Hex("\\x%02x", static_cast<unsigned char>(character.front()));
            cells.push_back({at, escape, escape.size()});
        } else if (!cells.empty() && IsIn(c, combining)) {
            cells.back().shown += character;
        } else {
            cells.push_back({at, std::string(character), IsIn(c, wide) ? 2U : 1U});
        }
        at += character.size();
    }
    return cells;
}

template <typename It>
std::string Joined(It first, It last) {
    std::string text;
    for (; first != last; ++first)
        text += first->shown;
    return text;
}

std::size_t WidthOf(const std::vector<Cell>& cells) {
    return std::accumulate(cells.begin(), cells.end(), std::size_t{0},
                           [](std::size_t sum, const Cell& cell) { return sum + cell.width; });
}

// How many cells from `first` on fit.
template <typename It>
It FitUpTo(It first, It last, std::size_t columns) {
    for (; first != last && first->width <= columns; ++first)
        columns -= first->width;
    return first;
}

// Changes that turn one name into the other: letters to put in, take out or replace. Row by row
// over the table of distances of beginnings, of which only the last row is kept.
std::size_t Distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

}  // namespace

std::string Escaped(std::string_view text) {
    const std::vector<Cell> cells = Cells(text);
    return Joined(cells.begin(), cells.end());
}

std::string EscapedJson(std::string_view json) {
    std::string text;
    text.reserve(json.size());
    for (std::size_t at = 0; at < json.size();) {
        // JSON itself has escapes for the control characters below; what stands raw there is
        // layout.
        const bool isPlain = static_cast<unsigned char>(json[at]) < 0x7F;
        const std::size_t size = isPlain ? 1 : CharacterSize(json.substr(at));
        const std::string_view character = json.substr(at, std::max<std::size_t>(size, 1));
        if (const char32_t c = isPlain || size == 0 ? 0 : Decode(character);
            c != 0 && IsIn(c, unsafe))
            text += Hex("\\u%04x", static_cast<unsigned>(c));
        else
            text += character;
        at += character.size();
    }
    return text;
}

std::size_t DisplayWidth(std::string_view text) {
    return WidthOf(Cells(text));
}

std::string Fit(std::string_view text, std::size_t columns, Keep keep) {
    const std::vector<Cell> cells = Cells(text);
    if (WidthOf(cells) <= columns)
        return Joined(cells.begin(), cells.end());
    if (columns == 0)
        return "";
    const std::string ellipsis = "\u2026";
    if (keep == Keep::start)
        return Joined(cells.begin(), FitUpTo(cells.begin(), cells.end(), columns - 1)) + ellipsis;
    const auto first = FitUpTo(cells.rbegin(), cells.rend(), columns - 1).base();
    return ellipsis + Joined(first, cells.end());
}

std::string PointAt(std::string_view text, std::size_t at) {
    const std::vector<Cell> cells = Cells(text);
    std::size_t column = 0;
    for (const Cell& cell : cells)
        column += cell.at < at ? cell.width : 0;
    return "  " + Joined(cells.begin(), cells.end()) + "\n  " + std::string(column, ' ') + "^";
}

// A third of the name may be wrong, and two letters of a short one; a suggestion that shares
// nothing with the name would be none.
std::string_view Nearest(std::string_view name, const std::string_view* known, std::size_t count) {
    std::string_view best;
    std::size_t least = std::max<std::size_t>(2, name.size() / 3) + 1;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t distance = Distance(name, known[i]);
        if (distance < least && distance < known[i].size()) {
            least = distance;
            best = known[i];
        }
    }
    return best;
}

std::string UnknownName(std::string_view what, std::string_view name,
                        const std::vector<std::string_view>& known) {
    std::string text = "unknown " + std::string(what) + " \"" + Escaped(name) + "\"";
    const std::string_view nearest = Nearest(name, known.data(), known.size());
    if (!nearest.empty())
        return text + "; did you mean \"" + std::string(nearest) + "\"?";
    text += "; known:";
    for (const std::string_view candidate : known)
        text.append(" ").append(candidate);
    return text;
}

}  // namespace zel
