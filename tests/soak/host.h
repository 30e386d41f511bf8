#pragma once

#include <atomic>

#include "common/errorreport.h"
#include "rows.h"
#include "zelstore/diskmonitor/idiskspacemonitor.h"

// What a host brings along.
namespace ZEL::soak {

class Reports final : public wm::IErrorReportSink {
public:
    void OnReport(const wm::ErrorReport& report) override {
        if (report.Label() == wm::reportLabel::lostRow ||
            report.Label() == wm::reportLabel::damagedData)
            Broken("reported: " + report.Label());
    }
};

// Lives on the stack of its thread: its count is not looked at.
class Subscriber final : public IMonitorSubscriber {
public:
    TobResult QueryInterface(const GUID&, void** out) override {
        *out = this;
        return TOB_OK;
    }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }
    HRESULT OnMonitorEvent(IMonitorEvent*) override {
        ++heard;
        return hr::ok;
    }
    std::atomic<unsigned> heard{0};
};

}  // namespace ZEL::soak
