#pragma once

#include <cstdint>
#include <string_view>

#include "common/place.h"
#include "common/result.h"
#include "common/wmapi.h"

namespace wm {

enum class TraceLevel : std::uint8_t { error = 2, warning = 3, information = 4, verbose = 5 };

// One message: its text is a short fixed phrase, the argument is the text that goes with it.
struct TraceMessage {
    TraceLevel level;
    const char* text;
    std::string_view argument;  // UTF-8 where the source allowed it; may be empty
    ZEL::HRESULT code;          // hr::ok when none belongs to the message
    Place place;
};

// Takes trace messages. Called on any thread, possibly under locks of the component: it must not
// call back into the component.
class ITraceSink {
public:
    virtual ~ITraceSink() = default;
    // Asked before each message.
    virtual bool Enabled(TraceLevel level) const noexcept = 0;
    // `message` is valid during the call.
    virtual void OnTrace(const TraceMessage& message) noexcept = 0;
};

// Texts that a host may act on.
namespace traceText {
// What an exception inside an operation said stands in the argument.
inline constexpr const char* operationThrew = "an operation failed";
}  // namespace traceText

// Without a sink a message costs one atomic load.
WMLIB_API void Trace(TraceLevel level, const char* text, ZEL::HRESULT code = ZEL::hr::ok,
                     std::string_view argument = {}, Place place = Place::Current()) noexcept;

}  // namespace wm
