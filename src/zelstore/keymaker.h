#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

#include "common/result.h"
#include "zelstore/ieventstore.h"

namespace ZEL {

// Primary keys. A key is told by its record alone. All of these throw nothing; memory exhaustion
// gives 0x8007000E.

// Makes the keys of event records given as JSON text. May be used by any thread, without a lock:
// what one record took of memory is kept for the next, and who finds it taken makes his own.
class EventKeyMaker {
public:
    EventKeyMaker() noexcept;
    ~EventKeyMaker();
    EventKeyMaker(const EventKeyMaker&) = delete;
    EventKeyMaker& operator=(const EventKeyMaker&) = delete;

    // A new string value with one reference, or the UTF-8 text. 0x8000FFFF for text that is not
    // JSON, not Unicode or holds a name that is not in the vocabulary; 0x80070057 without
    // begin_time; 0x80004005 without target or action. `*key` is then as it was.
    HRESULT Make(IStringValue& jsonText, IStringValue** key) noexcept;
    HRESULT Make(std::string_view jsonText, std::string* key) noexcept;

private:
    struct Work;

    // The spare, or a new one; throws without memory. End gives it back, unless it has grown too
    // large.
    std::unique_ptr<Work> Begin();
    void End(std::unique_ptr<Work> work, std::size_t recordBytes) noexcept;
    // `give` takes the key.
    template <typename Give>
    HRESULT MakeAndGive(std::string_view json, Give&& give);

    std::atomic<Work*> spare_{nullptr};
};

// The key of an event given as numbered properties. 0x80070057 when one of the time, the sequence,
// the object type and the action is absent.
HRESULT MakePropertyKey(IEventProperties* event, std::wstring* key) noexcept;

}  // namespace ZEL
