#pragma once

#include <string>
#include <utility>
#include <vector>

#include "common/place.h"
#include "common/result.h"
#include "common/wmapi.h"

namespace wm {

class ErrorReport;

// Labels that a host may act on.
namespace reportLabel {
// A row was left out of a query's answer, since testing it threw. The text stays whatever becomes
// of the source: hosts compare it. A detail lostDetail::rows tells of how many, where it stands; of
// one else.
inline constexpr const char* lostRow = "zelstore/querysink";
// Rows are missing since their data can't be read: a walk ended early, a row was left out, or
// opening a database dropped what its log held.
inline constexpr const char* damagedData = "damaged data";
// Records that the store had accepted and that are gone, since they could not be written.
// The details tell how many, by the names of lostDetail.
inline constexpr const char* lostBatch = "lost batch";
}  // namespace reportLabel

// Numbers of a lostBatch or lostRow report, as decimal text.
namespace lostDetail {
inline constexpr const char* events = "events";  // and whatever is no receive-time row
inline constexpr const char* receipts = "receive-time rows";
inline constexpr const char* enrichments = "enrichments";
inline constexpr const char* rows = "rows";
}  // namespace lostDetail

// Where the host wants its error reports. Called on the thread that reports, possibly under locks
// of the component: it must not call back into the component.
//
// A report may come while a batch is written or a database is opened. A sink that sends it anywhere
// should copy it, put it in a queue of its own and return. What it throws is caught and traced.
class IErrorReportSink {
public:
    virtual ~IErrorReportSink() = default;
    // `report` is valid during the call. Several threads may report at once.
    virtual void OnReport(const ErrorReport& report) = 0;
};

// Something that went wrong and that the host should hear of. Made, filled and submitted in one go;
// a report never changes a routine's result. Texts are UTF-8.
//
// Traces and reports serve different readers. A trace follows the program's steps and is mostly
// off; a report tells the host of a fault that somebody has to look after, and is made once for
// each fault, by the routine that knows most of it, not again by each one that passes the failure
// on.
//
// For one thread.
class WMLIB_API ErrorReport {
public:
    // `label` tells the area of the fault and is copied. A host that acts on reports goes by it and
    // by the code, never by the details. Default arguments make the place that of the caller.
    ErrorReport& SetError(ZEL::HRESULT code, const char* label = "",
                          Place place = Place::Current());
    // Details keep their order; equal names may come again. May throw when memory runs out, as
    // SetError may: such a report is then never submitted.
    ErrorReport& AddDetail(std::string name, std::string value);
    // Hands the report to the host's sink; without one it goes nowhere. Throws nothing.
    void Submit() const noexcept;

    ZEL::HRESULT Code() const noexcept { return code_; }
    const std::string& Label() const noexcept { return label_; }
    const wm::Place& Where() const noexcept { return place_; }
    const std::vector<std::pair<std::string, std::string>>& Details() const noexcept {
        return details_;
    }

private:
    ZEL::HRESULT code_ = ZEL::hr::ok;
    std::string label_;
    Place place_;
    std::vector<std::pair<std::string, std::string>> details_;
};

// Reports a bare code and its place, or with one detail. Where memory has run out there is no
// report.
WMLIB_API void ReportError(ZEL::HRESULT code, const char* label = "",
                           Place place = Place::Current()) noexcept;
WMLIB_API void ReportError(ZEL::HRESULT code, const char* label, const char* detailName,
                           const char* detail, Place place = Place::Current()) noexcept;

}  // namespace wm
