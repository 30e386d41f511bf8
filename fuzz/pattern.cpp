#include "zelstore/query/pattern.h"

#include <vector>

#include "common/textbridge.h"
#include "fuzz.h"
#include "naive.h"
#include "zelstore/query/queryfilter.h"

// Patterns and conditions on texts. Input: a line with w for a value with wildcards or e for an
// expression, then I to leave case out; the value on a line; the text. Or a line with c and then,
// for each condition, a letter for its operator, in upper case to leave case out; the values, a
// line each; the text.

namespace {

using namespace ZEL;
using fuzz::Answer;
using fuzz::gaveUp;

// Whether a value with * and ? matches a whole text, character by character: for each length of the
// text's start, whether what was read of the value so far matches it.
bool WildcardMatch(const std::string& value, const std::string& text) {
    std::vector<bool> reached(text.size() + 1, false);
    reached[0] = true;
    for (const char c : value) {
        std::vector<bool> next(text.size() + 1, false);
        for (std::size_t i = 0; i <= text.size(); ++i)
            next[i] = c == '*' ? reached[i] || (i > 0 && next[i - 1])
                               : i > 0 && reached[i - 1] && (c == '?' || c == text[i - 1]);
        reached = next;
    }
    return reached[text.size()];
}

void CheckWildcards(const std::string& value, const std::string& text, bool caseSensitive) {
    const std::string pattern = Schema::WildcardToPattern(value);
    const int plain = caseSensitive ? WildcardMatch(value, text)
                                    : WildcardMatch(fuzz::UpperCase(value), fuzz::UpperCase(text));
    const int matched = Answer([&] { return Pattern(pattern, caseSensitive).Matches(text); });
    const int general = Answer([&] { return fuzz::GeneralMatch(text, pattern, caseSensitive); });
    fuzz::Check(general == gaveUp || general == plain || value.empty(), {value, pattern, text});
    fuzz::Check(matched == plain || value.empty(), {value, pattern, text});
}

// The general matcher gives up earlier here than by itself; what it then says is still the same.
void CheckExpression(const std::string& expression, const std::string& text, bool caseSensitive) {
    constexpr std::uint64_t anyNumber = ~std::uint64_t{0};
    const int general = Answer([&] { return fuzz::GeneralMatch(text, expression, caseSensitive); });
    for (const std::uint64_t looks : {Pattern::mostLooks, anyNumber}) {
        const int matched = Answer(
            [&] { return Pattern(expression, caseSensitive).Matches(text, nullptr, looks); });
        fuzz::Check(matched == general || matched == gaveUp || general == gaveUp,
                    {expression, text, std::to_string(matched)});
        if (matched == general)
            break;
    }
}

void CheckConditions(const std::string& operators, fuzz::Input& input) {
    fuzz::Conditions conditions;
    Schema::FilterMap filter;
    for (const char letter : operators.substr(0, 16)) {
        const unsigned number = static_cast<unsigned char>(letter) % 32U % 12U;
        const bool caseSensitive = letter >= 'a';
        const std::string value = input.Line();
        if (conditions
                .emplace(value, fuzz::Condition{static_cast<std::int32_t>(number), caseSensitive})
                .second)
            filter["actor_hash"].emplace(
                value, Schema::Operator(static_cast<std::int32_t>(number), caseSensitive));
    }
    std::string text = input.Rest();
    std::erase_if(text, [](char c) { return c == '<' || c == '>'; });
    const std::string key = "p<action>open<actor_hash>" + text;
    KeyFields fields;
    SplitKeyFields(key, &fields);
    QueryFilter queryFilter(filter);
    std::wstring wide;
    int plain = 1;
    if (!conditions.empty())
        plain = wm::ToWide(text, wide) ? fuzz::Passes(text, conditions) : 0;
    for (int i = 0; i < 2; ++i) {  // the second time with what the first has prepared
        const int answer = Answer([&] { return queryFilter.MatchesFilter(fields); });
        fuzz::Check(answer == plain || answer == gaveUp || (answer < 0) == (plain < 0),
                    {operators, text, std::to_string(plain)});
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::string kind = input.Line();
    if (kind.starts_with('c')) {
        CheckConditions(kind.substr(1), input);
        return 0;
    }
    const bool caseSensitive = kind.find('I') == std::string::npos;
    const std::string value = input.Line();
    if (kind.starts_with('w'))
        CheckWildcards(value, input.Rest(), caseSensitive);
    else
        CheckExpression(value, input.Rest(), caseSensitive);
    return 0;
}
