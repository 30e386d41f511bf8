#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "common/hostservices.h"
#include "common/lock.h"
#include "common/textbridge.h"
#include "support/system.h"

// A store of a test: a directory of its own, and the seams to the host. Each object stands in while
// it lives.
namespace ZEL::test {

// An empty data store directory, removed with all in it at the end.
class TempStore {
public:
    TempStore() { wm::SetPathToken(L"%ZELDataStore%", WidePath()); }
    ~TempStore() {
        wm::SetPathToken(L"%ZELDataStore%", L"");
        RemoveTempFolder(path_);
    }
    TempStore(const TempStore&) = delete;
    TempStore& operator=(const TempStore&) = delete;

    const std::filesystem::path& Path() const { return path_; }
    std::wstring WidePath() const { return Wide(Utf8(path_)); }
    std::wstring Folder(const std::string& name) const { return Wide(Utf8(path_ / name)); }

    void MakeFolder(const std::string& name) const {
        std::filesystem::create_directory(path_ / name);
    }
    // Table files as far as a count can tell. The library leaves such names alone.
    void AddTables(const std::string& folder, int count) const {
        MakeFolder(folder);
        for (int i = 0; i < count; ++i)
            std::ofstream(path_ / folder / ("filler" + std::to_string(i) + ".ldb"));
    }
    void WriteFile(const std::string& name, const std::string& text) const {
        std::ofstream(path_ / name, std::ios::binary) << text;
    }
    bool Exists(const std::string& name) const { return std::filesystem::exists(path_ / name); }
    std::set<std::string> List(const std::string& folder = "") const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path_ / folder))
            names.insert(Utf8(entry.path().filename()));
        return names;
    }

    static std::string Utf8(const std::filesystem::path& path) {
        const std::u8string text = path.u8string();
        return {text.begin(), text.end()};
    }

private:
    static std::wstring Wide(const std::string& utf8) {
        std::wstring wide;
        EXPECT_TRUE(wm::ToWide(utf8, wide)) << utf8;
        return wide;
    }

    std::filesystem::path path_ = MakeTempFolder();
};

// Stands still until it is set. Starts on 2026-11-12 at 10:00 UTC, with 0 ticks. What answers is
// never destroyed: a thread of the job manager may be asking it when a test ends.
class FakeClock final {
public:
    FakeClock() {
        SetTime({2026, 11, 4, 12, 10, 0, 0, 0});
        SetTick(0);
        wm::SetClock(&face_);
    }
    ~FakeClock() { wm::SetClock(nullptr); }

    void SetTime(const wm::SystemTime& now) {
        const wm::Hold hold(face_.lock);
        face_.now = now;
    }
    void SetDate(std::uint16_t year, std::uint16_t month, std::uint16_t day) {
        SetTime({year, month, 0, day, 10, 0, 0, 0});
    }
    void SetTick(std::uint64_t milliseconds) { face_.tick = milliseconds; }

private:
    struct Face final : wm::IClock {
        wm::SystemTime UtcNow() noexcept override {
            const wm::Hold hold(lock);
            return now;
        }
        std::uint64_t TickCount64() noexcept override { return tick; }

        wm::Lock lock;
        wm::SystemTime now GUARDED_BY(lock) = {};
        std::atomic<std::uint64_t> tick{0};
    };
    static Face& OneFace() {
        static Face& face = *new Face;
        return face;
    }

    Face& face_ = OneFace();
};

// A volume with as much room as it is told.
class FakeFreeSpace final : public wm::IFreeSpace {
public:
    explicit FakeFreeSpace(std::uint64_t bytes) : bytes_(bytes) { wm::SetFreeSpace(this); }
    ~FakeFreeSpace() { wm::SetFreeSpace(nullptr); }

    HRESULT AvailableBytes(const std::wstring&, std::uint64_t* bytes) noexcept override {
        *bytes = bytes_;
        return result_;
    }
    void SetBytes(std::uint64_t bytes) { bytes_ = bytes; }
    void SetResult(HRESULT result) { result_.store(result); }

private:
    std::atomic<std::uint64_t> bytes_;
    std::atomic<HRESULT> result_{hr::ok};
};

// Keeps the error reports.
class RecordingReports final : public wm::IErrorReportSink {
public:
    RecordingReports() { wm::SetErrorReportSink(this); }
    ~RecordingReports() { wm::SetErrorReportSink(nullptr); }

    void OnReport(const wm::ErrorReport& report) override {
        const wm::Hold hold(lock_);
        reports_.push_back(report);
    }
    std::size_t Count() const {
        const wm::Hold hold(lock_);
        return reports_.size();
    }
    wm::ErrorReport At(std::size_t index) const {
        const wm::Hold hold(lock_);
        return reports_.at(index);
    }

private:
    mutable wm::Lock lock_;
    std::vector<wm::ErrorReport> reports_ GUARDED_BY(lock_);
};

}  // namespace ZEL::test
