#include <atomic>

#include "common/errorreport.h"
#include "common/hostservices.h"
#include "common/trace.h"

// The way of reports and traces to the host's sinks. Each sink is one pointer, read without a lock:
// reports come from under locks of any rank, and a trace that nobody takes must cost next to
// nothing. What goes wrong while a report is made is traced and otherwise dropped, since the
// routine that reports has a fault of its own to deal with.

namespace wm {

namespace {

std::atomic<IErrorReportSink*> reportSink{nullptr};
std::atomic<ITraceSink*> traceSink{nullptr};

}  // namespace

void SetErrorReportSink(IErrorReportSink* sink) noexcept {
    reportSink.store(sink, std::memory_order_release);
}

void SetTraceSink(ITraceSink* sink) noexcept {
    traceSink.store(sink, std::memory_order_release);
}

ErrorReport& ErrorReport::SetError(ZEL::HRESULT code, const char* label, Place place) {
    code_ = code;
    label_ = label;
    place_ = place;
    return *this;
}

ErrorReport& ErrorReport::AddDetail(std::string name, std::string value) {
    details_.emplace_back(std::move(name), std::move(value));
    return *this;
}

void ErrorReport::Submit() const noexcept {
    IErrorReportSink* const sink = reportSink.load(std::memory_order_acquire);
    if (sink == nullptr)
        return;
    try {
        sink->OnReport(*this);
    } catch (...) {
        Trace(message::reportSinkThrew, code_);
    }
}

void ReportError(ZEL::HRESULT code, const char* label, Place place) noexcept {
    ReportError(code, label, nullptr, nullptr, place);
}

void ReportError(ZEL::HRESULT code, const char* label, const char* detailName, const char* detail,
                 Place place) noexcept {
    // Nothing is put together that nobody will hear.
    if (reportSink.load(std::memory_order_acquire) == nullptr)
        return;
    try {
        ErrorReport report;
        report.SetError(code, label, place);
        if (detailName != nullptr)
            report.AddDetail(detailName, detail);
        report.Submit();
    } catch (...) {
        Trace(message::reportNotMade, code);
    }
}

void Trace(const TraceId& id, ZEL::HRESULT code, std::string_view argument, Place place) noexcept {
    ITraceSink* const sink = traceSink.load(std::memory_order_acquire);
    if (sink != nullptr && sink->Enabled(id.level))
        sink->OnTrace({id, argument, code, place});
}

}  // namespace wm
