#include "zelstore/query/pattern.h"

#include "common/asciicase.h"

namespace ZEL {

namespace {

constexpr std::string_view specialCharacters = ".[]{}()\\*+?|^$";
constexpr std::string_view quantifiers = "*+?{";
constexpr std::size_t mostSegments = 3;
// The general matcher gives up after some 10^8 steps, which two .* reach at about 14,000 bytes.
constexpr std::size_t longestDirect = 8192;

}  // namespace

Pattern::Pattern(const std::string& expression, bool caseSensitive)
    : caseSensitive_(caseSensitive),
      regex_(expression, caseSensitive
                             ? boost::regex_constants::normal
                             : boost::regex_constants::normal | boost::regex_constants::icase) {
    if (!ReadSegments(expression))
        segments_.clear();
}

bool Pattern::Matches(std::string_view text) const {
    if (!segments_.empty() && text.size() <= longestDirect)
        return MatchesSegments(text);
    return boost::regex_match(text.begin(), text.end(), regex_, boost::regex_constants::match_any);
}

Pattern::Element Pattern::ElementOf(char c) const noexcept {
    return static_cast<unsigned char>(caseSensitive_ ? c : ToUpperAscii(c));
}

// False when the expression says more than segments can.
bool Pattern::ReadSegments(std::string_view expression) {
    if (expression.empty())
        return false;
    segments_.emplace_back();
    while (!expression.empty()) {
        char c = expression.front();
        const bool escaped = c == '\\';
        if (escaped) {
            expression.remove_prefix(1);
            if (expression.empty() ||
                specialCharacters.find(c = expression.front()) == std::string_view::npos)
                return false;
        } else if (c != '.' && specialCharacters.find(c) != std::string_view::npos) {
            return false;
        }
        expression.remove_prefix(1);
        const bool any = c == '.' && !escaped;
        const bool star = any && expression.starts_with('*');
        if (star)
            expression.remove_prefix(1);
        if (!expression.empty() && quantifiers.find(expression.front()) != std::string_view::npos)
            return false;
        if (star)
            segments_.emplace_back();
        else
            segments_.back().push_back(any ? anyByte : ElementOf(c));
    }
    return segments_.size() <= mostSegments;
}

bool Pattern::FitsAt(std::string_view text, std::size_t at, const Segment& segment) const noexcept {
    for (const Element element : segment) {
        if (element != anyByte && element != ElementOf(text[at]))
            return false;
        ++at;
    }
    return true;
}

bool Pattern::MatchesSegments(std::string_view text) const noexcept {
    const Segment& first = segments_.front();
    const Segment& last = segments_.back();
    if (segments_.size() == 1)
        return text.size() == first.size() && FitsAt(text, 0, first);
    if (text.size() < first.size() + last.size() ||
        !FitsAt(text, text.size() - last.size(), last) || !FitsAt(text, 0, first))
        return false;
    if (segments_.size() == 2)
        return true;
    const Segment& middle = segments_[1];
    const std::size_t end = text.size() - last.size();
    for (std::size_t at = first.size(); at + middle.size() <= end; ++at) {
        if (FitsAt(text, at, middle))
            return true;
    }
    return false;
}

}  // namespace ZEL
