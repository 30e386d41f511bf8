#include "zelstore/keymaker.h"

#include <gtest/gtest.h>

#include <map>

#include "support/client.h"

namespace ZEL {
namespace {

// One for all of a test, so that nothing of a record may get into the next one's key.
std::string KeyOf(const std::string& record) {
    static EventKeyMaker maker;
    std::string key;
    EXPECT_EQ(maker.Make(record, &key), hr::ok) << record;
    return key;
}

TEST(KeyMaker, WritesTheFieldsInOrder) {
    EXPECT_EQ(
        KeyOf(
            R"({"artifacts":{"actor":{"object_type":"process","path":{"value":["AP"]},
                  "uid":{"value":["AU"]},"sha2":{"value":["b","a"]}},"target":
                  {"object_type":"process","path":{"value":["TP"]},"sha2":{"value":["TH"]}}},
                  "action":["open","create"],"begin_time":{"value":"T"},"seq_num":4294967295,
                  "type_id":{"value":[1]},"correlation_uid":{"value":["cd"]}})"),
        "p<begin_time>T<sequence>4294967295<object_type>process<action>create<actor_hash>a"
        "<actor_path_name>AP<target_hash>TH<target_path_name>TP<correlation_uid>CD<actor_uid>AU");
    EXPECT_EQ(
        KeyOf(R"({"artifacts":{"target":{"object_type":"network","src_ip":{"value":["1.2.3.4"]},
                        "dst_ip":{"value":["5?"]}}},"action":["connect"],"begin_time":{"value":"T"}})"),
        "p<begin_time>T<sequence>0000000000<object_type>network<action>connect"
        "<target_source_ip>1.2.3.4<target_destination_ip>5.{1}");
    EXPECT_EQ(KeyOf(R"({"artifacts":{"target":{"object_type":"url","text":{"value":["u"]}}},
                        "action":["request"],"begin_time":{"value":"T"}})"),
              "p<begin_time>T<sequence>0000000000<object_type>url<action>request")
        << "this road writes neither the text of a url nor a type";
}

// Keys escape nothing: a value that looks like a placeholder takes the value meant for that.
TEST(KeyMaker, PlaceholdersAreFoundInValuesToo) {
    EXPECT_EQ(KeyOf(R"({"artifacts":{"actor":{"object_type":"process","path":{"value":["x|Hy"]}},
                        "target":{"object_type":"file","sha2":{"value":["TH"]}}},
                        "action":["open"],"begin_time":{"value":"T|B"},"seq_num":1})"),
              "p<begin_time>T0000000001<sequence>|B<object_type>file<action>open"
              "<actor_path_name>xTHy<target_hash>|H");
}

// An event as a sensor's object gives it. Lives on the stack of a test.
class Properties final : public IEventProperties {
public:
    TobResult QueryInterface(const GUID&, void**) override { return TOBERR_NO_INTERFACE; }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }
    bool GetText(std::uint32_t property, IStringValue** text) override {
        const auto found = texts.find(property);
        if (found == texts.end())
            return false;
        *text = test::Str(found->second).Detach();
        return true;
    }
    bool GetNumber(std::uint32_t property, std::uint32_t* number) override {
        const auto found = numbers.find(property);
        if (found == numbers.end())
            return false;
        *number = found->second;
        return true;
    }
    bool GetGuid(std::uint32_t property, GUID* guid) override {
        *guid = MakeGuid("0BCDEF01-2345-6789-ABCD-EF0123456789");
        return property == 8 && hasGuid;
    }

    std::map<std::uint32_t, std::string> texts = {{3, "T|B"}, {5, "url"}, {6, "request"}};
    std::map<std::uint32_t, std::uint32_t> numbers = {{4, 9}};
    bool hasGuid = false;
};

TEST(KeyMaker, PropertiesGoStraightIntoTheKey) {
    Properties event;
    std::wstring key;
    ASSERT_EQ(MakePropertyKey(&event, &key), hr::ok);
    EXPECT_EQ(key, L"p<begin_time>T|B<sequence>0000000009<object_type>url<action>request");
    event.texts.insert({{7, "co"}, {25, "u"}, {17, "d"}});
    event.numbers[24] = 12;
    event.hasGuid = true;
    ASSERT_EQ(MakePropertyKey(&event, &key), hr::ok);
    EXPECT_EQ(key,
              L"p<begin_time>T|B<sequence>0000000009<object_type>url<action>request"
              L"<target_destination_ip>d<target_type_id>12<correlation_uid>co"
              L"<actor_uid>0BCDEF01-2345-6789-ABCD-EF0123456789<target_url_text>u");
    event.texts.erase(6);
    EXPECT_EQ(MakePropertyKey(&event, &key), hr::invalidArgument);
}

}  // namespace
}  // namespace ZEL
