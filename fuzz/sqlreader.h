#pragma once

#include <re2/re2.h>

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "fuzz.h"

// Reads the statements that questions to a fleet become, and says what one of them means for a row.
// It knows the words that such a statement may have and no other. What it does not know, a literal
// without its end, a bracket too many, ends the process as a find.
namespace ZEL::fuzz {

struct SqlValue {
    bool isText = false;
    std::string text;
    std::int64_t number = 0;
    std::vector<SqlValue> members;  // of a tuple

    bool operator==(const SqlValue&) const = default;
    bool operator<(const SqlValue& other) const {
        return std::tie(text, number, members) < std::tie(other.text, other.number, other.members);
    }
};
inline SqlValue SqlNumber(std::int64_t number) {
    return {false, "", number, {}};
}
using SqlRow = std::map<std::string, SqlValue, std::less<>>;

class SqlReader {
public:
    SqlReader(std::string_view sql, const SqlRow& row) : sql_(sql), row_(row) { Split(); }

    // What stands behind SELECT and ahead of FROM is read by name; empty where it isn't there.
    struct Meaning {
        bool isWanted = false;
        std::int64_t part = 0;
    };
    Meaning Read() {
        Meaning meaning;
        Expect("SELECT");
        for (bool isMore = true; isMore; isMore = Take(",")) {
            const SqlValue value = Any();
            if (Take("AS")) {
                Expect("part");
                meaning.part = value.number;
            }
        }
        Expect("FROM");
        Expect("events");
        Expect("WHERE");
        meaning.isWanted = Any().number != 0;
        Expect("ORDER");
        Expect("BY");
        Columns();
        Expect("LIMIT");
        Any();
        Expect("FORMAT");
        Expect("JSONEachRow");
        Check(at_ == tokens_.size(), {sql_});
        return meaning;
    }

private:
    struct Token {
        enum { word, number, literal, sign } kind;
        std::string text;
    };

    static bool IsWord(char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_';
    }
    static bool IsDigit(char c) { return c >= '0' && c <= '9'; }

    void Split() {
        for (std::size_t i = 0; i < sql_.size();) {
            const char c = sql_[i];
            if (c == ' ') {
                ++i;
            } else if (IsWord(c)) {
                const std::size_t from = i;
                while (i < sql_.size() && IsWord(sql_[i]))
                    ++i;
                tokens_.push_back({IsDigit(c) ? Token::number : Token::word,
                                   std::string(sql_.substr(from, i - from))});
            } else if (c == '\'') {
                i = SplitText(i + 1);
            } else {
                std::size_t length = 1;
                if (i + 1 < sql_.size() && sql_[i + 1] == '=' && (c == '!' || c == '<' || c == '>'))
                    length = 2;
                static const std::set<std::string, std::less<>> signs = {
                    "(", ")", ",", "=", "!=", "<", "<=", ">", ">="};
                tokens_.push_back({Token::sign, std::string(sql_.substr(i, length))});
                Check(signs.count(tokens_.back().text) == 1, {sql_, tokens_.back().text});
                i += length;
            }
        }
    }
    // As the server does: a quote ends it, a backslash takes what follows with it.
    std::size_t SplitText(std::size_t i) {
        std::string text;
        for (; i < sql_.size() && sql_[i] != '\''; ++i) {
            if (sql_[i] != '\\') {
                text += sql_[i];
                continue;
            }
            Check(++i < sql_.size(), {sql_});
            constexpr std::string_view letters = "0tnr\\'";
            const std::size_t place = letters.find(sql_[i]);
            Check(place != letters.npos, {sql_});
            text += std::string_view("\0\t\n\r\\'", 6)[place];
        }
        Check(i < sql_.size(), {sql_});
        tokens_.push_back({Token::literal, text});
        return i + 1;
    }

    bool Is(std::string_view text) const {
        return at_ < tokens_.size() && tokens_[at_].kind != Token::literal &&
               tokens_[at_].text == text;
    }
    bool Take(std::string_view text) {
        const bool is = Is(text);
        at_ += is ? 1 : 0;
        return is;
    }
    void Expect(std::string_view text) { Check(Take(text), {sql_, text}); }
    void Columns() {
        do {
            if (!Take("part"))
                Any();
        } while ((Take("DESC") && Take(",")) || Take(","));
    }

