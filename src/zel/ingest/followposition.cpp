#include "zel/ingest/followposition.h"

#include "common/filesystem.h"
#include "common/textbridge.h"
#include "connection/resultwords.h"
#include "zel/terminal/messages.h"
#include "zelstore/keys/receivekey.h"

// The position is kept as the key of a row, so it needs no format of its own and can be compared
// with what the store tells. The file is replaced as a whole: a process that is killed while it
// writes leaves the former position, from which rows are printed once more, and never half of one,
// from which nobody could go on.
//
// A file that holds something else is not written over. Somebody may have named it by mistake.

namespace zel {

bool PositionOfKey(const std::string& key, FollowPosition* position) {
    const auto place = ZEL::ParseReceiveKey(key);
    if (place)
        *position = {std::string(place->time), place->sequence};
    return place.has_value();
}

std::string KeyOfPosition(const FollowPosition& position) {
    return ZEL::MakeReceiveKey(position.time, position.sequence);
}

// What stands behind the first line is not looked at.
bool PositionFile::Load(const FollowPosition& initial, FollowPosition* position) {
    if (!wm::ToWide(name_, wideName_)) {
        Say("the position can't be kept in " + name_);
        return false;
    }
    if (!wm::FileExists(wideName_)) {
        *position = initial;
        return Save(initial);
    }
    std::string text;
    const ZEL::HRESULT read = wm::ReadWholeFile(wideName_, &text);
    const bool isPosition =
        Succeeded(read) && PositionOfKey(text.substr(0, text.find('\n')), position);
    if (!isPosition)
        Say(name_ +
            ": this is no position; without the file, following begins with what comes from now "
            "on");
    return isPosition;
}

bool PositionFile::Save(const FollowPosition& position) const {
    const ZEL::HRESULT result = wm::ReplaceWholeFile(wideName_, KeyOfPosition(position) + "\n");
    if (Failed(result))
        Say(name_ + ": the position can't be kept: " + Describe(static_cast<std::int32_t>(result)));
    return Succeeded(result);
}

}  // namespace zel
