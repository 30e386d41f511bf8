#include "agent/linecutter.h"

#include <algorithm>
#include <utility>

namespace zel {

namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view eventEnd = "</Event>";

bool IsXml(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    return first != text.npos && text[first] == '<';
}

}  // namespace

void LineCutter::Give(std::string_view text, const Take& take) const {
    if (number_ == 1 && part_ == 0 && text.starts_with(byteOrderMark))
        text.remove_prefix(byteOrderMark.size());
    if (text.ends_with('\r'))
        text.remove_suffix(1);
    if (text.find_first_not_of(" \t") != text.npos)
        take({text.substr(0, longest_ + 1), number_, part_, offset_});
}

// Gives what `rest` begins with and tells how much that was; 0 when its end has not come.
std::size_t LineCutter::CutOne(std::string_view rest, bool isLast, const Take& take) {
    const std::size_t end = rest.find('\n');
    std::string_view line = rest.substr(0, end);
    const bool isFirst = number_ == 1 && part_ == 0 && line.starts_with(byteOrderMark);
    const std::size_t event =
        IsXml(isFirst ? line.substr(byteOrderMark.size()) : line) ? line.find(eventEnd) : line.npos;
    if (event != line.npos) {
        line = line.substr(0, event + eventEnd.size());
        Give(line, take);
        ++part_;
        return line.size();
    }
    if (end == rest.npos && !isLast)
        return 0;
    Give(line, take);
    ++number_;
    part_ = 0;
    return line.size() + (end == rest.npos ? 0 : 1);
}

void LineCutter::Feed(std::string_view bytes, bool isLast, const Take& take) {
    if (passedOver_ > 0) {
        const std::size_t end = std::min(bytes.find('\n'), bytes.size());
        passedOver_ += end;
        bytes.remove_prefix(end);
        if (bytes.empty() && !isLast)
            return;
    }
    std::string joined;
    if (!held_.empty()) {
        joined.swap(held_);
        bytes = joined.append(bytes);
    }
    while (!bytes.empty()) {
        const std::size_t cut = CutOne(bytes, isLast, take);
        if (cut == 0)
            break;
        offset_ += cut + std::exchange(passedOver_, 0);
        bytes.remove_prefix(cut);
    }
    held_ = bytes.substr(0, longest_ + 1);
    passedOver_ += bytes.size() - held_.size();
}

}  // namespace zel
