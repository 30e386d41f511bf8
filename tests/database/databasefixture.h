#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/recordingsink.h"
#include "support/storefixture.h"
#include "zelstore/database/leveldbinstance.h"
#include "zelstore/database/leveldbinstanceproxy.h"
#include "zelstore/database/masterdatabase.h"

namespace ZEL::test {

inline std::string Key(const std::string& date, int i) {
    return "p<begin_time>" + date + "T00:00:00.000Z<sequence>" + std::to_string(1000000000 + i);
}

inline RecordBatch Rows(int count, const std::string& date = "2026-11-12") {
    RecordBatch batch;
    for (int i = 0; i < count; ++i)
        batch[Key(date, i)] = "{}";
    return batch;
}

// A master database of its own on an empty directory, on 2026-11-12.
class DatabaseTest : public testing::Test {
protected:
    // As after a start of the process: the catalog is read anew.
    void Restart() {
        db.reset();
        db = std::make_unique<ZelMasterDatabase>();
        ASSERT_EQ(db->LoadExistingDatabases(), hr::ok);
    }
    void SetUp() override { Restart(); }

    void Put(const std::string& folder, const RecordBatch& rows) {
        LevelDbInstanceProxy writer(store.Folder(folder));
        ASSERT_EQ(writer.Write(rows), hr::ok);
    }
    HRESULT Write(int count = 1) {
        RecordBatch batch = Rows(count);
        return db->WriteRecords(batch);
    }
    DatabaseErrorTable Errors() {
        DatabaseErrorTable table;
        EXPECT_EQ(db->GetDatabaseErrors(&table), hr::ok);
        return table;
    }
    DatabaseErrorEntry ErrorOf(const std::string& folder, DatabaseErrorKind kind) {
        return Errors()[store.Folder(folder)].entries[static_cast<int>(kind)];
    }
    std::uint32_t Enforce(std::uint32_t megabytes) {
        std::uint32_t status = 0;
        EXPECT_EQ(db->EnforceSizeLimit(megabytes, &status), hr::ok);
        return status;
    }
    // Whether somebody has the folder's database open in this process.
    bool IsOpen(const std::string& folder) {
        LevelDbInstanceProxy probe(store.Folder(folder));
        return probe.Hold(IfMissing::fail) == hr::deviceError;
    }
    std::vector<std::string> ScanAll() {
        RecordingSink sink;
        EXPECT_EQ(db->Scan("p", &sink, stop.Handle(), nullptr), hr::ok);
        return sink.keys;
    }

    TempStore store;
    FakeClock clock;
    wm::EventObject stop;
    std::unique_ptr<ZelMasterDatabase> db;

public:
    DatabaseTest() { EXPECT_TRUE(stop.Create(wm::EventReset::manual)); }
};

}  // namespace ZEL::test
