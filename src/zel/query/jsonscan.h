#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zel {

// Reads a JSON text by the letter: comments, leading zeros, unpaired surrogates and the like, which
// the store's own parser lets pass, are refused. Nothing is decoded or copied. The text must be
// UTF-8 and outlive the scan. The scan is complete when it is made; its time grows with the text's
// length and its stack with the nesting, which is bounded. For any thread once it is made.
class JsonScan {
public:
    static constexpr int deepest = 128;  // the store's own parser takes no deeper nesting

    explicit JsonScan(std::string_view text);

    bool Ok() const noexcept { return error_ == nullptr; }
    // What is wrong, and the byte where. A constant text in plain words; null for a good text. The
    // place is an offset from 0, at most the text's size.
    const char* Error() const noexcept { return error_; }
    std::size_t ErrorAt() const noexcept { return at_; }

    // Whether the outermost value is an object; its member's text as it stands. Empty when there is
    // no such member, and when its name is written with escapes.
    bool IsObject() const noexcept { return isObject_; }
    // Quotes of a string and escapes in it included. Of members with one name the first.
    std::string_view Member(std::string_view name) const;
    // The same, of the member that stands last; empty when the last one has another name.
    std::string_view LastMember(std::string_view name) const;

private:
    bool Value(int depth);
    bool Object(int depth);
    bool Array(int depth);
    bool String();
    bool Escape();
    bool Number();
    bool Digits();
    bool Word(std::string_view word);
    bool HexQuad(unsigned* value);
    void SkipBlanks();
    bool Take(char c);
    char Peek() const noexcept { return at_ < text_.size() ? text_[at_] : '\0'; }
    bool Fail(const char* error);

    struct Entry {
        std::string_view name;
        std::string_view value;
    };
    const std::string_view text_;
    std::size_t at_ = 0;
    const char* error_ = nullptr;
    bool isObject_ = false;
    std::vector<Entry> members_;
};

// The place of a byte as people count: lines and characters from 1. `lineText` is that line.
struct TextPlace {
    std::size_t line = 1, column = 1;
    std::string_view lineText;
    std::size_t byteInLine = 0;
};
// A place behind the end counts as the end. A line ends at \n; a \r ahead of that is not part of
// `lineText`.
TextPlace PlaceOf(std::string_view text, std::size_t at);

}  // namespace zel
