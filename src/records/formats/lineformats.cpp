#include "records/formats/lineformats.h"

#include "common/textbridge.h"

// A JSON line is parsed once, and each format is asked whether it knows the fields. Records of the
// store's own are by far the most lines that come without a format, and are told by how they begin;
// only one whose members stand in another order is parsed for that.

namespace zel {

LineFormats::LineFormats(Mapper& mapper, const Format* forced)
    : mapper_(mapper), forced_(forced), readers_(Formats().size()) {}

LineSource& LineFormats::ReaderOf(const Format& format) {
    std::unique_ptr<LineSource>& reader =
        readers_[static_cast<std::size_t>(&format - Formats().data())];
    if (!reader)
        reader = format.makeReader(mapper_);
    return *reader;
}

bool LineFormats::Give(std::string_view text, std::uint64_t number) {
    constexpr std::string_view ownStart = R"({"artifacts":)";
    SourceLine line{text, number, nullptr};
    if (current_ != nullptr && current_->Wants() && wm::IsUtf8(text)) {
        current_->Give(line);
        return true;
    }
    current_ = nullptr;
    const bool isOwn = forced_ == nullptr ? text.starts_with(ownStart) : IsRecordFormat(*forced_);
    if (isOwn)
        return false;
    const bool isObject = ReadObject(text);
    if (isObject)
        line.fields = &fields_;
    if (forced_ == nullptr && isObject && fields_.Has("artifacts"))
        return false;
    for (const Format& format : Formats()) {
        if (format.makeReader == nullptr || (forced_ != nullptr && forced_ != &format) ||
            !format.knows(line))
            continue;
        if (!isObject && !wm::IsUtf8(text)) {
            Refuse("not UTF-8", "", number);
            return true;
        }
        current_ = &ReaderOf(format);
        current_->Give(line);
        return true;
    }
    if (forced_ == nullptr)
        return false;
    Refuse("not of the format that was asked for", isObject ? "" : ": " + json_.Error(), number);
    return true;
}

// What is no object is asked about as a text.
bool LineFormats::ReadObject(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(" \t");
    fields_.Clear();
    return begin != text.npos && text[begin] == '{' && json_.Read(text, &fields_);
}

void LineFormats::Refuse(std::string_view problem, std::string detail, std::uint64_t number) {
    refused_.Clear();
    refused_.problem = problem;
    refused_.detail = std::move(detail);
    refused_.place = number;
    hasRefused_ = true;
}

bool LineFormats::Next(SourceItem* item) {
    if (hasRefused_) {
        std::swap(*item, refused_);
        hasRefused_ = false;
        return true;
    }
    if (current_ != nullptr && current_->Next(item))
        return true;
    for (; hasEnded_ && ending_ < readers_.size(); ++ending_)
        if (readers_[ending_] && readers_[ending_]->Next(item))
            return true;
    return false;
}

std::uint64_t LineFormats::HeldFrom() const noexcept {
    std::uint64_t first = 0;
    for (const auto& reader : readers_) {
        const std::uint64_t from = reader ? reader->HeldFrom() : 0;
        if (from != 0 && (first == 0 || from < first))
            first = from;
    }
    return first;
}

// Each reader may hold an event that waited for more lines; Next asks them in their order.
void LineFormats::End() {
    current_ = nullptr;
    hasEnded_ = true;
    for (const auto& reader : readers_)
        if (reader)
            reader->End();
}

}  // namespace zel
