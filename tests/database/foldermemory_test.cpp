#include <sys/resource.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "databasefixture.h"
#include "zelstore/database/folderfacts.h"

namespace ZEL {
namespace {

using test::Key;
using Keys = std::vector<std::string>;

// Wants the rows from a time on that hold a hash.
class AskingSink final : public test::RecordingSink {
public:
    bool MayMatch(const std::string& startKey, const FolderFacts& facts) override {
        return facts.MayHoldRows(startKey, end) &&
               (hash.empty() || facts.MayHold(KeyField::actorHash, hash));
    }
    std::string end, hash;
};

std::string Hashed(const std::string& date, int i, const std::string& hash) {
    return Key(date, i) + "<object_type>file<action>create<actor_hash>" + hash + "<actor_uid>" +
           std::to_string(i);
}

TEST(FolderFacts, TellWhatCanNotBeThere) {
    FactsCollector collector;
    const std::string first = Hashed("2026-11-11", 1, "ABc"), last = Hashed("2026-11-12", 7, "d");
    for (int i = 1; i < 20; ++i)
        collector.Add(Hashed("2026-11-11", i, "ABc"));
    collector.Add(last + "<correlation_uid><target_hash>" + std::string(300, 'x'));
    const auto facts = collector.Finish();
    ASSERT_TRUE(facts);
    const struct {
        std::string start, end;
        bool mayHold;
    } ranges[] = {
        {"p<begin_time>1601", "", true},
        {"p<begin_time>1601", "2026-11-10T23:59:59.999Z", false},
        {"p<begin_time>1601", "2026-11-11T00:00:00.000Z", true},
        {first, "2026-11-10T23:59:59.999Z", true},  // its first row is not the walk's
        {last, "", true},
        {last + "<target_hash>z", "", true},  // what stands so far behind is not known
        {"p<begin_time>2026-11-12T00:00:00.001Z", "", false},
    };
    for (const auto& [start, end, mayHold] : ranges)
        EXPECT_EQ(facts->MayHoldRows(start, end), mayHold) << start << " to " << end;
    EXPECT_TRUE(facts->MayHold(KeyField::actorHash, "aBC"));
    EXPECT_TRUE(facts->MayHold(KeyField::targetHash, std::string(300, 'X')));
    EXPECT_FALSE(facts->MayHold(KeyField::targetHash, "abc")) << "of another field";
    EXPECT_FALSE(facts->MayHold(KeyField::correlationUid, "7"));
    EXPECT_TRUE(facts->MayHold(KeyField::correlationUid, ""));
    EXPECT_FALSE(FactsCollector().Finish()->MayHoldRows("p", ""));
}

TEST(FolderFacts, AreBounded) {
    FactsCollector crowded;  // eight values a row, at a byte a row
    for (int i = 0; i < 1000; ++i) {
        std::string key = Key("2026-11-11", i);
        for (int j = 0; j < 8; ++j)
            key += "<actor_hash>" + std::to_string(i * 8 + j);
        crowded.Add(key);
    }
    EXPECT_TRUE(crowded.Finish()->MayHold(KeyField::actorHash, "none")) << "no filter is kept";
    std::vector<std::shared_ptr<const FolderFacts>> kept;
    const auto keepOne = [&] {
        FactsCollector large;
        large.Add("p<begin_time>" + std::string(1 << 20, '9'));
        kept.push_back(large.Finish());
        return kept.back() != nullptr;
    };
    while (keepOne()) {
    }
    EXPECT_EQ(kept.size(), FolderFacts::mostBytesOfAll >> 20);
    kept.clear();
    EXPECT_TRUE(keepOne()) << "what has gone is given back";
}

class FolderMemoryTest : public test::DatabaseTest {
protected:
    static constexpr int folders = 12;

