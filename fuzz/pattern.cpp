#include "zelstore/query/pattern.h"

#include <functional>
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

// 1, 0, or -1 when the match gives up or the expression is none.
int Answer(const std::function<bool()>& match) {
    try {
        return match();
    } catch (const std::exception&) {
        return -1;
    }
}

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
    fuzz::Check(general == -1 || general == plain, {value, pattern, text});
    fuzz::Check(matched == general || (general == -1 && matched == plain), {value, pattern, text});
}

void CheckExpression(const std::string& expression, const std::string& text, bool caseSensitive) {
    const int matched = Answer([&] { return Pattern(expression, caseSensitive).Matches(text); });
    const int general = Answer([&] { return fuzz::GeneralMatch(text, expression, caseSensitive); });
    fuzz::Check(matched == general, {expression, text, std::to_string(matched)});
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
    const int plain = Answer([&] {
        return conditions.empty() || (wm::ToWide(text, wide) && fuzz::Passes(text, conditions));
    });
    for (int i = 0; i < 2; ++i)  // the second time with what the first has prepared
        fuzz::Check(Answer([&] { return queryFilter.MatchesFilter(fields); }) == plain,
                    {operators, text, std::to_string(plain)});
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
