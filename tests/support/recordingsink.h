#pragma once

#include <gtest/gtest.h>
#include <leveldb/slice.h>

#include <functional>
#include <string>
#include <vector>

#include "zelstore/database/iquerysink.h"

namespace ZEL::test {

// Keeps the keys it is given, and answers as it is told.
class RecordingSink : public IQuerySink {
public:
    HRESULT Begin(IZelDbImpl*) override {
        ++begins;
        return beginAnswer;
    }
    HRESULT End() override {
        ++ends;
        return hr::fail;  // only traced
    }
    HRESULT Attach(leveldb::DB* instance, const leveldb::ReadOptions&) override {
        EXPECT_NE(instance, nullptr);
        ++attached;
        return attachAnswer;
    }
    RowResult OnRecord(const leveldb::Slice& key, const leveldb::Slice&, bool* keepGoing) override {
        keys.push_back(key.ToString());
        return onRow ? onRow(keepGoing) : RowResult::goOn;
    }
    HRESULT SetEndValue(const std::string&) override { return hr::ok; }
    std::int32_t GetMatchCount() override { return 0; }

    HRESULT beginAnswer = hr::ok, attachAnswer = hr::ok;
    std::function<RowResult(bool*)> onRow;
    std::vector<std::string> keys;
    int begins = 0, ends = 0, attached = 0;
};

}  // namespace ZEL::test
