#include "zelstore/diskmonitor/monitorsettings.h"

#include "common/hostservices.h"
#include "common/settingsvalue.h"

// Where the thresholds stand between two runs. Each is a number of its own under one key; what is
// missing or can't be read leaves its default in force, and the other one counts all the same. They
// are written only when they differ: a write goes to the host's disk, which this monitor is there
// to spare.

namespace ZEL {

namespace {

constexpr const wchar_t* keyPath = L"ZEL\\Settings\\DiskMonitor";
constexpr const wchar_t* stopName = L"StopThreshold";
constexpr const wchar_t* resumeName = L"ResumePercentage";

// A value that is not there is no failure.
TobResult Read(ISettingsKey& key, const wchar_t* name, std::uint32_t* value, bool* found) {
    std::uint32_t read = 0;
    const TobResult result = key.ReadNumber(name, &read);
    *found = Succeeded(result);
    if (*found)
        *value = read;
    return result == TOBERR_NOT_FOUND ? TOB_OK : result;
}

// Both values are tried, whatever becomes of the first one.
TobResult ReadBoth(ISettingsKey& key, MonitorThresholds* thresholds, bool* foundBoth) {
    bool foundStop = false, foundResume = false;
    const TobResult stop = Read(key, stopName, &thresholds->stopThreshold, &foundStop);
    const TobResult resume = Read(key, resumeName, &thresholds->resumePercentage, &foundResume);
    *foundBoth = foundStop && foundResume;
    return Failed(stop) ? stop : resume;
}

HRESULT Reported(TobResult result) {
    const HRESULT code = ToHResult(result, ResultTable::settings);
    if (Failed(code)) {
        wm::Trace(wm::message::monitorSettingsNotReached, code);
        wm::ReportError(code);
    }
    return code;
}

}  // namespace

std::uint32_t ResumeThreshold(const MonitorThresholds& thresholds) noexcept {
    const auto stop = static_cast<float>(thresholds.stopThreshold);
    const float part = static_cast<float>(thresholds.resumePercentage) / 100.0F;
    const float margin = part * stop;
    const float sum = margin + stop;
    return static_cast<std::uint32_t>(static_cast<std::int64_t>(sum));
}

MonitorThresholds ReadThresholds() {
    MonitorThresholds thresholds;
    wm::OpenSettingsKey open;
    TobResult result = open.Open(keyPath);
    bool foundBoth = false;
    if (Succeeded(result))
        result = ReadBoth(*open, &thresholds, &foundBoth);
    IgnoreResult(Reported(result), "the defaults stand");
    return thresholds;
}

HRESULT WriteThresholds(const MonitorThresholds& thresholds) {
    wm::OpenSettingsKey open;
    TobResult result = open.Open(keyPath);
    if (Failed(result))
        return Reported(result);
    MonitorThresholds present;
    bool foundBoth = false;
    IgnoreResult(ReadBoth(*open, &present, &foundBoth), "then they are written");
    if (foundBoth && present == thresholds)
        return hr::ok;
    result = open->WriteNumber(stopName, thresholds.stopThreshold);
    if (Succeeded(result))
        result = open->WriteNumber(resumeName, thresholds.resumePercentage);
    if (Succeeded(result))
        result = open.PutBack();
    return Reported(result);
}

}  // namespace ZEL
