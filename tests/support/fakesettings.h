#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "common/hostservices.h"
#include "common/lock.h"

namespace ZEL::test {

// The settings service of a host, in memory, which keeps what was written in order. Stands in while
// it lives.
class FakeSettings final : public ISettingsManager, public ISettingsKey {
public:
    using Write = std::pair<std::wstring, std::uint32_t>;

    FakeSettings() { wm::SetSettings(this); }
    ~FakeSettings() { wm::SetSettings(nullptr); }

    TobResult QueryInterface(const GUID&, void**) override { return TOBERR_NO_INTERFACE; }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }
    TobResult OpenKey(const wchar_t* path, ISettingsKey** key) override {
        if (onOpen)
            onOpen(path);
        const wm::Hold hold(lock_);
        openPath_ = path;
        *key = this;
        return openAnswer;
    }
    TobResult PutBack(ISettingsKey*) override {
        ++putBacks;
        return TOB_OK;
    }
    TobResult ReadNumber(const wchar_t* name, std::uint32_t* value) override {
        const wm::Hold hold(lock_);
        const auto found = values_.find(openPath_ + L'\\' + name);
        if (found == values_.end())
            return TOBERR_NOT_FOUND;
        *value = found->second;
        return TOB_OK;
    }
    TobResult WriteNumber(const wchar_t* name, std::uint32_t value) override {
        const wm::Hold hold(lock_);
        writes_.emplace_back(openPath_ + L'\\' + name, value);
        values_[openPath_ + L'\\' + name] = value;
        return writeAnswer;
    }

    void Set(const std::wstring& name, std::uint32_t value) {
        const wm::Hold hold(lock_);
        values_[name] = value;
    }
    // Full names and values, as they were written.
    std::vector<Write> Writes() const {
        const wm::Hold hold(lock_);
        return writes_;
    }

    std::function<void(const std::wstring&)> onOpen;
    TobResult openAnswer = TOB_OK, writeAnswer = TOB_OK;
    int putBacks = 0;

private:
    mutable wm::Lock lock_;
    std::wstring openPath_ GUARDED_BY(lock_);
    std::map<std::wstring, std::uint32_t> values_ GUARDED_BY(lock_);
    std::vector<Write> writes_ GUARDED_BY(lock_);
};

}  // namespace ZEL::test
