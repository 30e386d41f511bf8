#include "linereader.h"

#include <gtest/gtest.h>
#include <lzma.h>
#include <zlib.h>

#include <fstream>
#include <vector>

#include "support/storefixture.h"

namespace zel {
namespace {

using Status = LineReader::Status;

std::string Gzip(const std::string& text) {
    std::string packed(compressBound(text.size()) + 64, '\0');
    z_stream stream{};
    deflateInit2(&stream, 6, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY);
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    return packed;
}

std::string Xz(const std::string& text) {
    std::string packed(lzma_stream_buffer_bound(text.size()), '\0');
    std::size_t size = 0;
    EXPECT_EQ(lzma_easy_buffer_encode(6, LZMA_CHECK_CRC32, nullptr,
                                      reinterpret_cast<const std::uint8_t*>(text.data()),
                                      text.size(), reinterpret_cast<std::uint8_t*>(packed.data()),
                                      &size, packed.size()),
              LZMA_OK);
    packed.resize(size);
    return packed;
}

class LineReaderTest : public testing::Test {
protected:
    // The lines of a file with these bytes; how it ended stays in `last_`.
    std::vector<std::string> Read(const std::string& bytes) {
        folder_.WriteFile("in", bytes);
        LineReader reader(folder_.Path() / "in");
        std::vector<std::string> lines;
        std::string line;
        while ((last_ = reader.Next(&line)) == Status::line)
            lines.push_back(line);
        error_ = reader.Error();
        lineNumber_ = reader.LineNumber();
        return lines;
    }

    ZEL::test::TempStore folder_;
    Status last_ = Status::line;
    std::string error_;
    std::uint64_t lineNumber_ = 0;
};

TEST_F(LineReaderTest, SplitsPlainAndPackedText) {
    const std::string text = "a\r\n\n" + std::string(600000, 'x') + "\nlast";
    const std::vector<std::string> lines = {"a", "", std::string(600000, 'x'), "last"};
    for (const std::string& bytes :
         {text, Gzip(text), Xz(text), Gzip("a\r\n") + Gzip(text.substr(3)),
          Xz("a\r\n") + Xz(text.substr(3))}) {
        EXPECT_EQ(Read(bytes), lines);
        EXPECT_EQ(last_, Status::end) << error_;
        EXPECT_EQ(lineNumber_, 4u);
    }
    EXPECT_TRUE(Read("").empty());
    EXPECT_EQ(Read("\n"), std::vector<std::string>{""});
}

TEST_F(LineReaderTest, TellsDamageAndKeepsWhatCameBefore) {
    std::string text;
    for (int i = 0; i < 100000; ++i)
        text += std::to_string(i * 7919) + "\n";
    for (const std::string& packed : {Gzip(text), Xz(text)}) {
        const auto cut = Read(packed.substr(0, packed.size() / 2));
        EXPECT_EQ(last_, Status::failed);
        EXPECT_NE(error_.find("damaged or cut off"), std::string::npos) << error_;
        ASSERT_FALSE(cut.empty());
        EXPECT_EQ(cut.front(), "0");
        std::string damaged = packed;
        damaged[packed.size() / 2] ^= 0x55;
        Read(damaged);
        EXPECT_EQ(last_, Status::failed);
    }
    LineReader missing("/nonexistent/file");
    std::string line;
    EXPECT_EQ(missing.Next(&line), Status::failed);
    EXPECT_FALSE(missing.Error().empty());
}

TEST_F(LineReaderTest, PassesOverLinesBeyondTheLimit) {
    folder_.WriteFile("in", "a\n" + std::string(LineReader::longestLine + 1, 'x') + "\nb\n");
    LineReader reader(folder_.Path() / "in");
    std::string line;
    EXPECT_EQ(reader.Next(&line), Status::line);
    EXPECT_EQ(reader.Next(&line), Status::tooLong);
    EXPECT_TRUE(line.empty());
    EXPECT_EQ(reader.Next(&line), Status::line);
    EXPECT_EQ(line, "b");
    EXPECT_EQ(reader.LineNumber(), 3u);
}

}  // namespace
}  // namespace zel
