#include "hunt/textpattern.h"

#include <cstddef>

#include "common/asciicase.h"

// Behind a run of any characters the first place where the next piece stands is as good as all
// later ones, for the run that comes next can take what is between. So only the last run is ever
// tried again, one character later.

namespace zel {

namespace {

using Piece = TextPattern::Piece;

bool IsSame(char a, char b, bool cased) noexcept {
    return a == b || (!cased && ZEL::ToUpperAscii(a) == ZEL::ToUpperAscii(b));
}

bool StartsWith(std::string_view text, std::string_view part, bool cased) noexcept {
    if (text.size() < part.size())
        return false;
    for (std::size_t at = 0; at < part.size(); ++at) {
        if (!IsSame(text[at], part[at], cased))
            return false;
    }
    return true;
}

// Bytes of the character that the text begins with; of a byte that begins none, that byte.
std::size_t CharacterAt(std::string_view text) noexcept {
    std::size_t bytes = 1;
    while (bytes < text.size() && bytes < 4 &&
           (static_cast<unsigned char>(text[bytes]) & 0xC0U) == 0x80U)
        ++bytes;
    return bytes;
}

// How many bytes the piece takes; npos where it does not fit.
std::size_t Taken(const Piece& piece, bool cased, std::string_view text) noexcept {
    if (piece.kind == Piece::Kind::anyOne)
        return text.empty() ? text.npos : CharacterAt(text);
    return StartsWith(text, piece.text, cased) ? piece.text.size() : text.npos;
}

}  // namespace

bool Fits(const TextPattern& pattern, bool cased, std::string_view text) noexcept {
    constexpr std::size_t noRun = static_cast<std::size_t>(-1);
    const auto& pieces = pattern.pieces;
    std::size_t piece = 0, at = 0, run = noRun, runEnd = 0;
    while (piece < pieces.size() || at < text.size()) {
        if (piece < pieces.size() && pieces[piece].kind == Piece::Kind::anyRun) {
            run = piece++;
            runEnd = at;
            if (piece == pieces.size())
                return true;
            continue;
        }
        const std::size_t taken =
            piece < pieces.size() ? Taken(pieces[piece], cased, text.substr(at)) : text.npos;
        if (taken != text.npos) {
            ++piece;
            at += taken;
            continue;
        }
        if (run == noRun || runEnd >= text.size())
            return false;
        runEnd += CharacterAt(text.substr(runEnd));
        at = runEnd;
        piece = run + 1;
    }
    return true;
}

}  // namespace zel
