#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "hunt/rule.h"
#include "questions/textsearch.h"

namespace zel {

// A test of a rule on one value, made ready: patterns that are only a whole text, a beginning, an
// end or a part are not matched piece by piece. Keeps to the test, which must outlive it. Any
// thread.
class ValueTester {
public:
    explicit ValueTester(const ValueTest& test);

    // Of the tests that a value alone decides; false for the others.
    bool Fits(std::string_view value) const;
    // Of the tests that compare with another field's value.
    bool FitsOther(std::string_view value, std::string_view other) const;
    // Whether the test asks for the field, and not for what is in it: that it is there or is not.
    bool IsOfPresence() const noexcept;
    bool IsOfOtherField() const noexcept;
    const ValueTest& Test() const noexcept { return *test_; }
    // "ends with \fodhelper.exe", "is missing".
    std::string Words() const;

private:
    enum class Way : std::uint8_t { whole, start, end, part, pieces, other };
    bool FitsText(std::string_view value) const;
    bool FitsNumber(std::string_view value) const;

    const ValueTest* test_;
    Way way_ = Way::other;
    std::string_view text_;             // of the ways up to `part`
    std::optional<TextSearch> search_;  // of `part`, where letter case does not matter
};

// The value as a number: whole or decimal, "-12", "0.5". None for anything else.
std::optional<double> RuleNumberIn(std::string_view value);

}  // namespace zel
