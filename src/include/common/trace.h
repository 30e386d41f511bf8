#pragma once

#include <string_view>

#include "common/place.h"
#include "common/result.h"
#include "common/tracemessages.h"
#include "common/wmapi.h"

namespace wm {

// One message, as a sink gets it.
//
// A message is a number, and the text for people comes with it from the table; what differs from
// one occurrence to the next is the argument. It is never more than one text, so that no message
// has to be formatted.
struct TraceMessage {
    TraceId id;
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
    // `message` is valid during the call. Several threads may trace at once. It must not throw.
    virtual void OnTrace(const TraceMessage& message) noexcept = 0;
};

// Without a sink a message costs one atomic load.
//
// Nothing is allocated on the way to the sink, so it works where memory has run out. `argument`
// need only live for the call.
WMLIB_API void Trace(const TraceId& id, ZEL::HRESULT code = ZEL::hr::ok,
                     std::string_view argument = {}, Place place = Place::Current()) noexcept;

// Traces a result that is a failure, and gives it back. A success passes through untouched.
inline ZEL::HRESULT Traced(ZEL::HRESULT result, const TraceId& id, std::string_view argument = {},
                           Place place = Place::Current()) noexcept {
    if (Failed(result))
        Trace(id, result, argument, place);
    return result;
}

}  // namespace wm
