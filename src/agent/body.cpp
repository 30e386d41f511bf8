#include "agent/body.h"

#include <algorithm>
#include <vector>

#include "agent/memorystream.h"
#include "common/asciicase.h"
#include "records/input/unpack.h"
#include "records/jsonfields.h"

namespace zel {

namespace {

void TakeLine(std::string_view line, std::uint64_t number,
              const std::function<void(std::string_view, std::uint64_t)>& take) {
    if (line.ends_with('\r'))
        line.remove_suffix(1);
    if (line.find_first_not_of(" \t") != line.npos)
        take(line, number);
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

bool ForEachLine(std::string_view body,
                 const std::function<void(std::string_view, std::uint64_t)>& take) {
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    constexpr std::string_view eventEnd = "</Event>";
    if (body.starts_with(byteOrderMark))
        body.remove_prefix(byteOrderMark.size());
    const std::size_t begin = std::min(body.find_first_not_of(" \t\r\n"), body.size());
    const std::string_view first = body.substr(begin, 1);
    if (first == "[") {
        std::vector<std::string> items;
        if (!JsonFields().Split(body, &items))
            return false;
        for (std::size_t i = 0; i < items.size(); ++i)
            take(items[i], i + 1);
        return true;
    }
    for (std::uint64_t number = 1; !body.empty(); ++number) {
        const std::size_t end = std::min(body.find('\n'), body.size());
        std::string_view line = body.substr(0, end);
        body.remove_prefix(std::min(end + 1, body.size()));
        for (std::size_t at; first == "<" && (at = line.find(eventEnd)) != line.npos;) {
            TakeLine(line.substr(0, at + eventEnd.size()), number, take);
            line.remove_prefix(at + eventEnd.size());
        }
        TakeLine(line, number, take);
    }
    return true;
}

}  // namespace zel
