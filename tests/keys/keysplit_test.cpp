#include "zelstore/keys/keysplit.h"

#include <gtest/gtest.h>

namespace ZEL {
namespace {

TEST(KeySplit, SplitsAndReadsFields) {
    KeyFields fields;
    SplitKeyFields("p<a>1<b>2>3<c>x<y<a>4<>e<d>", &fields);
    EXPECT_EQ(fields.Find("a"), "4");
    EXPECT_EQ(fields.Find("b"), std::nullopt);
    EXPECT_EQ(fields.Find("c"), "x");
    EXPECT_EQ(fields.Find("d"), "");
    EXPECT_EQ(fields.Find(""), "e");
    std::string longKey = "<first>0<a>1";
    for (int i = 0; i < 40; ++i)
        longKey += "<n>" + std::to_string(i);
    longKey += "<a>9";
    SplitKeyFields(longKey, &fields);
    EXPECT_EQ(fields.Find("a"), "9");
    EXPECT_EQ(fields.Find("n"), "39");
    EXPECT_EQ(fields.Find("first"), "0");

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
        {"<actor_hash>\xFF", "actor_hash", hr::fail, "\xFF"},
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
