#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "agent/asking/questions.h"

namespace zel {

// How an answer's parts are written. For one thread.
class AnswerWriter {
public:
    virtual ~AnswerWriter() = default;

    // Each puts its bytes behind `*out`.

    // Up to `most` rows; how many were written, and whether there are more.
    struct Written {
        std::size_t rows = 0;
        bool hasMore = false;
    };
    virtual Written Rows(ZEL::IValueCollection& rows, std::size_t most, std::string_view resumeTime,
                         std::int32_t resumeSequence, std::string* out) = 0;
    virtual void Failure(std::string_view folder, std::uint32_t operation, ZEL::HRESULT result,
                         std::string* out) = 0;
    virtual void Untested(std::uint32_t rows, std::string_view why, std::string* out) = 0;
    virtual void Damaged(std::uint32_t reads, std::string* out) = 0;
    // `words` may be empty.
    virtual void End(ZEL::HRESULT result, bool isComplete, std::string_view words,
                     std::string* out) = 0;
};

// A database that can't be read, as an object of JSON.
std::string FailureJson(std::string_view folder, std::uint32_t operation, ZEL::HRESULT result);

std::unique_ptr<AnswerWriter> MakeAnswerWriter(const AskedQuestion& question);

}  // namespace zel
