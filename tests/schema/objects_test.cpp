#include <stdexcept>

#include "parsing.h"
#include "zelstore/schema/objectclasses.h"
#include "zelstore/schema/objectfactory.h"

namespace ZEL::Schema {
namespace {

TEST(Vocabulary, TablesHoldBothDirections) {
    for (std::int32_t i = 0; i < 38; ++i)
        EXPECT_EQ(ObjectTypes().Number(ObjectTypes().Name(i)), i);
    for (std::int32_t i = 0; i < 28; ++i)
        EXPECT_EQ(ActionTypes().Number(ActionTypes().Name(i)), i);
    EXPECT_EQ(ActionTypes().Name(27), "reputation_query");
    EXPECT_EQ(SessionStates().Number("logged-off"), 2);
    EXPECT_THROW(ObjectTypes().Number("File"), std::out_of_range) << "names are compared exactly";
}

template <typename T>
void ExpectRoundTrips(const std::vector<std::pair<std::string, std::string>>& rows) {
    for (const auto& [in, out] : rows)
        EXPECT_EQ(RoundTrip<T>(in), out) << in;
}

TEST(ValueClasses, ReadAndWriteTheirShapes) {
    ExpectRoundTrips<Operator>({
        {R"({})", R"({"value":"unknown","case_insensitive":true})"},
        {R"({"value":"contains","case_insensitive":false})",
         R"({"value":"contains","case_insensitive":false})"},
    });
    ExpectRoundTrips<StringPair>({
        {R"({"value":["a","b"],"operator":{"value":"equals"}})",
         R"({"operator":{"value":"equals","case_insensitive":true},"value":["a","b"]})"},
        {R"({"value":[]})", "{}"},
        {R"("text")", "{}"},
    });
    ExpectRoundTrips<IntegerPair<std::uint32_t>>({
        {R"({"value":[1.9,4294967296,-1,1e300,-1e300]})",
         R"({"value":[1,0,4294967295,4294967295,0]})"},
    });
    ExpectRoundTrips<IntegerPair<std::uint64_t>>({
        {R"({"value":[1e300,2e19,1.5e19]})",
         R"({"value":[18446744073709551615,18446744073709551615,15000000000000000000]})"},
    });
    ExpectRoundTrips<DatePair>(
        {{R"({"value":""})", "{}"}, {R"({"value":"x"})", R"({"value":"x"})"}});
    ExpectRoundTrips<GuidPair>({{"{}", R"({"value":""})"}});
    const std::string exists = R"({"state":"exists","error_code":"5"})";
    ExpectRoundTrips<ExistPair>({{exists, exists}});
    EXPECT_THROW(RoundTrip<ExistPair>("{}"), std::out_of_range);
    EXPECT_THROW(Parse<Operator>(R"({"value":"Equals"})"), std::out_of_range);
    EXPECT_THROW(Parse<StringPair>(R"({"value":"a"})"), web::json::json_exception);
    EXPECT_THROW(Parse<DatePair>(R"({"value":["a"]})"), web::json::json_exception);
}

TEST(Objects, AreReadWrittenCopiedAndChecked) {
    const struct {
        bool valid;
        const char* in;
        const char* out;  // null: as it came in
    } rows[] = {
        {true, R"({})", R"({"object_type":"unknown"})"},
        {false, R"({"object_type":"process","path":{"value":[]},"md5":{"value":["x"]}})",
         R"({"object_type":"process","path":{},"md5":{"value":["x"]}})"},
        {true, R"({"object_type":"process","uid":{"value":["x"]}})", nullptr},
        {false, R"({"object_type":"file","size":{"value":[1]},"path":"x"})",
         R"({"object_type":"file","path":{}})"},
        {false, R"({"object_type":"directory","state":{"state":"exists"}})", nullptr},
        {true,
         R"({"signature_level_id":{"value":[2]},"object_type":"module","sha2":{"value":["x"]}})",
         R"({"object_type":"module","sha2":{"value":["x"]},"signature_level_id":{"value":[2]}})"},
        {true, R"({"object_type":"session","session_state":["logged-on"]})", nullptr},
        {false, R"({"object_type":"network","dst_port":{"value":[1]}})",
         R"({"object_type":"network"})"},
        {true, R"({"object_type":"network","url":{"value":["x"]}})", nullptr},
        {true, R"({"object_type":"reg_value","default":false,"type_id":4,"data":{"value":["x"]}})",
         R"({"object_type":"reg_value","type_id":4,"data":{"value":["x"]},"default":false})"},
        {false, R"({"object_type":"service","type_ids":[3]})",
         R"({"object_type":"service","type_ids":[3],"start_id":0,"run_state_id":0})"},
        {false, R"({"object_type":"url","state":{"state":"exists"}})", nullptr},
        {true, R"({"object_type":"etw","source":{}})", nullptr},
        {true, R"({"object_type":"kernel_object","type_ids":[1,2],"name":{"value":["n"]}})",
         R"({"object_type":"kernel_object","name":{"value":["n"]},"type_ids":[1,2]})"},
    };
    for (const auto& row : rows) {
        const std::string out = row.out != nullptr ? row.out : row.in;
        const auto object = CreateObjectFromJson(Json(row.in));
        EXPECT_EQ(object->IsValid(), row.valid) << row.in;
        EXPECT_EQ(Write(*object), out);
        EXPECT_EQ(Write(*CloneObject(object.get())), out) << "copies are deep";
    }
    const auto event = CreateObjectFromJson(Json(R"({"object_type":"event"})"));
    EXPECT_EQ(CloneObject(event.get()), nullptr) << "a number without a class is lost in a copy";
    EXPECT_EQ(CloneObject(nullptr), nullptr);
    EXPECT_THROW(CreateObjectFromJson(Json(R"({"object_type":7})")), web::json::json_exception);
    EXPECT_THROW(
        CreateObjectFromJson(Json(R"({"object_type":"session","session_state":["logged_on"]})")),
        std::out_of_range);
}

TEST(Objects, ParsingTwiceReplaces) {
    Process process = Parse<Process>(R"({"path":{"value":["x"]},"pid":{"value":[1]}})");
    process.normalized_path.Make().values.push_back("y");
    process.FromJson(Json(R"({"md5":{"value":["z"]}})"));
    EXPECT_EQ(Write(process), R"({"object_type":"process","md5":{"value":["z"]}})");
}

}  // namespace
}  // namespace ZEL::Schema
