#include <cpprest/json.h>
#include <gmock/gmock.h>

#include <cstdlib>
#include <string>

#include "records/formats/readinput.h"

namespace zel {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

// What comes of one line, or of several.
std::vector<std::string> Items(const std::vector<std::string>& lines, MappingOptions options = {}) {
    Mapper mapper(options);
    LineFormats formats(mapper);
    std::vector<std::string> items;
    std::uint64_t number = 0;
    SourceItem item;
    const auto drain = [&] {
        while (formats.Next(&item))
            items.push_back(item.fate == EventFate::record || item.isKept ? item.record
                            : item.fate == EventFate::noRule
                                ? "no rule: " + item.channel + " " + item.event
                                : "refused: " + std::string(item.problem));
    };
    for (const std::string& line : lines) {
        EXPECT_TRUE(formats.Give(line, ++number)) << line;
        drain();
    }
    formats.End();
    drain();
    return items;
}

MappingOptions Bare() {
    MappingOptions options;
    options.writesUnmapped = false;
    return options;
}

// One event as each collector writes it.
TEST(WindowsShapes, GiveOneRecord) {
    const std::string data =
        R"("EventType":"SetValue","UtcTime":"2022-05-11 18:10:22.055","ProcessGuid":"{39E4A257-E328-5F90-D310-000000000700}","ProcessId":"3224","Image":"C:\\a.exe","TargetObject":"HKLM\\Software\\x","Details":"Binary Data")";
    const std::string xmlData =
        R"(<Data Name="EventType">SetValue</Data><Data Name="UtcTime">2022-05-11 18:10:22.055</Data><Data Name="ProcessGuid">{39E4A257-E328-5F90-D310-000000000700}</Data><Data Name="ProcessId">3224</Data><Data Name="Image">C:\a.exe</Data><Data Name="TargetObject">HKLM\Software\x</Data><Data Name="Details">Binary Data</Data>)";
    const std::string channel = "Microsoft-Windows-Sysmon/Operational";
    const std::string xml =
        "<Event xmlns='http://schemas.microsoft.com/win/2004/08/events/event'><System>"
        "<EventID>13</EventID><TimeCreated SystemTime='2022-05-11T18:10:22.0600000Z'/>"
        "<EventRecordID>77</EventRecordID><Channel>" +
        channel + "</Channel><Computer>pc</Computer></System><EventData>" + xmlData +
        "</EventData></Event>";
    const std::string flat =
        R"({"EventID":13,"Channel":")" + channel +
        R"(","Hostname":"pc","EventRecordID":77,"TimeCreated":"2022-05-11T18:10:22.060Z",)";
    const auto text = [](const std::string& inner) {
        return web::json::value::string(inner).serialize();
    };
    const std::string listed =
        R"([{"@Name":"UtcTime","#text":"2022-05-11 18:10:22.055"},{"@Name":"ProcessGuid","#text":"{39E4A257-E328-5F90-D310-000000000700}"},{"@Name":"ProcessId","#text":"3224"},{"@Name":"Image","#text":"C:\\a.exe"},{"@Name":"TargetObject","#text":"HKLM\\Software\\x"},{"@Name":"Details","#text":"Binary Data"}])";
    const std::string system =
        R"({"System":{"EventID":{"#text":13},"Channel":")" + channel +
        R"(","Computer":"pc","EventRecordID":77,"TimeCreated":{"SystemTime":"2022-05-11T18:10:22.06Z"}},)";
    const std::string lines[] = {
        R"({"@timestamp":"2022-05-11T18:10:22.060Z","event_id":13,"log_name":")" + channel +
            R"(","computer_name":"pc","record_number":"77","event_data":{)" + data + "}}",
        R"({"@timestamp":"2022-05-11T18:10:22.060Z","ecs":{"version":"8.0"},"winlog":{"event_id":"13","channel":")" +
            channel + R"(","computer_name":"pc","record_id":77,"event_data":{)" + data + "}}}",
        flat + data + "}",
        flat + R"("EventData":{)" + data + "}}",
        flat + R"("EventData":)" + text("{" + data + "}") + "}",
        flat + R"("EventData":)" + text("<EventData>" + xmlData + "</EventData>") + "}",
        R"({"Event":)" + system + R"("EventData":{)" + data + "}}}",
        system + R"("EventData":{"Data":)" + listed + "}}",
        R"({"Computer":"relay","SyslogMessage":)" + text(xml) + "}",
        xml,
        "May 11 18:10:22 pc sysmon: " + xml,
    };
    const std::string expected =
        R"({"artifacts":{"actor":{"object_type":"process","path":{"value":["C:\\a.exe"]},)"
        R"("pid":{"value":[3224]},"uid":{"value":["39E4A257-E328-5F90-D310-000000000700"]}},)"
        R"("target":{"object_type":"reg_value",)"
        R"("path":{"value":["HKEY_LOCAL_MACHINE\\Software\\x"]},"name":{"value":["x"]},)"
        R"("type_id":3,"data":{"value":["Binary Data"]}}},"action":["set"],)"
        R"("begin_time":{"value":"2022-05-11T18:10:22.055Z"},"type_id":{"value":[8006]},)"
        R"("correlation_uid":{"value":["39E4A257-E328-5F90-D310-000000000700"]},"seq_num":77})";
    for (const std::string& line : lines) {
        EXPECT_THAT(Items({line}, Bare()), testing::ElementsAre(expected)) << line;
        EXPECT_THAT(Items({line})[0], HasSubstr(R"("computer":"pc","record_id":77})")) << line;
    }
}

