#include "agent/linecutter.h"

#include <gtest/gtest.h>

#include <vector>

namespace zel {

namespace {

std::string CutInPieces(std::string_view text, std::size_t size, std::size_t longest) {
    std::string told;
    LineCutter cutter(longest, 100);
    const auto take = [&](const CutLine& line) {
        EXPECT_EQ(line.text.substr(0, 1), text.substr(line.offset - 100, 1).substr(0, 1));
        told.append(std::to_string(line.number)).append(".").append(std::to_string(line.part));
        told.append("<").append(line.text).append("> ");
    };
    for (std::size_t at = 0; at < text.size(); at += size)
        cutter.Feed(text.substr(at, size), false, take);
    cutter.Feed({}, true, take);
    EXPECT_EQ(cutter.Next().offset, 100 + text.size());
    return told;
}

}  // namespace

TEST(LineCutter, PiecesOfAnySizeGiveTheSameLines) {
    const struct {
        const char* text;
        std::size_t longest;
        const char* lines;
    } rows[] = {
        {"", 9, ""},
        {"a\n\nb\r\n \t\nc", 9, "1.0<a> 3.0<b> 5.0<c> "},
        {"12345678901234\nb\n", 9, "1.0<1234567890> 2.0<b> "},
        {"12345678901234", 9, "1.0<1234567890> "},
        {"<E><Event>1</Event> <Event>2</Event></E>\n{</Event>}\n", 99,
         "1.0<<E><Event>1</Event>> 1.1< <Event>2</Event>> 1.2<</E>> 2.0<{</Event>}> "},
    };
    for (const auto& row : rows)
        for (const std::size_t size : {1U, 2U, 3U, 7U, 1000U})
            EXPECT_EQ(CutInPieces(row.text, size, row.longest), row.lines) << size;
}

}  // namespace zel
