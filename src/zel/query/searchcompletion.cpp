#include <algorithm>

#include "common/asciicase.h"
#include "records/columns.h"
#include "zel/query/documentcheck.h"
#include "zel/query/searchline.h"
#include "zel/query/searchwords.h"

// What may stand at the cursor is told by what stands ahead of it: a flag, the value of one, or a
// piece of a condition. What is behind it does not matter.

namespace zel {

namespace {

constexpr std::size_t mostOffered = 20;

class Offers {
public:
    Offers(std::size_t from, std::string_view typed) : from_(from), typed_(Folded(typed)) {}

    // Offers what begins so; of texts that hold it elsewhere those come last.
    void Add(std::string text, std::string_view hint) {
        const std::string folded = Folded(text);
        if (folded == typed_ || folded.find(typed_) == folded.npos)
            return;
        (folded.starts_with(typed_) ? first_ : rest_)
            .push_back({from_, std::move(text), std::string(hint)});
    }
    std::vector<Completion> Take() {
        first_.insert(first_.end(), rest_.begin(), rest_.end());
        first_.resize(std::min(first_.size(), mostOffered));
        return std::move(first_);
    }

private:
    static std::string Folded(std::string_view text) {
        std::string folded(text);
        for (char& c : folded)
            c = ZEL::ToUpperAscii(c);
        return folded;
    }

    const std::size_t from_;
    const std::string typed_;
    std::vector<Completion> first_, rest_;
};

void AddTimes(Offers& offers) {
    constexpr std::pair<const char*, const char*> times[] = {{"today", "since midnight, UTC"},
                                                             {"yesterday", ""},
                                                             {"-1h", "an hour back"},
                                                             {"-24h", "a day back"},
                                                             {"-7d", "a week back"}};
    for (const auto& [text, hint] : times)
        offers.Add(text, hint);
}

// The piece of a condition that is typed: column, sign, value.
std::vector<Completion> ForCondition(std::string_view typed, std::size_t begin, char quote,
                                     const SeenValues& seen) {
    constexpr const char* signs[] = {"=", "!=", "contains", "starts", "ends", "~",
                                     "<", "<=", ">",        ">=",     "in"};
    const std::size_t blank = typed.find(' ');
    if (blank == typed.npos) {
        // A condition has blanks, so that one without a quote gets one.
        const std::string ahead = quote == '\0' ? "'" : "";
        Offers offers(begin, ahead + std::string(typed));
        for (const Column& column : Columns())
            if (column.from != ColumnFrom::beside)
                offers.Add(ahead + std::string(column.name) + " ", column.meaning);
        return offers.Take();
    }
    const std::size_t second = typed.find(' ', blank + 1);
    if (second == typed.npos) {
        Offers offers(begin + blank + 1, typed.substr(blank + 1));
        for (const char* const sign : signs)
            offers.Add(sign + std::string(" "), "");
        return offers.Take();
    }
    Offers offers(begin + second + 1, typed.substr(second + 1));
    for (const std::string& value : seen(typed.substr(0, blank)))
        if (quote != '\0' && value.find(quote) == value.npos)
            offers.Add(value + quote, "");
    return offers.Take();
}

std::vector<Completion> ForValue(const SearchFlag& flag, std::string_view typed, std::size_t begin,
                                 char quote, const SeenValues& seen) {
    if (flag.kind == SearchFlag::where)
        return ForCondition(typed, begin, quote, seen);
    Offers offers(begin, typed);
    if (flag.kind == SearchFlag::object)
        for (const std::string_view name : ObjectTypeNames())
            offers.Add(std::string(name), "");
    else if (flag.kind == SearchFlag::action)
        for (const std::string_view name : ActionNames())
            offers.Add(std::string(name), "");
    else if (flag.kind == SearchFlag::time)
        AddTimes(offers);
    else if (flag.name == "level")
        for (const char* const level :
             {"critical", "high", "medium", "low", "informational", "none"})
            offers.Add(level, "");
    else if (!flag.column.empty())
        for (const std::string& value : seen(flag.column))
            offers.Add(quote != '\0' ? value : ShellQuoted(value), "");
    return offers.Take();
}

}  // namespace

std::vector<Completion> CompletionsAt(std::string_view line, std::size_t at,
                                      const SeenValues& seen) {
    bool isOpen = false;
    std::vector<SearchWord> words = SearchWordsOf(line.substr(0, at), &isOpen);
    // Behind a blank a new word begins.
    if (words.empty() || (!isOpen && words.back().end < at))
        words.push_back({"", at, at, at});
    const SearchWord& word = words.back();
    const bool isQuoted = word.begin != word.at;
    const std::size_t sign = word.text.find('=');
    if (word.text.starts_with("--") && !isQuoted && sign != word.text.npos) {
        const SearchFlag* const flag = FindSearchFlag(word.text.substr(2, sign - 2));
        return flag != nullptr
                   ? ForValue(*flag, word.text.substr(sign + 1), word.begin + sign + 1, '\0', seen)
                   : std::vector<Completion>();
    }
    const SearchWord* const before = words.size() > 1 ? &words[words.size() - 2] : nullptr;
    const SearchFlag* const asked = before != nullptr && before->text.starts_with("--") &&
                                            before->text.find('=') == std::string::npos
                                        ? FindSearchFlag(before->text.substr(2))
                                        : nullptr;
    if (asked != nullptr && asked->kind != SearchFlag::alone)
        return ForValue(*asked, word.text, word.begin, isQuoted ? line[word.at] : '\0', seen);
    Offers offers(word.at, word.text);
    if (!isQuoted && (word.text.empty() || word.text.starts_with('-')))
        for (const std::string_view name : SearchFlagNames())
            offers.Add(std::string(name), FindSearchFlag(name.substr(2))->hint);
    return offers.Take();
}

}  // namespace zel
