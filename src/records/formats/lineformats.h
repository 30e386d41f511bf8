#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "records/formats/formats.h"
#include "records/jsonfields.h"

namespace zel {

// Finds the format of each line of an input and reads it. Lines of several formats may follow one
// another. For one thread.
class LineFormats {
public:
    // Made for one input. With `forced` lines of other formats are refused. Both outlive this.
    explicit LineFormats(Mapper& mapper, const Format* forced = nullptr);

    // A line without its end, from 1 on. False when it is to be taken as it stands: because it is a
    // record of the store's own, or of no format, which the store's own reading tells best. After
    // true, Next gives what comes of it; the text must live that long.
    bool Give(std::string_view text, std::uint64_t number);
    // As LineSource::Next; to be called until it gives false.
    bool Next(SourceItem* item);
    // As LineSource::HeldFrom, over all formats.
    std::uint64_t HeldFrom() const noexcept;
    // There are no more lines; Next gives what is left.
    void End();

private:
    bool ReadObject(std::string_view text);
    LineSource& ReaderOf(const Format& format);
    void Refuse(std::string_view problem, std::string detail, std::uint64_t number);

    Mapper& mapper_;
    const Format* const forced_;
    JsonFields json_;
    SourceFields fields_;
    std::vector<std::unique_ptr<LineSource>> readers_;  // by their places in the list
    LineSource* current_ = nullptr;                     // who has the line
    bool hasEnded_ = false;
    std::size_t ending_ = 0;
    SourceItem refused_;
    bool hasRefused_ = false;
};

}  // namespace zel
