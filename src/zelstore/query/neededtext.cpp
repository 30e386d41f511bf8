#include "zelstore/query/neededtext.h"

// Only what stands outside of groups is looked at, from one thing that is no plain character to the
// next. This knows just enough of the syntax to say when it does not know, and then finds nothing:
// alternatives outside of groups, sets that name classes, groups of other kinds, most escapes.

namespace ZEL {

namespace {

constexpr std::string_view specialCharacters = ".[]{}()\\*+?|^$";

bool IsSpecial(char c) {
    return specialCharacters.find(c) != std::string_view::npos;
}

class Reader {
public:
    explicit Reader(std::string_view expression) : rest_(expression) {
        bool known = true;
        while (known && !rest_.empty())
            known = ReadNext();
        EndRun();
        if (!known || depth_ != 0)
            longest_.clear();
    }
    const std::string& Longest() const noexcept { return longest_; }

private:
    bool ReadNext() {
        const char c = rest_.front();
        rest_.remove_prefix(1);
        switch (c) {
            case '\\':
                return ReadEscape();
            case '[':
                return ReadSet();
            case '(':
                ++depth_;
                EndRun();
                return rest_.empty() || (rest_[0] != '?' && rest_[0] != '*') ||
                       rest_.starts_with("?:");
            case ')':
                EndRun();
                return --depth_ >= 0;
            case '|':
                return depth_ > 0;
            case '*':
            case '?':
            case '+':
            case '{':
                return ReadQuantifier(c);
            case '.':
            case '^':
            case '$':
                EndRun();
                return true;
            default:
                Add(c);
                return true;
        }
    }
    bool ReadEscape() {
        constexpr std::string_view kindsAndPlaces = "dDwWsSbB";
        if (rest_.empty())
            return false;
        const char c = rest_.front();
        rest_.remove_prefix(1);
        if (IsSpecial(c))
            Add(c);
        else
            EndRun();
        return IsSpecial(c) || kindsAndPlaces.find(c) != std::string_view::npos;
    }
    // A set of single characters and ranges; one that names classes is left alone.
    bool ReadSet() {
        EndRun();
        const std::size_t end = rest_.find(']', rest_.starts_with("^") ? 2 : 1);
        const std::string_view set = rest_.substr(0, end);
        if (end == std::string_view::npos || set.find_first_of("[\\") != std::string_view::npos)
            return false;
        rest_.remove_prefix(end + 1);
        return true;
    }
    // Only with + the character ahead has to be there.
    bool ReadQuantifier(char c) {
        if (c != '+' && !run_.empty() && depth_ == 0)
            run_.pop_back();
        EndRun();
        if (c == '{') {
            const std::size_t end = rest_.find_first_not_of("0123456789,");
            if (end == 0 || end == std::string_view::npos || rest_[end] != '}')
                return false;
            rest_.remove_prefix(end + 1);
        }
        if (!rest_.empty() && (rest_[0] == '?' || rest_[0] == '+'))
            rest_.remove_prefix(1);
        return true;
    }
    void Add(char c) {
        if (depth_ == 0)
            run_.push_back(c);
    }
    void EndRun() {
        if (run_.size() > longest_.size())
            longest_ = run_;
        run_.clear();
    }

    std::string_view rest_;
    int depth_ = 0;  // of groups
    std::string run_, longest_;
};

}  // namespace

std::string NeededText(std::string_view expression) {
    return Reader(expression).Longest();
}

}  // namespace ZEL
