#include "agent/spool.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

#include "support/storefixture.h"

namespace zel {

namespace {

Delivery DeliveryOf(int first, int count, const std::string& idPrefix = "") {
    Delivery delivery;
    for (int i = first; i < first + count; ++i) {
        const std::string number = std::to_string(i);
        delivery.items.push_back(
            {idPrefix.empty() ? "" : idPrefix + number, "key" + number, "record" + number});
    }
    return delivery;
}

class SpoolTest : public testing::Test {
protected:
    void Open(Spool& spool, std::string* problem) {
        ASSERT_TRUE(spool.Open(Folder(), {1000, 3600}, problem)) << *problem;
    }
    void Open(Spool& spool) {
        std::string problem;
        Open(spool, &problem);
        EXPECT_EQ(problem, "");
    }
    static void Append(Spool& spool, Delivery& delivery) {
        std::string problem;
        Delivery* const all[] = {&delivery};
        ASSERT_TRUE(spool.Append(
            all, [] { return "r"; }, &problem))
            << problem;
    }
    static void CheckEquation(const Spool& spool) {
        const Ledger ledger = spool.Account();
        EXPECT_EQ(ledger.accepted, ledger.stored + ledger.waiting + ledger.lost + ledger.purged);
    }
    std::string Folder() const { return directory_.Path() / "spool"; }

private:
    ZEL::test::TempStore directory_;
};

}  // namespace

TEST_F(SpoolTest, KeepsOrderIdsAndLedgerOverARestart) {
    std::string problem;
    {
        Spool spool;
        Open(spool);
        Delivery first = DeliveryOf(1, 3, "id"), again = DeliveryOf(2, 3, "id"),
                 plain = DeliveryOf(9, 2);
        first.marks = {{"file a", "3"}, {"file b", "1"}, {"other", "1"}};
        again.marks = {{"file a", "7"}, {"file b", ""}};
        Append(spool, first);
        Append(spool, again);
        plain.enrichments.push_back({"keyOfEvent", "{}"});
        Append(spool, plain);
        EXPECT_TRUE(again.items[0].isDuplicate && again.items[1].isDuplicate);
        EXPECT_FALSE(again.items[2].isDuplicate);
        EXPECT_EQ(spool.Account().accepted, 6U);
        ASSERT_TRUE(spool.Drop({1, "20261112", 1, ""}, &problem)) << problem;
        CheckEquation(spool);
    }
    Spool spool;
    Open(spool);
    CheckEquation(spool);
    EXPECT_EQ(spool.Account().waiting, 3U);
    EXPECT_EQ(spool.Account().lost, 1U);
    const auto marks = spool.Marks("file ");
    ASSERT_EQ(marks.size(), 1U) << "one was forgotten";
    EXPECT_EQ(marks[0].name + "=" + marks[0].value, "file a=7");
    std::string keys;
    std::int64_t at = 0;
    while (const auto row = spool.Next(at, &problem)) {
        at = row->number;
        for (const SpooledRow::Record& record : row->records)
            keys.append(record.key).append(record.receiveKey).append(record.record).append(" ");
    }
    EXPECT_EQ(keys, "key4rrecord4 key9rrecord9 key10rrecord10 ");
    const auto enrichments = spool.Next(0, &problem, SpoolKind::enrichments);
    ASSERT_TRUE(enrichments && enrichments->records.size() == 1);
    EXPECT_EQ(enrichments->records[0].key, "keyOfEvent");
    ASSERT_TRUE(spool.DropOthers(SpoolKind::enrichments, enrichments->number, &problem)) << problem;
    EXPECT_EQ(spool.Account().waitingEnrichments, 0U);
    Delivery again = DeliveryOf(1, 1, "id");
    Append(spool, again);
    EXPECT_TRUE(again.items[0].isDuplicate) << "also of a row that was dropped";
    const std::string gone[] = {"20261112"};
    ASSERT_TRUE(spool.Purged(gone, &problem)) << problem;
    EXPECT_EQ(spool.Account().purged, 2U);
    CheckEquation(spool);
    ASSERT_TRUE(spool.Drop({at, "20261113", 0, ""}, &problem)) << problem;
    EXPECT_EQ(spool.Account().waiting + spool.Account().waitingBytes, 0U);
    Delivery more = DeliveryOf(20, 1);
    Append(spool, more);
    EXPECT_GT(spool.LastRow(), at) << "numbers are not given twice";
}

TEST_F(SpoolTest, KeepsWhatOthersHaveNotSeenAndCountsWhatHasNoRoom) {
    std::string problem;
    {
        Spool spool;
        Open(spool);
        for (int i = 1; i <= 4; ++i) {
            Delivery one = DeliveryOf(i, 1);
            Append(spool, one);
        }
        const std::uint64_t each = spool.Account().waitingBytes / 4;
        spool.KeepBehind(1, 2 * each);
        SettledPart part;
        part.through = 4;
        part.folder = "20261112";
        ASSERT_TRUE(spool.Drop(part, &problem)) << problem;
        EXPECT_EQ(spool.Account().waiting + spool.Account().waitingBytes, 0U);
        EXPECT_EQ(spool.DroppedUnseen(), 1U);
        EXPECT_EQ(spool.Next(1, &problem)->number, 3);
    }
    Spool spool;
    Open(spool);
    CheckEquation(spool);
    EXPECT_EQ(spool.SettledRow(), 4) << "what stays is in the store";
    EXPECT_EQ(spool.Account().waiting, 0U);
    EXPECT_EQ(spool.Next(3, &problem)->number, 4);
}

TEST_F(SpoolTest, DamageIsToldAndNothingElseIsLost) {
    std::string problem;
    {
        Spool spool;
        Open(spool);
        Delivery first = DeliveryOf(1, 2), second = DeliveryOf(3, 1);
        Append(spool, first);
        Append(spool, second);
    }
    sqlite3* raw = nullptr;
    ASSERT_EQ(::sqlite3_open((Folder() + "/spool.db").c_str(), &raw), SQLITE_OK);
    EXPECT_EQ(::sqlite3_exec(raw, "UPDATE spool SET body = x'00' WHERE number = 1", nullptr,
                             nullptr, nullptr),
              SQLITE_OK);
    ::sqlite3_close(raw);
    {
        Spool spool;
        Open(spool);
        const auto damaged = spool.Next(0, &problem);
        ASSERT_TRUE(damaged && damaged->isDamaged);
        EXPECT_EQ(damaged->events, 2U);
        const auto good = spool.Next(1, &problem);
        ASSERT_TRUE(good && !good->isDamaged);
        EXPECT_EQ(good->records.size(), 1U);
    }
    std::ofstream(Folder() + "/spool.db", std::ios::binary) << std::string(8192, 'x');
    Spool spool;
    Open(spool, &problem);
    EXPECT_NE(problem.find("is kept as"), std::string::npos) << problem;
    Delivery one = DeliveryOf(1, 1);
    Append(spool, one);
    EXPECT_EQ(spool.Account().waiting, 1U);
}

// A child appends and tells each number once it is accepted; it is killed wherever it is.
TEST_F(SpoolTest, KeepsAllThatWasAcceptedWhenItIsKilled) {
    int told = 0;
    for (int round = 0; round < 5; ++round) {
        int ends[2];
        ASSERT_EQ(::pipe(ends), 0);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            Spool spool;
            std::string problem;
            if (!spool.Open(Folder(), {1000, 3600}, &problem))
                ::_exit(1);
            for (int i = told;; ++i) {
                Delivery delivery = DeliveryOf(i, 1, "id");
                Delivery* const all[] = {&delivery};
                if (!spool.Append(
                        all, [] { return "r"; }, &problem) ||
                    ::write(ends[1], "x", 1) != 1)
                    ::_exit(1);
            }
        }
        ::close(ends[1]);
        char byte = 0;
        for (int i = 0; i < 3 + round * 4; ++i, ++told)
            ASSERT_EQ(::read(ends[0], &byte, 1), 1);
        ::kill(child, SIGKILL);
        while (::read(ends[0], &byte, 1) == 1)
            ++told;
        ::close(ends[0]);
        ::waitpid(child, nullptr, 0);
    }
    Spool spool;
    Open(spool);
    CheckEquation(spool);
    int kept = 0;
    std::string problem;
    std::int64_t at = 0;
    while (const auto row = spool.Next(at, &problem)) {
        EXPECT_EQ(row->records[0].key, "key" + std::to_string(kept++));
        at = row->number;
    }
    EXPECT_GE(kept, told);
    EXPECT_LE(kept, told + 5) << "at most the one in hand of each process";
}

}  // namespace zel