    SqlValue Any() {
        SqlValue value = All();
        while (Take("OR")) {
            const SqlValue other = All();
            value = SqlNumber(value.number != 0 || other.number != 0 ? 1 : 0);
        }
        return value;
    }
    SqlValue All() {
        SqlValue value = Compared();
        while (Take("AND")) {
            const SqlValue other = Compared();
            value = SqlNumber(value.number != 0 && other.number != 0 ? 1 : 0);
        }
        return value;
    }
    SqlValue Compared() {
        const SqlValue left = Operand();
        const auto both = [&](auto&& test) {
            const SqlValue right = Operand();
            Check(left.isText == right.isText && left.members.size() == right.members.size(),
                  {sql_});
            return SqlNumber(test(left, right) ? 1 : 0);
        };
        if (Take("="))
            return both(std::equal_to<>());
        if (Take("!="))
            return both(std::not_equal_to<>());
        if (Take("<="))
            return both([](const auto& a, const auto& b) { return !(b < a); });
        if (Take(">="))
            return both([](const auto& a, const auto& b) { return !(a < b); });
        if (Take("<"))
            return both(std::less<>());
        if (Take(">"))
            return both([](const auto& a, const auto& b) { return b < a; });
        const bool isNot = Take("NOT");
        if (Take("IN")) {
            const SqlValue list = Operand();
            Check(list.members.size() > 1, {sql_});
            const auto found = std::count(list.members.begin(), list.members.end(), left);
            return SqlNumber((found != 0) != isNot ? 1 : 0);
        }
        if (isNot || Is("LIKE")) {
            Expect("LIKE");
            return SqlNumber(Like(Operand().text, left.text) != isNot ? 1 : 0);
        }
        return left;
    }
    SqlValue Operand() {
        Check(at_ < tokens_.size(), {sql_});
        const Token token = tokens_[at_++];
        if (token.kind == Token::literal)
            return {true, token.text, 0, {}};
        if (token.kind == Token::number) {
            Check(std::all_of(token.text.begin(), token.text.end(), IsDigit), {sql_});
            return SqlNumber(std::stoll(token.text));
        }
        if (token.text == "(")
            return Bracketed();
        Check(token.kind == Token::word, {sql_, token.text});
        if (Take("("))
            return Function(token.text, Bracketed(true).members);
        const auto column = row_.find(token.text);
        Check(column != row_.end(), {sql_, token.text});
        return column->second;
    }
    SqlValue Bracketed(bool isTuple = false) {
        SqlValue tuple;
        do {
            tuple.members.push_back(Any());
        } while (Take(","));
        Expect(")");
        return tuple.members.size() == 1 && !isTuple ? tuple.members[0] : tuple;
    }

    SqlValue Function(const std::string& name, const std::vector<SqlValue>& in) {
        const auto text = [](std::string value) { return SqlValue{true, std::move(value), 0, {}}; };
        const auto truth = [](bool is) { return SqlNumber(is ? 1 : 0); };
        if (name == "lower" || name == "upper") {
            std::string value = in.at(0).text;
            for (char& c : value) {
                const bool isOther = name == "lower" ? c >= 'A' && c <= 'Z' : c >= 'a' && c <= 'z';
                c = isOther ? static_cast<char>(c ^ 0x20) : c;
            }
            return text(value);
        }
        if (name == "startsWith")
            return truth(in.at(0).text.starts_with(in.at(1).text));
        if (name == "endsWith")
            return truth(in.at(0).text.ends_with(in.at(1).text));
        if (name == "bitAnd")
            return SqlNumber(in.at(0).number & in.at(1).number);
        if (name == "substring")
            return text(in.at(0).text.substr(0, static_cast<std::size_t>(in.at(2).number)));
        if (name == "multiIf")
            return Chosen(in);
        Check(name == "match", {sql_, name});
        return truth(Matches(in.at(0).text, in.at(1).text));
    }
    static SqlValue Chosen(const std::vector<SqlValue>& in) {
        for (std::size_t i = 0; i + 1 < in.size(); i += 2)
            if (in[i].number != 0)
                return in[i + 1];
        return in.back();
    }
    bool Matches(const std::string& text, const std::string& pattern) const {
        RE2::Options options;
        options.set_log_errors(false);
        const RE2 expression(pattern, options);
        Check(expression.ok(), {sql_, expression.error()});
        return RE2::PartialMatch(text, expression);
    }
    // Of a pattern with %, and with \ ahead of what stands for itself.
    bool Like(const std::string& pattern, const std::string& text) const {
        std::vector<bool> reached(text.size() + 1, false);
        reached[0] = true;
        for (std::size_t p = 0; p < pattern.size(); ++p) {
            std::vector<bool> next(text.size() + 1, false);
            const bool isAny = pattern[p] == '%';
            Check(pattern[p] != '_', {sql_});
            if (pattern[p] == '\\')
                Check(++p < pattern.size(), {sql_});
            for (std::size_t i = 0; i <= text.size(); ++i)
                next[i] = isAny ? reached[i] || (i > 0 && next[i - 1])
                                : i > 0 && reached[i - 1] && text[i - 1] == pattern[p];
            reached = next;
        }
        return reached[text.size()];
    }

    const std::string_view sql_;
    const SqlRow& row_;
    std::vector<Token> tokens_;
    std::size_t at_ = 0;
};

}  // namespace ZEL::fuzz
