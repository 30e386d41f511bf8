#include "agent/asking/answerwriter.h"

#include <algorithm>
#include <cstdio>

#include "common/jsontext.h"
#include "common/valuetext.h"
#include "connection/databaseerror.h"
#include "connection/resultwords.h"
#include "connection/rowframes.h"

namespace zel {

namespace {

using ZEL::HRESULT;

class FrameWriter final : public AnswerWriter {
public:
    Written Rows(ZEL::IValueCollection& rows, std::size_t most, std::string_view resumeTime,
                 std::int32_t resumeSequence, std::string* out) override {
        const std::size_t count = std::min<std::size_t>(rows.Count(), most);
        if (count == 0)
            return {0, rows.Count() > most};
        frames::Writer frame(frames::Type::rows, out);
        frame.Text(resumeTime).Number(static_cast<std::uint32_t>(resumeSequence));
        frame.Number(static_cast<std::uint32_t>(count));
        std::string converted;
        for (std::size_t i = 0; i < count; ++i)
            frame.Text(wm::Utf8Of(*rows.GetValue(i), converted).value_or(""));
        return {count, rows.Count() > most};
    }
    void Failure(std::string_view folder, std::uint32_t operation, HRESULT result,
                 std::string* out) override {
        frames::Writer(frames::Type::failure, out)
            .Text(folder)
            .Number(operation)
            .Number(Bits(result));
    }
    void Untested(std::uint32_t rows, std::string_view why, std::string* out) override {
        frames::Writer(frames::Type::untested, out).Number(rows).Text(why);
    }
    void Damaged(std::uint32_t reads, std::string* out) override {
        frames::Writer(frames::Type::damaged, out).Number(reads);
    }
    void End(HRESULT result, bool isComplete, std::string_view words, std::string* out) override {
        frames::Writer(frames::Type::end, out)
            .Number(Bits(result))
            .Number(isComplete ? 1 : 0)
            .Text(words);
    }
};

// What is missing from the answer stands in its last line alone.
class LineWriter final : public AnswerWriter {
public:
    explicit LineWriter(std::function<bool(std::string_view)> fits) : fits_(std::move(fits)) {}

    // Line ends stand between the tokens of JSON only, so a blank in their place changes nothing.
    Written Rows(ZEL::IValueCollection& rows, std::size_t most, std::string_view, std::int32_t,
                 std::string* out) override {
        Written written;
        std::string converted;
        for (std::size_t i = 0; i < rows.Count(); ++i) {
            const std::string_view row = wm::Utf8Of(*rows.GetValue(i), converted).value_or("null");
            if (fits_ && !fits_(row))
                continue;
            if (written.rows == most)
                return {most, true};
            ++written.rows;
            const std::size_t begin = out->size();
            *out += row;
            const auto from = out->begin() + static_cast<std::ptrdiff_t>(begin);
            std::replace(from, out->end(), '\n', ' ');
            std::replace(from, out->end(), '\r', ' ');
            *out += '\n';
        }
        return written;
    }
    void Failure(std::string_view folder, std::uint32_t operation, HRESULT result,
                 std::string*) override {
        failures_ += (failures_.empty() ? "" : ",") + FailureJson(folder, operation, result);
    }
    void Untested(std::uint32_t rows, std::string_view, std::string*) override {
        untested_ += rows;
    }
    void Damaged(std::uint32_t reads, std::string*) override { damaged_ += reads; }
    void End(HRESULT result, bool isComplete, std::string_view words, std::string* out) override {
        *out += "{\"end\":true,\"truncated\":";
        *out += !isComplete || Failed(result) ? "true" : "false";
        if (Failed(result) || !words.empty())
            *out += ",\"reason\":" +
                    wm::JsonString(words.empty() ? Describe(static_cast<std::int32_t>(result))
                                                 : std::string(words));
        *out += ",\"not_read\":[" + failures_ + "],\"untested\":" + std::to_string(untested_) +
                ",\"damaged_reads\":" + std::to_string(damaged_) + "}\n";
    }

private:
    const std::function<bool(std::string_view)> fits_;
    std::string failures_;  // behind each other, as JSON
    std::uint64_t untested_ = 0, damaged_ = 0;
};

}  // namespace

std::string FailureJson(std::string_view folder, std::uint32_t operation, HRESULT result) {
    const DatabaseError error{std::string(folder), operation, 1, static_cast<std::int32_t>(result)};
    return "{\"folder\":" + wm::JsonString(error.folder) + ",\"operation\":\"" + error.Operation() +
           "\",\"why\":" + wm::JsonString(Describe(error.lastResult)) + "}";
}

std::unique_ptr<AnswerWriter> MakeAnswerWriter(const AskedQuestion& question) {
    if (question.form == AnswerForm::frames)
        return std::make_unique<FrameWriter>();
    return std::make_unique<LineWriter>(question.fits);
}

}  // namespace zel