    static std::string Date(int day) { return "2026-10-" + std::to_string(10 + day); }
    static std::string Folder(int day) { return "202610" + std::to_string(10 + day); }
    void SetUp() override {
        for (int day = 0; day < folders; ++day)
            Put(Folder(day), {{Hashed(Date(day), 1, "common"), ""},
                              {Hashed(Date(day), 2, "rare" + std::to_string(day)), ""},
                              {"r<receive_time>2026", ""}});
        Restart();
    }
    int Walk(AskingSink& sink, const std::string& startKey = "p") {
        sink.keys.clear();
        sink.attached = 0;
        EXPECT_EQ(db->Scan(startKey, &sink, stop.Handle(), nullptr), hr::ok);
        return sink.attached;
    }
    int WalkFor(const std::string& hash) {
        AskingSink sink;
        sink.hash = hash;
        sink.onRow = EndsAtOtherRows(sink);
        return Walk(sink);
    }
    bool ListsDatabases() {
        std::wstring oldest;
        std::uint64_t bytes = 0;
        EXPECT_EQ(db->GetOldestDate(&oldest, &bytes), hr::ok);
        return !oldest.empty();
    }
    int WalkAll() { return WalkFor(""); }

    // What a real sink answers where the family ends.
    static std::function<RowResult(bool*)> EndsAtOtherRows(AskingSink& sink) {
        return [&sink](bool*) {
            return sink.keys.back()[0] == 'p' ? RowResult::goOn : RowResult::endDatabase;
        };
    }
};

TEST_F(FolderMemoryTest, WhatAWholeWalkHasLearntKeepsFoldersClosed) {
    EXPECT_EQ(WalkFor("RARE3"), folders) << "nothing is known yet";
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(WalkFor("RARE3"), 1) << "also when it was opened and closed meanwhile";
        EXPECT_EQ(WalkFor("nowhere"), 0);
        EXPECT_EQ(WalkFor("common"), folders);
    }
    AskingSink sink;
    sink.end = Date(5) + "T12:00:00.000Z";
    EXPECT_EQ(Walk(sink, "p<begin_time>" + Date(4)), 2) << "by its first and last time";
    std::string value;
    EXPECT_EQ(db->GetRecord(Hashed(Date(6), 2, "rare6"), &value), hr::ok) << "not by lookups";
}

TEST_F(FolderMemoryTest, PartsOfWalksTeachNothing) {
    AskingSink sink;
    sink.onRow = EndsAtOtherRows(sink);
    Walk(sink, "p<begin_time>" + Date(0) + "T00:00:00.000Z<sequence>1000000002");
    EXPECT_EQ(WalkFor("nowhere"), 1) << "of the first folder it was not the first row";
    Restart();
    sink.onRow = [](bool*) { return RowResult::endDatabase; };
    Walk(sink);
    EXPECT_EQ(WalkFor("nowhere"), folders) << "it ended ahead of the last row";
    Restart();
    Put(Folder(0), test::Rows(1000, Date(0)));
    stop.Set();
    EXPECT_EQ(WalkAll(), folders);
    stop.Reset();
    EXPECT_EQ(WalkFor("nowhere"), 1) << "the first walk was stopped";
    EXPECT_EQ(ErrorOf(Folder(0), DatabaseErrorKind::read).lastResult, hr::aborted);
}

TEST_F(FolderMemoryTest, AFolderThatHasChangedIsOpened) {
    const std::filesystem::path folder = store.Path() / Folder(0);
    const struct {
        const char* what;
        std::function<void()> change;
        HRESULT failure;
        std::size_t rows;
    } changes[] = {
        {"a log with rows",
         [&] {
             Put(Folder(0), {{Hashed(Date(0), 3, "new"), ""}});
         },
         hr::ok, 1},
        {"opened and closed", [&] { EXPECT_FALSE(IsOpen(Folder(0))); }, hr::ok, 0},
        {"a longer file", [&] { std::ofstream(folder / "LOG", std::ios::app) << "x"; }, hr::ok, 0},
        {"damaged", [&] { store.WriteFile(Folder(0) + "/CURRENT", "rubbish"); }, hr::corrupt, 0},
        {"removed", [&] { std::filesystem::remove_all(folder); }, hr::fail, 0},
    };
    for (const auto& [what, change, failure, rows] : changes) {
        WalkAll();
        EXPECT_EQ(WalkFor("new"), 0) << what;
        change();
        db->ClearDatabaseErrors();
        AskingSink sink;
        sink.hash = "new";
        std::size_t found = 0;
        sink.onRow = [&](bool*) {
            found += sink.keys.back().find("<actor_hash>new") != std::string::npos ? 1 : 0;
            return sink.keys.back()[0] == 'p' ? RowResult::goOn : RowResult::endDatabase;
        };
        EXPECT_EQ(Walk(sink), Failed(failure) ? 0 : 1) << what;
        EXPECT_EQ(ErrorOf(Folder(0), DatabaseErrorKind::read).lastResult, failure) << what;
        EXPECT_EQ(found, rows) << what;
        if (rows != 0) {  // the row goes, so that the next case begins as this one
            std::filesystem::remove_all(folder);
            Put(Folder(0), {{Hashed(Date(0), 1, "common"), ""}});
        }
    }
}

TEST_F(FolderMemoryTest, WhatThisProcessWritesIsFound) {
    const std::string today = "20261112";
    EXPECT_EQ(Write(), hr::ok);
    EXPECT_EQ(WalkAll(), folders + 1);
    RecordBatch batch{{Hashed("2026-11-12", 5, "late"), ""}};
    EXPECT_EQ(db->WriteRecords(batch), hr::ok);
    EXPECT_EQ(WalkFor("late"), 1);
    db->CloseAll();
    EXPECT_FALSE(IsOpen(today));
}

// Opening ahead.

TEST_F(FolderMemoryTest, RowsComeInOrderAndAllIsClosedBehindTheScan) {
    store.WriteFile(Folder(7) + "/CURRENT", "rubbish");
    Keys expected;
    for (int day = 0; day < folders; ++day)
        if (day != 7)
            for (const std::string& key : {Hashed(Date(day), 1, "common"),
                                           Hashed(Date(day), 2, "rare" + std::to_string(day)),
                                           std::string("r<receive_time>2026")})
                expected.push_back(key);
    EXPECT_EQ(ScanAll(), expected);
    EXPECT_EQ(ErrorOf(Folder(7), DatabaseErrorKind::read).count, 1u);
    for (int day = 0; day < folders; ++day)
        EXPECT_FALSE(IsOpen(Folder(day))) << day;
}

TEST_F(FolderMemoryTest, FewDescriptorsLeaveNoneToOpenAhead) {
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = 48;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(ScanAll().size(), 3U * folders);
    EXPECT_TRUE(Errors().empty());
}

// A walk that ends, by its sink or by an abort, with folders open ahead.
TEST_F(FolderMemoryTest, AnEndInTheMidstLetsAllGo) {
    for (const int rows : {1, 4, 10, 20}) {
        AskingSink sink;
        sink.onRow = [&](bool* keepGoing) {
            *keepGoing = sink.keys.size() < static_cast<std::size_t>(rows);
            return *keepGoing ? RowResult::goOn : RowResult::endDatabase;
        };
        Walk(sink);
        EXPECT_EQ(sink.keys.size(), static_cast<std::size_t>(rows));
        for (int day = 0; day < folders; ++day)
            EXPECT_FALSE(IsOpen(Folder(day))) << rows << " rows, " << day;
    }
}

TEST_F(FolderMemoryTest, APurgeTakesFoldersThatAreOpenAhead) {
    AskingSink sink;
    sink.onRow = [&](bool*) {
        if (sink.keys.size() == 7)  // in the third, when others are open
            while (ListsDatabases())
                Enforce(0);  // a size that grows while a folder is opened may save another for once
        return RowResult::goOn;
    };
    Walk(sink);
    EXPECT_EQ(sink.keys.size(), 9u) << "the walk in hand goes on, the others are passed over";
    EXPECT_TRUE(Errors().empty()) << "a purge is no failure";
    EXPECT_TRUE(store.List().empty());
}

TEST_F(FolderMemoryTest, ManyScansAtOnceGetTheirRows) {
    std::vector<std::thread> scans;
    for (int i = 0; i < 4; ++i)
        scans.emplace_back([this] {
            for (int round = 0; round < 5; ++round)
                EXPECT_EQ(ScanAll().size(), 3U * folders);
        });
    for (std::thread& scan : scans)
        scan.join();
    EXPECT_TRUE(Errors().empty());
}

}  // namespace
}  // namespace ZEL