TEST(WindowsXml, EventsOverLinesAndSeveralInOne) {
    const auto event = [](const std::string& data) {
        return "<Event><System><EventID>5</EventID><Channel>Linux-Sysmon/Operational</Channel>"
               "</System>\n<EventData><Data Name=\"UtcTime\">2022-05-11 18:10:22</Data>\n"
               "<Data Name=\"Image\">" +
               data + "</Data></EventData></Event>";
    };
    std::vector<std::string> lines(1);
    for (const char c : "<?xml version=\"1.0\"?>\n<Events>" + event("/a") + event("/b &lt;") +
                            "\n</Events>\n" + event("/c").substr(0, 90))
        if (c == '\n')
            lines.emplace_back();
        else
            lines.back().push_back(c);
    const auto items = Items(lines, Bare());
    ASSERT_EQ(items.size(), 3U);
    EXPECT_THAT(items[0], HasSubstr("\"/a\""));
    EXPECT_THAT(items[1], HasSubstr("\"/b <\""));
    EXPECT_THAT(items[2], StartsWith("no rule: Linux-Sysmon/Operational 5"));
}

// Nobody waits for the end of an event that has none, however many lines follow.
TEST(WindowsXml, AnEventWithoutAnEnd) {
    std::vector<std::string> lines(150000, "a line");
    lines.insert(lines.begin(), "<Event><System><EventID>5</EventID><Channel>Security</Channel>");
    EXPECT_THAT(Items(lines), testing::ElementsAre("no rule: Security 5"));
}

// What has no place in the record is all there, and what has is not there twice.
TEST(Unmapped, HoldsTheRest) {
    const std::string line =
        R"({"EventID":1,"Channel":"Microsoft-Windows-Sysmon/Operational","Hostname":"pc","TimeCreated":"2022-05-11 18:10:22.060","UtcTime":"2022-05-11 18:10:22.055","Image":"\\\\?\\C:\\a.exe","User":"ann","tags":["a",1],"Hashes":"SHA1=A,SHA256=B","ParentProcessId":"4","EventType":"INFO","Message":"x\r\nEventType: Launch\r\n"})";
    const auto items = Items({line});
    EXPECT_THAT(
        items[0],
        HasSubstr(
            R"("unmapped":{"TimeCreated":"2022-05-11 18:10:22.060","User":"ann","tags":["a",1],"Hashes":"SHA1=A,SHA256=B","ParentProcessId":"4","EventType":"Launch","Message":"x\u000d\u000aEventType: Launch\u000d\u000a","CollectorEventType":"INFO"},"source":{"format":"windows-json","channel":"Microsoft-Windows-Sysmon/Operational","event_id":1,"computer":"pc"}})"));
    EXPECT_THAT(items[0], HasSubstr(R"("sha2":{"value":["B"]})"));
    EXPECT_THAT(items[0], Not(HasSubstr("actor"))) << "a number alone is no process";
}

