#include "zelstore/schema/fastrecord.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "parsing.h"
#include "records/input/inputfiles.h"
#include "records/input/linereader.h"
#include "zelstore/schema/eventfields.h"

// The fast reader against the JSON library: what the one reads, the other has to read alike. The
// records are those of the sample, or of a file that the environment names, and texts that were
// made of them by damage.

namespace ZEL::Schema {
namespace {

const char* Setting(const char* name, const char* otherwise) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : otherwise;
}

std::vector<std::string> Sample() {
    std::vector<std::string> records;
    std::string error;
    const auto take = [&](const std::string&, zel::PeekStream& bytes) {
        zel::LineReader reader(bytes);
        for (std::string line; reader.Next(&line) == zel::LineReader::Status::line;)
            records.push_back(line);
        return true;
    };
    zel::InputFiles files([](int) { return true; });
    EXPECT_EQ(files.Read(Setting("ZEL_TEST_RECORDS", ZEL_SAMPLE), take, &error), zel::InputEnd::all)
        << error;
    EXPECT_FALSE(records.empty());
    return records;
}

// All that an event says, and what its key would take.
std::string Told(const Event& event, TextCheck check) {
    std::string told = Write(event);
    RecordFields fields;
    told.append(" ").append(std::to_string(Bits(ExtractRecordFields(event, check, fields))));
    for (const KeyFieldRow& row : keyFieldTable)
        if (const auto value = fields.Find(row.field))
            told.append(row.mark).append(*value);
    return told;
}

// Whether the fast reader took the text; then it must have read what the library reads.
bool ReadsAlike(const std::string& text) {
    static Event event;  // nothing of a record may get into the next one
    if (!ReadRecordFast(text, event))
        return false;
    std::string expected;
    try {
        expected = Told(Parse<Event>(text), TextCheck::needed);
    } catch (const std::exception& error) {
        expected = error.what();
    }
    EXPECT_EQ(Told(event, TextCheck::done), expected) << text;
    return true;
}

// Damages a record: bytes, pieces moved or repeated, and what the two readers may see differently.
class Mutator {
public:
    std::string Mutate(std::string text) {
        static const char* const pieces[] = {"\"",
                                             "{",
                                             "}",
                                             "[",
                                             "]",
                                             ",",
                                             ":",
                                             "\\",
                                             "null",
                                             "true",
                                             "1.5",
                                             "-0",
                                             "-1",
                                             "1e3",
                                             "00",
                                             "18446744073709551616",
                                             "4294967297",
                                             "\\u0000",
                                             "\\u0041",
                                             "\\ud800",
                                             "\\ud83d\\ude00",
                                             "\\udc00",
                                             "\xC3\xA9",
                                             "\xFF",
                                             "\xF4\x90\x80\x80",
                                             "\t",
                                             "\v",
                                             " ",
                                             "*",
                                             "?",
                                             "|H",
                                             "//",
                                             "\"value\":[\"x\"],",
                                             "\"object_type\":\"file\",",
                                             "\"path\":{\"value\":[\"p\"]},",
                                             "\"operator\":{},",
                                             "\"state\":{},",
                                             "\"pid\":7,",
                                             "\"seq_num\":1,",
                                             "\"default\":true,",
                                             "\"action\":[\"open\"],",
                                             "\"etw\"",
                                             "\"session\"",
                                             "\"kernel_object\"",
                                             "\"type_ids\":[2],",
                                             "\"\":0,"};
        for (std::size_t count = 1 + Below(3); count > 0; --count) {
            const std::size_t at = Below(text.size() + 1), size = Below(text.size() - at + 1);
            switch (Below(6)) {
                case 0:
                    text.insert(at, pieces[Below(std::size(pieces))]);
                    break;
                case 1:
                    text.replace(at, std::min<std::size_t>(size, 4),
                                 pieces[Below(std::size(pieces))]);
                    break;
                case 2:
                    text.erase(at, Below(12));
                    break;
                case 3:
                    text.insert(Below(text.size() + 1), text.substr(at, size));
                    break;
                case 4:
                    InsertMember(text, pieces[Below(std::size(pieces))]);
                    break;
                default:
                    if (at < text.size())
                        text[at] = static_cast<char>(Below(256));
            }
            if (text.empty())
                text.push_back('{');
        }
        return text;
    }

private:
    std::size_t Below(std::size_t count) { return engine_() % count; }
    // Where an object's members begin: most pieces are no harm there.
    void InsertMember(std::string& text, const char* member) {
        const std::size_t brace = text.find('{', Below(text.size() + 1));
        if (brace != text.npos)
            text.insert(brace + 1, member);
    }

