#include "questions/narrowing.h"

#include <gmock/gmock.h>

#include <random>

#include "common/asciicase.h"
#include "records/input/inputfiles.h"
#include "records/input/linereader.h"
#include "zelstore/keymaker.h"
#include "zelstore/keys/keyformat.h"
#include "zelstore/keys/keysplit.h"
#include "zelstore/query/machinepaths.h"
#include "zelstore/query/queryfilter.h"
#include "zelstore/schema/eventquery.h"

namespace zel {
namespace {

std::vector<std::string> SampleRecords() {
    std::vector<std::string> records;
    InputFiles files([](int) { return true; });
    const auto take = [&](const std::string&, PeekStream& bytes) {
        LineReader reader(bytes);
        for (std::string line; reader.Next(&line) == LineReader::Status::line;)
            records.push_back(line);
        return true;
    };
    std::string problem;
    files.Read(ZEL_EXAMPLES "/events.ndjson.xz", take, &problem);
    return records;
}

// What sensors may hand in beside what the sample has: all of it gets a key.
std::vector<std::string> OddRecords() {
    const auto record = [](const std::string& actor, const std::string& target,
                           const std::string& more) {
        return R"({"artifacts":{"actor":{)" + actor + R"(},"target":{)" + target +
               R"(}},"begin_time":{"value":"2020-10-22T00:00:00.000Z"},)" + more + "}";
    };
    const std::string actor = R"("path":{"value":["C:\\a.exe"]},"uid":{"value":["{AB}"]})";
    const std::string ip = R"("object_type":"network","dst_ip":{"value":[)";
    const std::string launch = R"("action":["launch"])";
    return {
        record(actor, R"("object_type":"file","path":{"value":["\\\\?\\C:\\x"]})", launch),
        record(actor, R"("object_type":"file","sha2":{"value":["bb","Aa"]})", launch),
        record("", R"("object_type":"etw","sha2":{"value":["aa"]})", launch),
        record(actor, R"("object_type":"process")",
               R"("action":["terminate","launch"],"correlation_uid":{"value":["b","A","-"]})"),
        record(
            actor, R"("object_type":"process")",
            R"("action":["unknown"],"correlation_uid":{"value":["ab","B"]},"type_id":{"value":[7]})"),
        record(actor, R"("object_type":"process","dst_ip":{"value":["10.0.0.1"]})", launch),
        record(actor, ip + R"("::ffff:10.1.2.3","10.200.0.1"]})", launch),
        record(actor, ip + R"("0:0:0:0:0:ffff:a01:203"]})", launch),
        record(actor, ip + R"("99.0.0.1","10.1.2.3"]})", launch),
    };
}

// A question that some of the records are about: values are taken from them.
std::optional<EventCondition> RandomCondition(std::mt19937& random, const std::string& record) {
    const auto pick = [&](std::size_t count) { return random() % count; };
    RecordReader reader;
    EXPECT_TRUE(reader.Read(record));
    const char* const names[] = {
        "time",      "seq",         "object",     "action",      "actor_path",
        "actor_uid", "src_ip",      "dst_ip",     "target_hash", "correlation_uid",
        "type_id",   "target_path", "actor_hash", "object",      "action"};
    const Column& column = *FindColumn(names[pick(std::size(names))]);
    const auto value = reader.Value(column);
    if (!value)
        return std::nullopt;
    std::string asked(*value);
    for (char& c : asked)
        if (column.type == ColumnType::text && pick(3) == 0)
            c = ZEL::ToUpperAscii(c);
    auto op = static_cast<ConditionOperator>(pick(11));
    if (pick(2) == 0)
        op =
            column.type == ColumnType::time ? ConditionOperator::atMost : ConditionOperator::equals;
    if (column.name.ends_with("_ip")) {
        const char* const networks[] = {"10.0.0.0/8", "10.1.2.0/23", "0.0.0.0/0", "::/0",
                                        "127.0.0.1"};
        op = ConditionOperator::inNetwork;
        asked = networks[pick(std::size(networks))];
    }
    ConditionProblem problem;
    return EventCondition::Make(column, op, asked, nullptr, &problem);
}

// The store's own answer for one key.
class SubQuery {
public:
    explicit SubQuery(const std::string& text) {
        ZEL::Schema::EventQuery query;
        query.FromJson(web::json::value::parse(R"({"event_query":{"events":[)" + text + "]}}"));
        const ZEL::Schema::Event& event = query.events.at(0);
        since_ = event.begin_time->value;
        until_ = event.end_time ? event.end_time->value : "9";
        ZEL::Schema::FilterMap fields;
        EXPECT_EQ(ExtractKeyFields(event, true, &ZEL::MachinePaths(), fields), ZEL::hr::ok);
        filter_.emplace(fields);
    }
    bool LetsPass(const std::string& key) {
        const std::string_view time = ZEL::BeginTimeOf(key);
        ZEL::KeyFields fields;
        ZEL::SplitKeyFields(key, &fields);
        return time >= since_ && time <= until_ && filter_->MatchesFilter(fields);
    }

private:
    std::string since_, until_;
    std::optional<ZEL::QueryFilter> filter_;
};

// Whatever is asked: an event that fits is one that the keys let pass.
TEST(Narrowing, LosesNoEvent) {
    std::vector<std::string> records = SampleRecords();
    ASSERT_GT(records.size(), 1000U);
    const std::vector<std::string> odd = OddRecords();
    records.resize(1000);
    for (int i = 0; i < 20; ++i)
        records.insert(records.end(), odd.begin(), odd.end());
    ZEL::EventKeyMaker maker;
    std::vector<std::string> keys(records.size());
    for (std::size_t i = 0; i < records.size(); ++i)
        ASSERT_EQ(maker.Make(records[i], &keys[i]), ZEL::hr::ok) << records[i];
    std::mt19937 random(20261122);
    std::size_t narrowed = 0, fitting = 0, passing = 0;
    for (int round = 0; round < 200; ++round) {
        const std::string& about = records[random() % records.size()];
        std::vector<EventCondition> all;
        while (all.empty() || random() % 3 != 0)
            if (auto condition = RandomCondition(random, about))
                all.push_back(*condition);
        const Narrowing narrowing = NarrowingOf(all);
        if (narrowing.Empty())
            continue;
        ++narrowed;
        SubQuery subQuery(SubQueryOf(narrowing));
        EventConditions conditions(all);
        for (std::size_t i = 0; i < records.size(); ++i) {
            const bool passes = subQuery.LetsPass(keys[i]);
            const bool fits = conditions.Test(records[i]) == EventConditions::Answer::yes;
            passing += passes ? 1 : 0;
            fitting += fits ? 1 : 0;
            ASSERT_TRUE(passes || !fits)
                << all.front().Text() << " and " << all.size() - 1 << " more on " << records[i];
        }
    }
    // The test has asked something, and the keys have decided something.
    EXPECT_GT(narrowed, 100U);
    EXPECT_GT(fitting, 2000U);
    EXPECT_LT(passing, narrowed * records.size() / 2);
}

// As another writer of JSON may write it: each p by its number.
std::string InOtherLetters(std::string record) {
    for (std::size_t at = record.find('p'); at != record.npos; at = record.find('p', at))
        record.replace(at, 1, "\\u0070");
    return record;
}

// What is told of an event's bytes ahead of reading it never refuses one that fits.
TEST(EventCondition, LosesNoEventAheadOfReadingIt) {
    const std::vector<std::string> records = SampleRecords();
    std::mt19937 random(20261122);
    std::size_t fitting = 0, refused = 0;
    for (std::size_t i = 0; i + 1 < records.size(); i += 5)
        for (const std::string& record : {records[i], InOtherLetters(records[i])}) {
            RecordReader reader;
            ASSERT_TRUE(reader.Read(record)) << record;
            for (const Column& column : Columns()) {
                const auto value = reader.Value(column);
                if (!value || value->empty() || column.type == ColumnType::time)
                    continue;
                const std::size_t at = random() % value->size();
                const std::string part(value->substr(at, 1 + random() % 12));
                const ConditionOperator ops[] = {
                    ConditionOperator::equals, ConditionOperator::contains,
                    ConditionOperator::starts, ConditionOperator::ends};
                ConditionProblem problem;
                const auto condition = EventCondition::Make(
                    column, ops[random() % 4], random() % 2 == 0 ? part : std::string(*value),
                    nullptr, &problem);
                if (!condition)
                    continue;  // a part of a number that is none
                const bool fits = condition->Fits(reader.Value(column));
                fitting += fits ? 1 : 0;
                refused += condition->MayFit(records[i + 1]) ? 0 : 1;
                EXPECT_TRUE(condition->MayFit(record) || !fits)
                    << condition->Text() << " on " << record;
            }
        }
    EXPECT_GT(fitting, 1000U);
    EXPECT_GT(refused, 100U);
}

TEST(Narrowing, AsksOnlyForWhatAKeyIsSureToHold) {
    const auto of = [](std::vector<const char*> texts) {
        std::vector<EventCondition> all;
        ConditionProblem problem;
        for (const char* text : texts)
            all.push_back(*EventCondition::Parse(text, nullptr, &problem));
        return SubQueryOf(NarrowingOf(all));
    };
    const std::string begin =
        R"({"begin_time":{"operator":{"value":"greater_than_or_equal"},"value":")";
    const std::string always = begin + R"(1601-01-01T00:00:00.000Z"})";
    for (const char* text : {"actor_path = x", "actor_uid = x", "type_id = 8001", "action = lunch",
                             "target_hash = aa", "dst_ip in 10.0.0.0/8", "action != launch",
                             "correlation_uid = a|B", "time != 2026-11-12T00:00:00Z"})
        EXPECT_EQ(of({text}), always + "}") << text;
    EXPECT_EQ(of({"action = Launch", "correlation_uid = ab"}),
              always + R"(,"action":["launch"],"correlation_uid":{"operator":{"value":"equals"},)"
                       R"("value":["ab"]}})");
    EXPECT_EQ(of({"dst_ip in 10.1.0.0/12", "dst_ip in 10.2.0.0/16", "object = network"}),
              always + R"(,"artifacts":{"target":{"object_type":"network","dst_ip":{"operator":)"
                       R"({"value":"starts_with"},"value":["10.",":","0"]}}}})");
    EXPECT_EQ(of({"time > 2026-11-12T00:00:00Z", "time < 2026-11-13T00:00:00Z",
                  "time <= 2026-11-14T00:00:00Z"}),
              begin + R"(2026-11-12T00:00:00.000Z"},"end_time":{"operator":)"
                      R"({"value":"less_than_or_equal"},"value":"2026-11-13T00:00:00.000Z"}})");
}

}  // namespace
}  // namespace zel
