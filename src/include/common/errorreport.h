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
// A row was left out of a query's answer, since testing it threw.
inline constexpr const char* lostRow = "zelstore/querysink";
// Rows are missing since their data can't be read: a walk ended early, a row was left out, or
// opening a database dropped what its log held.
inline constexpr const char* damagedData = "damaged data";
// Records that the store had accepted and that are gone, since their batch could not be written.
// The details tell how many, by the names of lostDetail.
inline constexpr const char* lostBatch = "lost batch";
}  // namespace reportLabel

// Numbers of a lostBatch report, as decimal text.
namespace lostDetail {
inline constexpr const char* events = "events";  // and whatever is no receive-time row
inline constexpr const char* receipts = "receive-time rows";
inline constexpr const char* enrichments = "enrichments, at most";
}  // namespace lostDetail

// Where the host wants its error reports. Called on the thread that reports, possibly under locks
// of the component: it must not call back into the component.
class IErrorReportSink {
public:
    virtual ~IErrorReportSink() = default;
    virtual void OnReport(const ErrorReport& report) = 0;
};

// Something that went wrong and that the host should hear of. Made, filled and submitted in one go;
// a report never changes a routine's result. Texts are UTF-8.
class WMLIB_API ErrorReport {
public:
    ErrorReport& SetError(ZEL::HRESULT code, const char* label = "",
                          Place place = Place::Current());
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
