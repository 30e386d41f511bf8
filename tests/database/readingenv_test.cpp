#include "zelstore/database/readingenv.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <leveldb/db.h>
#include <leveldb/write_batch.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <atomic>
#include <thread>

#include "databasefixture.h"

namespace {
std::function<void()> beforeListing;
}  // namespace

// In place of the system's, for all that the program loads.
extern "C" [[gnu::visibility("default")]] DIR* fdopendir(int folder) {
    if (beforeListing)
        beforeListing();
    return reinterpret_cast<DIR* (*)(int)>(::dlsym(RTLD_NEXT, "fdopendir"))(folder);
}

namespace ZEL {
namespace {

using Values = std::vector<std::string>;

// All that the system tells of a folder's files and of the folder itself. Times of reading that it
// might renew are made old before.
Values Traces(const std::filesystem::path& folder) {
    Values traces;
    const auto add = [&](const std::filesystem::path& path) {
        struct stat info {};
        EXPECT_EQ(::lstat(path.c_str(), &info), 0);
        std::string trace = path.string();
        for (const auto number : {static_cast<long>(info.st_ino), static_cast<long>(info.st_size),
                                  info.st_atim.tv_nsec, info.st_mtim.tv_nsec, info.st_ctim.tv_nsec})
            trace += " " + std::to_string(number);
        traces.push_back(trace);
    };
    add(folder);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
        add(entry.path());
    std::sort(traces.begin(), traces.end());
    return traces;
}

void MakeTimesOld(const std::filesystem::path& folder) {
    const timespec times[] = {{1000000000, 1}, {1000000001, 2}};
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
        EXPECT_EQ(::utimensat(AT_FDCWD, entry.path().c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

// Row `i` under a key that is anywhere among the others, so that tables have to be merged.
std::string RowKey(std::uint32_t i) {
    char key[16];
    std::snprintf(key, sizeof key, "%08x", i * 2654435761U);
    return key;
}

// Opens or makes a database with small tables.
std::unique_ptr<leveldb::DB> OpenToWrite(const std::string& folder) {
    leveldb::DB* opened = nullptr;
    leveldb::Options options;
    options.create_if_missing = true;
    options.write_buffer_size = 256 << 10;  // a table every 1500 rows
    return std::unique_ptr<leveldb::DB>(leveldb::DB::Open(options, folder, &opened).ok() ? opened
                                                                                         : nullptr);
}

bool WriteTenRows(leveldb::DB& database, std::uint32_t first) {
    leveldb::WriteBatch batch;
    for (std::uint32_t i = first; i < first + 10; ++i)
        batch.Put(RowKey(i), std::to_string(i) + std::string(120, 'v'));
    return database.Write({}, &batch).ok();
}

// A process that writes rows 0, 1, 2 and so on into a folder, as many as it may.
class Writer {
public:
    explicit Writer(const std::string& folder) {
        void* const shared = ::mmap(nullptr, sizeof *rows_, PROT_READ | PROT_WRITE,
                                    MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        rows_ = new (shared) Rows;
        child_ = ::fork();
        if (child_ == 0)
            Run(folder);
    }
    ~Writer() {
        ::kill(child_, SIGKILL);
        ::waitpid(child_, nullptr, 0);
        ::munmap(rows_, sizeof *rows_);
    }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    std::uint32_t Written() const { return rows_->written; }
    void Allow(std::uint32_t more) { rows_->allowed += more; }

private:
    struct Rows {
        std::atomic<std::uint32_t> written{0}, allowed{0};
    };

    [[noreturn]] void Run(const std::string& folder) {
        const auto database = OpenToWrite(folder);
        for (std::uint32_t i = 0; database && WriteTenRows(*database, i);) {
            rows_->written = i += 10;
            while (i >= rows_->allowed)
                std::this_thread::yield();
        }
        ::_exit(1);
    }

    Rows* rows_ = nullptr;
    pid_t child_ = -1;
};

// Rows of a database that is opened through `env`: how many, and the highest number.
std::pair<std::uint32_t, std::uint32_t> CountRows(ReadingEnv& env, const std::string& folder) {
    leveldb::Options options;
    options.env = &env;
    leveldb::DB* opened = nullptr;
    const leveldb::Status status = leveldb::DB::Open(options, folder, &opened);
    EXPECT_TRUE(status.ok()) << status.ToString();
    const std::unique_ptr<leveldb::DB> database(opened);
    if (!database)
        return {};
    const std::unique_ptr<leveldb::Iterator> row(database->NewIterator({}));
    std::uint32_t count = 0, highest = 0;
    for (row->SeekToFirst(); row->Valid(); row->Next(), ++count)
        highest = std::max(highest, static_cast<std::uint32_t>(std::atoi(row->value().data())));
    EXPECT_TRUE(row->status().ok()) << row->status().ToString();
    env.Seal();
    EXPECT_FALSE(database->Put({}, "key", "value").ok());
    return {count, highest};
}

TEST(ReadingEnvTest, TakesAFolderAnewThatDidNotStandStill) {
    const test::TempStore store;
    const std::string folder = (store.Path() / "20261112").string();
    auto database = OpenToWrite(folder);
    std::uint32_t written = 0;
    int listings = 0;
    beforeListing = [&] {
        ++listings;
        for (const std::uint32_t end = written + 10000; listings < 4 && written < end;
             written += 10)
            ASSERT_TRUE(WriteTenRows(*database, written));
        if (listings == 4) {  // opened anew, with another manifest
            database.reset();
            database = OpenToWrite(folder);
        }
    };
    std::unique_ptr<ReadingEnv> env;
    ASSERT_EQ(ReadingEnv::Take(store.Folder("20261112"), &env), hr::ok);
    beforeListing = nullptr;
    EXPECT_EQ(listings, 5);
    EXPECT_EQ(CountRows(*env, folder).first, 30000u);
}

TEST(ReadingEnvTest, TakesWhatWasWrittenWhileAnotherProcessWrites) {
    const test::TempStore store;
    const std::string folder = (store.Path() / "20261112").string();
    Writer writer(folder);
    for (int opening = 0; opening < 60; ++opening) {
        writer.Allow(3000);
        const std::uint32_t before = opening * 3000;
        while (writer.Written() <= before)  // all of the former ones, and it is at work now
            std::this_thread::yield();
        std::unique_ptr<ReadingEnv> env;
        ASSERT_EQ(ReadingEnv::Take(store.Folder("20261112"), &env), hr::ok);
        const auto [count, highest] = CountRows(*env, folder);
        ASSERT_GE(count, before) << "opening " << opening;
        ASSERT_EQ(count, highest + 1) << "opening " << opening << ": rows in between are missing";
    }
}

class ReadingAlone : public test::DatabaseTest {
protected:
    RecordBatch silent_{{test::Key("2026-11-12", 1) + "<silent_sequence>0000000001", "s"}};
    QueryId query_{1, 0, 0, {}};
    Values Enrichments() {
        Values values;
        EXPECT_EQ(db->GetEnrichments(&query_, test::Key("2026-11-12", 1), &values), hr::ok);
        return values;
    }
};

TEST_F(ReadingAlone, AFullVolumeIsReadWithoutATrace) {
    ASSERT_EQ(Write(3000), hr::ok);
    ASSERT_EQ(db->WriteSilentRecords(silent_), hr::ok);
    Restart();
    MakeTimesOld(store.Path());
    const Values former = Traces(store.Path());
    test::FakeFreeSpace volume(0);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(ScanAll().size(), 3000u);
        EXPECT_EQ(Enrichments(), Values{"s"});
        std::string value;
        EXPECT_EQ(db->GetRecord(test::Key("2026-11-12", 7), &value), hr::ok);
    }
    db->ReleaseQueryCursor(&query_);
    EXPECT_EQ(Traces(store.Path()), former);
    EXPECT_EQ(Write(1), hr::diskFull);

    // Room comes back while a query runs: the writer has a database of its own, which later queries
    // share. What is being read can be deleted.
    EXPECT_EQ(Enrichments(), Values{"s"});
    test::RecordingSink sink;
    sink.onRow = [&](bool*) {
        if (sink.keys.size() == 1) {
            volume.SetBytes(1ULL << 40);
            RecordBatch late = test::Rows(5, "2026-11-13");
            EXPECT_EQ(db->WriteRecords(late), hr::ok);
            EXPECT_EQ(ScanAll().size(), 3005u);
            std::uint32_t status = 0;
            EXPECT_EQ(db->EnforceSizeLimit(0, &status), hr::ok);
            EXPECT_FALSE(store.Exists("20261112999"));
        }
        return RowResult::goOn;
    };
    EXPECT_EQ(db->Scan("p", &sink, stop.Handle(), nullptr), hr::ok);
    EXPECT_EQ(sink.keys.size(), 3000u) << "as the folder stood";
    EXPECT_EQ(Enrichments(), Values{"s"});
    db->ReleaseQueryCursor(&query_);
    EXPECT_THAT(Errors(), testing::SizeIs(1)) << "the refused write's alone";
}

TEST_F(ReadingAlone, ServesThoseWhoComeBeforeTheNextWriter) {
    Put("20261112", test::Rows(1));
    LevelDbInstanceProxy proxy(store.Folder("20261112"));
    test::FakeFreeSpace volume(0);
    std::shared_ptr<LevelDbInstance> first, second, later;
    ASSERT_EQ(proxy.GetInstance(&first, IfMissing::fail), hr::ok);
    ASSERT_EQ(proxy.GetInstance(&second, IfMissing::fail), hr::ok);
    EXPECT_EQ(first, second);
    EXPECT_EQ(first->Write(test::Rows(1)), hr::accessDenied);
    volume.SetBytes(1ULL << 40);
    ASSERT_EQ(proxy.Write(test::Rows(2)), hr::ok);
    volume.SetBytes(0);
    ASSERT_EQ(proxy.GetInstance(&later, IfMissing::fail), hr::ok);
    std::string value;
    EXPECT_EQ(first->Get(test::Key("2026-11-12", 1), &value), hr::notFound);
    EXPECT_EQ(later->Get(test::Key("2026-11-12", 1), &value), hr::ok);
}

TEST_F(ReadingAlone, AbortsReachIt) {
    ASSERT_EQ(Write(3000), hr::ok);
    Restart();
    const test::FakeFreeSpace volume(0);
    test::RecordingSink sink;
    sink.onRow = [&](bool*) {
        db->AbortScans();
        return RowResult::goOn;
    };
    EXPECT_EQ(db->Scan("p", &sink, stop.Handle(), nullptr), hr::ok);
    EXPECT_EQ(sink.keys.size(), 999u);
}

}  // namespace
}  // namespace ZEL
