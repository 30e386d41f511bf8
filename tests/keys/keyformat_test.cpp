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

TEST(KeyFormat, SplitsAndReadsFields) {
    KeyFields fields;
    SplitKeyFields("p<a>1<b>2>3<c>x<y<a>4<>e<d>", &fields);
    EXPECT_EQ(fields.Find("a"), "4");
    EXPECT_EQ(fields.Find("b"), std::nullopt);
    EXPECT_EQ(fields.Find("c"), "x");
    EXPECT_EQ(fields.Find("d"), "");
    EXPECT_EQ(fields.Find(""), "e");
    std::string longKey = "<a>1";
    for (int i = 0; i < 40; ++i)
        longKey += "<n>" + std::to_string(i);
    longKey += "<a>9";
    SplitKeyFields(longKey, &fields);
    EXPECT_EQ(fields.Find("a"), "9");
    EXPECT_EQ(fields.Find("n"), "39");

    const struct {
        const char* key;
        const char* name;
        HRESULT result;
        const char* value;
    } rows[] = {
        {"<object_type>file<action>reputation_query", "type_id", hr::ok, "5"},
        {"<object_type>service", "type_id", hr::ok, ""},
        {"<type_id>7<object_type>etw", "type_id", hr::ok, "8015"},
        {"<action>create", "type_id", hr::fail, ""},
        {"<object_type>kernel_object", "target_type_id", hr::ok, "1"},
        {"<object_type>kernel_object<target_type_id>3", "target_type_id", hr::ok, "3"},
        {"", "target_type_id", hr::fail, ""},
        {"<object_type>file", "actor_hash", hr::fail, ""},
    };
    for (const auto& row : rows) {
        KeyFields split;
        SplitKeyFields(row.key, &split);
        std::string_view value;
        EXPECT_EQ(GetKeyField(split, row.name, &value), row.result) << row.key << " " << row.name;
        EXPECT_EQ(value, row.value) << row.key << " " << row.name;
    }
}

}  // namespace
}  // namespace ZEL
