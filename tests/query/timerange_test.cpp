#include "zelstore/query/timerange.h"

#include "schema/parsing.h"
#include "zelstore/query/resulttext.h"

namespace ZEL {
namespace {

TEST(TimeRange, OperatorsBecomeLimitsThatAreIncluded) {
    const std::string at = "2026-11-12T10:00:00.", before = "2026-11-12T09:59:59.999Z";
    const std::string zero = "1601-01-01T00:00:00.000Z", none;
    const struct {
        std::string field, op, begin, end;  // no begin: refused
    } rows[] = {
        {"begin_time", "greater_than", at + "001Z", none},
        {"begin_time", "greater_than_or_equal", at + "000Z", none},
        {"begin_time", "less_than", zero, before},
        {"begin_time", "less_than_or_equal", zero, at + "000Z"},
        {"begin_time", "equals", none, none},
        {"end_time", "less_than", zero, before},
        {"end_time", "less_than_or_equal", zero, at + "000Z"},
        {"end_time", "greater_than", none, none},
    };
    for (const auto& row : rows) {
        const std::string begin = R"("begin_time":{"value":")" + zero + R"("},)";
        auto event = Schema::Parse<Schema::Event>("{" + (row.field == "end_time" ? begin : none) +
                                                  "\"" + row.field + R"(":{"operator":{"value":")" +
                                                  row.op + R"("},"value":")" + at + R"(000Z"}})");
        EXPECT_EQ(NormaliseTimeRange(event), row.begin.empty() ? hr::invalidArgument : hr::ok);
        if (row.begin.empty())
            continue;
        EXPECT_EQ(event.begin_time->value, row.begin) << row.field << " " << row.op;
        EXPECT_EQ(event.end_time ? event.end_time->value : none, row.end) << row.op;
    }
}

TEST(ResultText, EnrichmentsStandInAList) {
    std::string text = R"({"a":1})";
    AppendEnrichments(text, {"{}", "2"});
    EXPECT_EQ(text, R"({"a":1,"enrichments":[{},2]})");
}

}  // namespace
}  // namespace ZEL
