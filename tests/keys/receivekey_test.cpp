#include "zelstore/keys/receivekey.h"

#include <gtest/gtest.h>

#include "support/storefixture.h"
#include "zelstore/keys/keycounter.h"

namespace ZEL {
namespace {

TEST(ReceiveKey, IsReadStrictlyByItsOwnersAndMildlyElsewhere) {
    const std::string time = "2026-11-12T10:00:00.000Z";
    const std::string whole = MakeReceiveKey(time, 4294967295U);
    EXPECT_EQ(whole, "r<receive_time>" + time + "<sequence>4294967295");
    const struct {
        std::string key;
        bool isParsed;
        std::optional<std::pair<std::string, std::uint32_t>> place;
    } rows[] = {
        {MakeReceiveKey(time, 7), true, {{time, 7}}},
        {"r<receive_time>" + time + "<sequence>7", false, {{time, 7}}},
        {whole + "x", false, {{time, 4294967295U}}},
        {"r<receive_time>T<sequence>12<x>3", false, {{"T", 12}}},
        {"x<receive_time><sequence>-1", false, {{"", 4294967295U}}},
        {"r<receive_time>" + time + "<sequence>000000000x", false, {{time, 0}}},
        {"r<receive_time>" + time + "<sequence>", false, {{time, 0}}},
        {"r<sequence>1<receive_time>T", false, std::nullopt},
        {"r<receive_time>" + time, false, std::nullopt},
        {"", false, std::nullopt},
    };
    for (const auto& row : rows) {
        const auto parsed = ParseReceiveKey(row.key);
        EXPECT_EQ(parsed.has_value(), row.isParsed) << row.key;
        const auto found = FindReceivePlace(row.key);
        ASSERT_EQ(found.has_value(), row.place.has_value()) << row.key;
        if (found) {
            EXPECT_EQ(found->time, row.place->first) << row.key;
            EXPECT_EQ(found->sequence, row.place->second) << row.key;
        }
        if (parsed) {
            EXPECT_EQ(MakeReceiveKey(parsed->time, parsed->sequence), row.key);
        }
    }
}

TEST(KeyCounter, CountsWithinAMillisecondAndAlongAProcess) {
    test::FakeClock clock;
    KeyCounter counter;
    EXPECT_EQ(counter.MakeReceiveKey(),
              "r<receive_time>2026-11-12T10:00:00.000Z<sequence>0000000001");
    EXPECT_EQ(counter.MakeReceiveKey(),
              "r<receive_time>2026-11-12T10:00:00.000Z<sequence>0000000002");
    EXPECT_EQ(counter.MakeEnrichmentKey(L"k"), L"k<silent_sequence>0000000001");
    clock.SetTime({2026, 11, 0, 12, 10, 0, 0, 1});
    EXPECT_EQ(counter.MakeReceiveKey(),
              "r<receive_time>2026-11-12T10:00:00.001Z<sequence>0000000001");
    EXPECT_EQ(counter.MakeFlaggedEnrichmentKey(L"k", true),
              L"k<silent_sequence>0000000002<silent_enrichment>1");
}

}  // namespace
}  // namespace ZEL
