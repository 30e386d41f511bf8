#include "agent/body.h"

#include <algorithm>
#include <vector>

#include "agent/memorystream.h"
#include "common/asciicase.h"
#include "records/input/unpack.h"
#include "records/jsonfields.h"

namespace zel {

namespace {

// Whether an array has more members than that, by its commas: ahead of reading it, since members
// of two bytes take a hundred times that in memory.
bool HasMoreMembers(std::string_view array, std::uint64_t most) {
    std::uint64_t commas = 0;
    std::size_t depth = 0;
    bool isText = false;
    for (std::size_t i = 0; i < array.size() && commas < most; ++i) {
        const char c = array[i];
        if (isText && c == '\\')
            ++i;
        else if (c == '"')
            isText = !isText;
        else if (!isText && (c == '[' || c == '{'))
            ++depth;
        else if (!isText && depth > 0 && (c == ']' || c == '}'))
            --depth;
        else if (!isText && depth == 0 && c == ',')
            ++commas;
    }
    return commas >= most;
}

}  // namespace

int UnpackBody(const HttpHead& head, std::uint64_t most, std::string* body, std::string* problem) {
    const std::string_view encoding = head.contentEncoding;
    if (encoding.empty() || ZEL::EqualsNoCase(encoding, "identity"))
        return 0;
    const bool isKnown = ZEL::EqualsNoCase(encoding, "gzip") ||
                         ZEL::EqualsNoCase(encoding, "x-gzip") ||
                         ZEL::EqualsNoCase(encoding, "zstd");
    if (!isKnown) {
        *problem = "bodies may be packed with gzip or zstd";
        return 415;
    }
    MemoryStream packed(*body);
    const auto stream = MakeUnpacker(*body, packed);
    if (!stream) {
        *problem = "the body is not packed as its Content-Encoding says";
        return 400;
    }
    std::string whole;
    std::vector<char> buffer(1U << 18);
    for (;;) {
        const long got = stream->Read(buffer.data(), buffer.size(), problem);
        if (got < 0)
            return 400;
        if (got == 0)
            break;
        whole.append(buffer.data(), static_cast<std::size_t>(got));
        if (whole.size() > most) {
            *problem = "the body is larger than http.inflated_size once it is unpacked";
            return 413;
        }
    }
    body->swap(whole);
    return 0;
}

BodyLines ForEachLine(std::string_view body, std::uint64_t most, const LineCutter::Take& take) {
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    const std::size_t mark = body.starts_with(byteOrderMark) ? byteOrderMark.size() : 0;
    const std::size_t begin = std::min(body.find_first_not_of(" \t\r\n", mark), body.size());
    if (body.substr(begin, 1) != "[") {
        LineCutter(body.size()).Feed(body, true, take);
        return BodyLines::good;
    }
    if (HasMoreMembers(body.substr(begin + 1), most))
        return BodyLines::longArray;
    std::vector<std::string> items;
    if (!JsonFields().Split(body.substr(begin), &items))
        return BodyLines::brokenArray;
    for (std::size_t i = 0; i < items.size(); ++i)
        take({items[i], i + 1, 0, 0});
    return BodyLines::good;
}

std::string IdOfLine(const std::string& key, const CutLine& line) {
    if (key.empty())
        return key;
    const std::string id = key + "-" + std::to_string(line.number);
    return line.part == 0 ? id : id + "." + std::to_string(line.part);
}

}  // namespace zel
