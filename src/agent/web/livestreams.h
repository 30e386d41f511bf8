#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "agent/asking/answerstream.h"

namespace zel {

// The streams that can be paused, by the names that their readers were told. Any thread.
class LiveStreams {
public:
    void Add(const std::string& id, const std::shared_ptr<AnswerStream>& stream) {
        const std::lock_guard hold(mutex_);
        std::erase_if(streams_, [](const auto& entry) { return entry.second.expired(); });
        streams_[id] = stream;
    }
    // False when there is none of that name any more.
    bool Pause(const std::string& id, bool isPaused) {
        std::shared_ptr<AnswerStream> stream;
        {
            const std::lock_guard hold(mutex_);
            const auto found = streams_.find(id);
            stream = found != streams_.end() ? found->second.lock() : nullptr;
        }
        if (stream)
            stream->Pause(isPaused);
        return stream != nullptr;
    }

private:
    std::mutex mutex_;
    std::map<std::string, std::weak_ptr<AnswerStream>> streams_;
};

}  // namespace zel
