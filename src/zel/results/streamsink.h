#pragma once

#include "zel/results/eventsink.h"
#include "zel/results/resultform.h"
#include "zel/terminal/output.h"

namespace zel {

// Prints each event as it comes and keeps none. Both must outlive it.
class StreamSink final : public EventSink {
public:
    StreamSink(Output& output, ResultForm& form) : output_(output), form_(form) {}

    bool Take(const FoundEvent& event) override {
        const bool isFirst = isEmpty_;
        isEmpty_ = false;
        return output_.Write(form_.Row(event, isFirst));
    }
    bool Flush() override { return output_.Flush(); }
    bool Finish() override { return output_.Write(form_.End(isEmpty_)); }

private:
    Output& output_;
    ResultForm& form_;
    bool isEmpty_ = true;
};

}  // namespace zel
