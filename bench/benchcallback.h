#pragma once

#include <string>
#include <string_view>

#include "common/valuetext.h"
#include "zelstore/ieventstore.h"

namespace bench {

// Takes the results of one query; lives on the stack, so it counts no references.
class BenchCallback : public ZEL::IQueryCallback {
public:
    ZEL::TobResult QueryInterface(const ZEL::GUID&, void**) override {
        return ZEL::TOBERR_NO_INTERFACE;
    }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }
    ZEL::HRESULT OnQueryResults(ZEL::HRESULT, ZEL::IValueCollection* results, bool, bool,
                                ZEL::IStringValue*, std::int32_t) override {
        if (results != nullptr)
            Take(*results);
        return ZEL::hr::ok;
    }

protected:
    ~BenchCallback() = default;
    virtual void Take(ZEL::IValueCollection& results) = 0;
};

class CountingCallback final : public BenchCallback {
public:
    std::size_t rows = 0;

private:
    void Take(ZEL::IValueCollection& results) override { rows += results.Count(); }
};

// Hands the text of each result on: `test` gives how often it fits.
template <typename Test>
class TestingCallback final : public BenchCallback {
public:
    explicit TestingCallback(Test test) : test_(std::move(test)) {}
    std::size_t fitting = 0;

private:
    void Take(ZEL::IValueCollection& results) override {
        std::string converted;
        for (std::size_t i = 0; i < results.Count(); ++i)
            if (const auto text = wm::Utf8Of(*results.GetValue(i), converted))
                fitting += test_(*text);
    }

    Test test_;
};

}  // namespace bench
