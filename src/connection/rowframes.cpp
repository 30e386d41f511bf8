#include "connection/rowframes.h"

namespace zel::frames {

namespace {

constexpr std::size_t numberLength = 4;

void Put(std::uint32_t number, char* bytes) noexcept {
    for (std::size_t i = 0; i < numberLength; ++i)
        bytes[i] = static_cast<char>(number >> (8 * i) & 0xFF);
}

}  // namespace

std::uint32_t NumberAt(const char* bytes) noexcept {
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < numberLength; ++i)
        number |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i])) << (8 * i);
    return number;
}

Writer::Writer(Type type, std::string* out) : out_(*out), begin_(out->size()) {
    out_.push_back(static_cast<char>(type));
    out_.append(numberLength, '\0');
}

Writer::~Writer() {
    Put(static_cast<std::uint32_t>(out_.size() - begin_ - headLength), out_.data() + begin_ + 1);
}

Writer& Writer::Number(std::uint32_t number) {
    char bytes[numberLength];
    Put(number, bytes);
    out_.append(bytes, numberLength);
    return *this;
}

Writer& Writer::Text(std::string_view text) {
    Number(static_cast<std::uint32_t>(text.size()));
    out_.append(text);
    return *this;
}

std::uint32_t Reader::Number() {
    isGood_ = isGood_ && rest_.size() >= numberLength;
    if (!isGood_)
        return 0;
    const std::uint32_t number = NumberAt(rest_.data());
    rest_.remove_prefix(numberLength);
    return number;
}

std::string_view Reader::Text() {
    const std::uint32_t length = Number();
    isGood_ = isGood_ && rest_.size() >= length;
    if (!isGood_)
        return {};
    const std::string_view text = rest_.substr(0, length);
    rest_.remove_prefix(length);
    return text;
}

}  // namespace zel::frames
