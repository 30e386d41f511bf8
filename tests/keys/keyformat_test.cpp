#include "zelstore/keys/keyformat.h"

#include <gtest/gtest.h>

namespace ZEL {
namespace {

TEST(KeyFormat, StartKeysAndDates) {
    std::string key;
    EXPECT_EQ(MakeScanStartKey(familyPrimary, "T", 7, &key), hr::ok);
    EXPECT_EQ(key, "p<begin_time>T<sequence>0000000007");
    EXPECT_EQ(MakeScanStartKey(familyReceive, "T", 4294967295U, &key), hr::ok);
    EXPECT_EQ(key, "r<receive_time>T<sequence>4294967295");

    const struct {
        const char* key;
        const char* date;  // null: refused
    } rows[] = {
        {"p<begin_time>2026-11-12T10:00:00.000Z<sequence>0000000001", "20261112"},
        {"p<begin_time>20261112xx", nullptr},
        {"p<begin_time>2026-11-1", nullptr},
        {"p<begin_time>abcd-ef-gh", "abcdefgh"},
        {"r<receive_time>2026-11-12T10:00:00.000Z", nullptr},
        {"", nullptr},
    };
    for (const auto& row : rows) {
        std::string date;
        const HRESULT result = ExtractKeyDate(row.key, &date);
        EXPECT_EQ(result, row.date != nullptr ? hr::ok : hr::fail) << row.key;
        if (row.date != nullptr) {
            EXPECT_EQ(date, row.date);
        }
    }
}

// The names of the disk, their order and tags, told apart from the table.
TEST(KeyFormat, HoldsTheFieldsInOrderUnderTheirNames) {
    std::string names, tags;
    std::wstring wideNames;
    for (const KeyFieldRow& row : keyFieldTable) {
        names.append(row.name).append(" ");
        wideNames.append(row.wideName).append(L" ");
        tags.push_back(row.tag);
        EXPECT_EQ(FindKeyField(row.name), row.field);
    }
    EXPECT_EQ(names,
              "begin_time receive_time sequence object_type action actor_hash actor_path_name "
              "actor_uid type_id target_hash target_path_name target_source_ip "
              "target_destination_ip target_type_id target_url_text silent_sequence "
              "correlation_uid silent_enrichment ");
    EXPECT_EQ(std::string(wideNames.begin(), wideNames.end()), names);
    EXPECT_EQ(tags, "ACBDEFGNPHIJKQRLMO");
    EXPECT_EQ(FindKeyField("path"), std::nullopt);

    std::string texts[keyFieldCount];
    KeyValues values;
    for (std::size_t i = 0; i < keyFieldCount; ++i)
        values[i] = texts[i] = std::to_string(i);
    std::string key;
    MakePrimaryKey(values, &key);
    EXPECT_EQ(key,
              "p<begin_time>0<sequence>2<object_type>3<action>4<actor_hash>5<actor_path_name>6"
              "<target_hash>9<target_path_name>10<target_source_ip>11<target_destination_ip>12"
              "<correlation_uid>16<actor_uid>7");
    EXPECT_EQ(key + EnrichmentSuffix(4294967295U), key + "<silent_sequence>4294967295");
    EXPECT_EQ(FlaggedEnrichmentSuffix(0, true), "<silent_sequence>0000000000<silent_enrichment>1");
    EXPECT_EQ(FlaggedEnrichmentSuffix(7, false), "<silent_sequence>0000000007<silent_enrichment>0");
}

TEST(KeyFormat, TellsKeysByTheirShape) {
    const struct {
        const char* key;
        KeyShape shape;
        const char* time;
    } rows[] = {
        {"p<begin_time>T<sequence>1<object_type>file<action>open", KeyShape::primary, "T"},
        {"p<begin_time>T<sequence>1<object_type>file", KeyShape::cutOff, "T"},
        {"p<begin_time>T", KeyShape::cutOff, "T"},
        {"p<begin_time>T<sequence>1<object_type>f<action>o<silent_sequence>1", KeyShape::enrichment,
         "T"},
        {"r<receive_time>T<sequence>1", KeyShape::receive, ""},
        {"p<begin>T", KeyShape::none, ""},
        {"", KeyShape::none, ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(ShapeOf(row.key), row.shape) << row.key;
        EXPECT_EQ(BeginTimeOf(row.key), row.time) << row.key;
    }
}

// A second is 1,000,000; hundredths of it outgrew 32 bits on 2027-03-01 at 07:31:04.
TEST(KeyFormat, EnrichmentsByTheClockStayInOrder) {
    constexpr std::int64_t second = 1000000, march2027 = 1803886264 * second;
    std::string former = FlaggedEnrichmentSuffix(4294967295U, false);
    for (const std::int64_t time :
         {std::int64_t{0}, 1795219200 * second, march2027 - 1, march2027, march2027 + 1,
          march2027 + second, 4102444800 * second, 9999999999 * second, 10000000000 * second}) {
        const std::string suffix = TimedEnrichmentSuffix(time, true);
        EXPECT_LT(former, suffix);
        former = suffix;
    }
    EXPECT_EQ(TimedEnrichmentSuffix(march2027, false),
              "<silent_sequence>901803886264000000<silent_enrichment>0");
}

}  // namespace
}  // namespace ZEL