TEST(Mapping, NumbersTimesAndWhatIsKept) {
    const std::string security = R"({"Channel":"Security","EventID":)";
    MappingOptions keeps;
    keeps.keepsAll = true;
    const auto items = Items(
        {security + R"(1102,"TimeCreated":"2022-05-11T20:10:22.1239+02:00","Who":"ann"})",
         security + R"(4689,"ProcessName":"a","TimeCreated":"2022-05-11T18:10:22Z"})",
         security + R"(4689,"ProcessName":"a","TimeCreated":"2022-02-30T18:10:22Z"})",
         security +
             R"(4689,"ProcessName":"a","RecordNumber":4294967297,"TimeCreated":"2022-05-11 18:10:22"})"},
        keeps);
    EXPECT_THAT(
        items[0],
        HasSubstr(
            R"("begin_time":{"value":"2022-05-11T18:10:22.123Z"},"type_id":{"value":[8015]},"seq_num":1,"unmapped":{"TimeCreated":"2022-05-11T20:10:22.1239+02:00","Who":"ann"})"));
    EXPECT_THAT(items[1], HasSubstr(R"("2022-05-11T18:10:22.000Z")"));
    EXPECT_EQ(items[2], "refused: no time that can be read");
    EXPECT_THAT(items[3], HasSubstr(R"("seq_num":1,)")) << "the low 32 bits";
    EXPECT_THAT(items[3], HasSubstr(R"("record_id":4294967297)"));
}

TEST(WindowsSample, BecomesRecords) {
    const ReadInput read(ZEL_EXAMPLES "/raw.ndjson.xz", Bare());
    const ReadInput expected(ZEL_RECORD_DATA "/raw.expected.ndjson.xz");
    EXPECT_THAT(read.refused, IsEmpty());
    EXPECT_EQ(read.records.size() + read.noRule.size(), 581U);
    ASSERT_EQ(read.records.size(), expected.asTheyAre.size());
    for (std::size_t i = 0; i < read.records.size(); ++i)
        ASSERT_EQ(read.records[i], expected.asTheyAre[i]);
}

// The whole sample, where it is at hand; it is too large to be kept here.
TEST(WindowsSample, WholeBecomesRecords) {
    const char* const folder = std::getenv("ZEL_SOURCE_SAMPLES");
    if (folder == nullptr)
        GTEST_SKIP() << "ZEL_SOURCE_SAMPLES names no folder with raw_sample.ndjson.xz";
    const ReadInput read(std::string(folder) + "/raw_sample.ndjson.xz", Bare());
    const ReadInput expected(std::string(folder) + "/records_long.ndjson.xz");
    EXPECT_THAT(read.refused, IsEmpty());
    EXPECT_EQ(read.noRule.size(), 259U);
    ASSERT_EQ(read.records.size(), expected.asTheyAre.size());
    for (std::size_t i = 0; i < read.records.size(); ++i) {
        auto ours = web::json::value::parse(read.records[i]);
        auto theirs = web::json::value::parse(expected.asTheyAre[i]);
        ours.erase("seq_num");
        theirs.erase("seq_num");
        ASSERT_EQ(ours, theirs) << i;
    }
}

}  // namespace
}  // namespace zel
