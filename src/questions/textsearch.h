#pragma once

#include <string>
#include <string_view>

namespace zel {

// Looks for one text in many, without regard to the case of ASCII letters. Sixteen bytes at a time
// where the processor can, so that it costs less than the reading of the texts. Any thread.
class TextSearch {
public:
    // Keeps a copy. An empty text stands in every text.
    explicit TextSearch(std::string_view wanted);

    bool IsIn(std::string_view text) const noexcept;

private:
    bool IsAt(const char* text) const noexcept;

    std::string wanted_;  // in upper case
    char last_[2] = {};   // its last character in both cases
    char first_[2] = {};
};

// Looks for a text in events as they stand in the store: as it is, and as JSON writes it, so that a
// path is found with its separators single as people type them, or double as an event shows them.
// An event that writes characters in an unusual way (\u0041, \/) is found as well.
class EventSearch {
public:
    explicit EventSearch(std::string_view wanted);

    bool IsIn(std::string_view event) const;
    // False only where no value of the event can hold the text: cheap, to be asked ahead of reading
    // the event.
    bool MayBeIn(std::string_view event) const noexcept;

private:
    bool IsWritten(std::string_view event) const noexcept;

    TextSearch plain_, inJson_;
    bool sameInJson_;
};

}  // namespace zel