    std::mt19937 engine_{std::strtoul(Setting("ZEL_TEST_SEED", "1"), nullptr, 10)};
};

TEST(FastRecord, TakesWhatSensorsSend) {
    const std::vector<std::string> records = Sample();
    const auto taken = std::count_if(records.begin(), records.end(), ReadsAlike);
    EXPECT_GE(static_cast<double>(taken), 0.99 * static_cast<double>(records.size()));
}

TEST(FastRecord, ReadsDamagedRecordsAsTheLibraryDoes) {
    const std::vector<std::string> records = Sample();
    const unsigned long rounds = std::strtoul(Setting("ZEL_TEST_MUTATIONS", "50000"), nullptr, 10);
    Mutator mutator;
    unsigned long taken = 0;
    for (unsigned long i = 0; i < rounds && !testing::Test::HasFailure(); ++i)
        taken += ReadsAlike(mutator.Mutate(records[i % records.size()])) ? 1 : 0;
    EXPECT_GT(taken, rounds / 20) << "the damage leaves too little to compare";
}

TEST(FastRecord, LeavesDoubtsToTheLibrary) {
    const auto artifact = [](const std::string& members) {
        return R"({"artifacts":{"target":{"object_type":"file",)" + members + "}}}";
    };
    const std::string plain = artifact(R"("path":{"value":["a|*?\u0041"]},"x":{"state":1.5})");
    EXPECT_TRUE(ReadsAlike(plain)) << "what nothing reads may be anything";
    // A record that goes on with what no reader knows.
    const auto more = [](const std::string& value) { return "{\"x\":" + value + "}"; };
    const std::string texts[] = {
        " " + plain,
        "[" + plain + "]",
        more("\"" + std::string(65536, 'x') + "\""),
        more(std::string(101, '[') + std::string(101, ']')),
        artifact(R"("path":{"value":["\u0000"]})"),
        artifact(R"("x":"\uD83D\uDE00")"),
        artifact("\"x\":\"\xFF\""),
        artifact(R"("x":18446744073709551616)"),
        artifact(R"("path":{"value":["a"]},"path":{"value":["a"]})"),
        artifact(R"("path":{"value":["a"],"x":1})"),
        artifact(R"("path":{"value":"a"})"),
        artifact(R"("path":{"value":[1]})"),
        artifact(R"("path":{})"),
        artifact(R"("path":["a"])"),
        artifact(R"("state":{"state":"exists"})"),
        R"({"artifacts":{"target":{"object_type":"etw"}}})",
        R"({"artifacts":{"target":{"object_type":"folder"}}})",
        R"({"artifacts":{"target":{}}})",
        R"({"artifacts":{"result":{"object_type":"file"}}})",
        R"({"artifacts":[]})",
        R"({"action":["eat"]})",
        R"({"action":"open"})",
        R"({"type_id":{"value":[1.0]}})",
        R"({"seq_num":"1"})",
        R"({"enable":true})",
        R"({"filter":"record"})",
        R"({"begin_time":{"value":["T"]}})",
        R"({"ref_uid":{"value":"u"}})",
    };
    for (const std::string& text : texts)
        EXPECT_FALSE(ReadsAlike(text)) << text.substr(0, 200);
}

}  // namespace
}  // namespace ZEL::Schema
