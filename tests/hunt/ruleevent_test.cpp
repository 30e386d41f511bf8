#include "hunt/ruleevent.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "hunt/fieldplaces.h"
#include "records/formats/readinput.h"

namespace zel {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

// The records that the real formats make of lines.
std::vector<std::string> RecordsOf(const std::vector<std::string>& lines,
                                   MappingOptions options = {}) {
    Mapper mapper(options);
    LineFormats formats(mapper);
    std::vector<std::string> records;
    SourceItem item;
    const auto drain = [&] {
        while (formats.Next(&item))
            if (!item.record.empty())
                records.push_back(item.record);
    };
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_TRUE(formats.Give(lines[i], i + 1)) << lines[i];
        drain();
    }
    formats.End();
    drain();
    return records;
}

// What a rule of the source sees of one event.
struct RuleView {
    RuleView(const LogSource& source, std::string record, VocabularyOptions options = {})
        : vocabulary(options), text(std::move(record)) {
        std::string problem;
        EXPECT_TRUE(vocabulary.AddSource(source, &id, &problem)) << problem;
    }
    bool IsMeant() {
        RuleEvent event(vocabulary);
        return event.Read(text) && event.IsOf(id);
    }
    std::vector<std::string> Values(const std::string& field) {
        const FieldId asked = vocabulary.AddField(field);
        RuleEvent event(vocabulary);
        EXPECT_TRUE(event.Read(text));
        const auto values = event.ValuesOf(asked);
        return {values.begin(), values.end()};
    }

    RuleVocabulary vocabulary;
    SourceId id = 0;
    std::string text;
};

const std::string sysmon =
    R"("Channel":"Microsoft-Windows-Sysmon/Operational","Hostname":"pc","RecordNumber":7,)"
    R"("UtcTime":"2026-03-02 09:15:03.123","ProcessGuid":"{39E4A257-0000-5F90-D310-000000000700}",)"
    R"("ProcessId":"600","Image":"C:\\a.exe",)";

std::string Sysmon(int number, const std::string& data) {
    return R"({"EventID":)" + std::to_string(number) + "," + sysmon + data + "}";
}

TEST(RuleEvent, HasTheNamesOfSysmon) {
    const auto records = RecordsOf(
        {Sysmon(1,
                R"("CommandLine":"a \"b\"","ParentImage":"C:\\p.exe","User":"PC\\ann","Flag":null,)"
                R"("Hashes":"MD5=AB,SHA256=CD,IMPHASH=EF","TerminalSessionId":"1")"),
         Sysmon(1, R"("Hashes":"MD5=AB,SHA256=CD")"),
         Sysmon(3, R"("Initiated":"true","DestinationIp":"10.0.0.1","DestinationPort":"443",)"
                   R"("Protocol":"tcp")"),
         Sysmon(13, R"-("TargetObject":"HKLM\\Soft\\x","Details":"DWORD (0x00000001)",)-"
                    R"("EventType":"SetValue")")});
    ASSERT_EQ(records.size(), 4U);
    const auto values = [&](std::size_t record, const std::string& field) {
        return RuleView({}, records[record]).Values(field);
    };
    EXPECT_THAT(values(0, "Image"), ElementsAre("C:\\a.exe"));
    EXPECT_THAT(values(0, "ParentImage"), ElementsAre("C:\\p.exe"));
    EXPECT_THAT(values(0, "commandline"), ElementsAre("a \"b\""));
    EXPECT_THAT(values(0, "User"), ElementsAre("PC\\ann"));
    EXPECT_THAT(values(0, "ProcessId"), Contains("600"));
    EXPECT_THAT(values(0, "ProcessGuid"), Contains("{39E4A257-0000-5F90-D310-000000000700}"));
    EXPECT_THAT(values(0, "UtcTime"), ElementsAre("2026-03-02 09:15:03.123"));
    EXPECT_THAT(values(0, "Hashes"), ElementsAre("MD5=AB,SHA256=CD,IMPHASH=EF"));
    EXPECT_THAT(values(0, "Imphash"), ElementsAre("EF"));
    EXPECT_THAT(values(0, "sha256"), ElementsAre("CD"));
    EXPECT_THAT(values(0, "EventID"), ElementsAre("1"));
    EXPECT_THAT(values(0, "Computer"), ElementsAre("pc"));
    EXPECT_THAT(values(0, "Provider_Name"), ElementsAre("Microsoft-Windows-Sysmon"));
    for (const char* const none : {"Flag", "TargetFilename", "DestinationIp"})
        EXPECT_THAT(values(0, none), IsEmpty()) << none;
    EXPECT_THAT(values(1, "Hashes"), ElementsAre("MD5=AB,SHA256=CD"));
    EXPECT_THAT(values(1, "ParentImage"), IsEmpty());
    EXPECT_THAT(values(2, "DestinationPort"), ElementsAre("443"));
    EXPECT_THAT(values(2, "Protocol"), AllOf(Contains("tcp"), Contains("6")));
    EXPECT_THAT(values(3, "TargetObject"),
                ElementsAre("HKEY_LOCAL_MACHINE\\Soft\\x", "HKLM\\Soft\\x",
                            "\\REGISTRY\\MACHINE\\Soft\\x"));
    EXPECT_THAT(values(3, "Details"), ElementsAre("DWORD (0x00000001)"));
}

TEST(RuleEvent, HasTheNamesOfAuditEvents) {
    const std::string security =
        R"("Channel":"Security","Computer":"pc","TimeCreated":"2026-03-02T09:15:03Z",)";
    const auto records = RecordsOf(
        {R"({"EventID":4688,)" + security +
             R"("NewProcessName":"C:\\a.exe","ParentProcessName":"C:\\p.exe","CommandLine":"a b",)"
             R"("ProcessId":"0x1f4","NewProcessId":"0x258"})",
         R"({"EventID":4657,)" + security +
             R"("ProcessName":"C:\\a.exe","ObjectName":"\\REGISTRY\\MACHINE\\Soft",)"
             R"("ObjectValueName":"x","NewValue":"1","NewValueType":"%%1873"})",
         R"({"EventID":7045,"Channel":"System","TimeCreated":"2026-03-02T09:15:03Z",)"
         R"("ServiceName":"s","ImagePath":"C:\\s.exe","StartType":"demand start",)"
         R"("ServiceType":"user mode service","SourceName":"Service Control Manager"})"});
    ASSERT_EQ(records.size(), 3U);
    const auto values = [&](std::size_t record, const std::string& field) {
        return RuleView({}, records[record]).Values(field);
    };
    EXPECT_THAT(values(0, "NewProcessName"), ElementsAre("C:\\a.exe"));
    EXPECT_THAT(values(0, "NewProcessId"), Contains("0x258"));
    EXPECT_THAT(values(0, "Image"), ElementsAre("C:\\a.exe"));
    EXPECT_THAT(values(0, "ParentImage"), ElementsAre("C:\\p.exe"));
    EXPECT_THAT(values(1, "ObjectName"), Contains("\\REGISTRY\\MACHINE\\Soft"));
    EXPECT_THAT(values(1, "ObjectValueName"), ElementsAre("x"));
    EXPECT_THAT(values(1, "NewValueType"), Contains("%%1873"));
    EXPECT_THAT(values(1, "TargetObject"), Contains("HKLM\\Soft\\x"));
    EXPECT_THAT(values(2, "StartType"), Contains("demand start"));
    EXPECT_THAT(values(2, "ServiceType"), Contains("user mode service"));
    EXPECT_THAT(values(2, "Provider_Name"), ElementsAre("Service Control Manager"));

    const LogSource category{"process_creation", "windows", ""};
    EXPECT_FALSE(RuleView(category, records[0]).IsMeant());
    EXPECT_TRUE(RuleView(category, records[0], {true}).IsMeant());
    EXPECT_TRUE(RuleView({"", "windows", "security"}, records[0]).IsMeant());
    EXPECT_FALSE(RuleView({"", "windows", "security"}, records[2]).IsMeant());
}

TEST(RuleEvent, HasThemForOtherSenders) {
    const auto records = RecordsOf(
        {R"({"@timestamp":"2026-03-02T09:15:03.000Z","ecs":{"version":"8.10.0"},"event":)"
         R"({"category":["process"],"type":["start"]},"process":{"executable":"C:\\a.exe",)"
         R"("command_line":"a b","pe":{"original_file_name":"A.EXE"},"parent":{"executable":"C:\\p.exe"}},"user":{"name":"ann"}})",
         R"(type=SYSCALL msg=audit(1772443205.107:107): arch=c000003e syscall=59 success=yes )"
         R"(exit=0 a0=5 pid=2301 comm="cat" exe="/usr/bin/cat" key=(null))",
         R"(type=EXECVE msg=audit(1772443205.107:107): argc=2 a0="cat" a1="/etc/shadow")"});
    ASSERT_EQ(records.size(), 2U);
    const std::string record = records[0], members = R"("unmapped":{)";
    for (const std::string told : {"", R"("host.os.type":"macos",)", R"("device.os.type":"macOS",)",
                                   R"("host.os.platform":"darwin",)"}) {
        std::string from = record;
        from.insert(from.find(members) + members.size(), told);
        for (const char* const product : {"windows", "macos", ""})
            EXPECT_EQ(RuleView({"process_creation", product, ""}, from).IsMeant(),
                      told.empty() || product != std::string("windows"))
                << told << product;
    }
    EXPECT_FALSE(RuleView({"file_event", "windows", ""}, records[0]).IsMeant());
    RuleView ecs({}, records[0]);
    EXPECT_THAT(ecs.Values("Image"), ElementsAre("C:\\a.exe"));
    EXPECT_THAT(ecs.Values("process.executable"), ElementsAre("C:\\a.exe"));
    EXPECT_THAT(ecs.Values("ParentImage"), ElementsAre("C:\\p.exe"));
    EXPECT_THAT(ecs.Values("User"), ElementsAre("ann"));
    EXPECT_THAT(ecs.Values("OriginalFileName"), ElementsAre("A.EXE"));

    EXPECT_TRUE(RuleView({"process_creation", "linux", ""}, records[1]).IsMeant());
    EXPECT_TRUE(RuleView({"", "linux", "auditd"}, records[1]).IsMeant());
    EXPECT_FALSE(RuleView({"process_creation", "windows", ""}, records[1]).IsMeant());
    RuleView audit({}, records[1]);
    EXPECT_THAT(audit.Values("Image"), ElementsAre("/usr/bin/cat"));
    EXPECT_THAT(audit.Values("exe"), Contains("/usr/bin/cat"));
    EXPECT_THAT(audit.Values("type"), Contains("EXECVE"));
    EXPECT_THAT(audit.Values("a1"), Contains("/etc/shadow"));
}

TEST(RuleEvent, NeedsNoSource) {
    MappingOptions bare;
    bare.writesUnmapped = false;
    const auto records = RecordsOf({Sysmon(11, R"("TargetFilename":"C:\\x")")}, bare);
    RuleView view({"file_event", "windows", ""}, records.at(0));
    EXPECT_TRUE(view.IsMeant());
    EXPECT_THAT(view.Values("TargetFilename"), ElementsAre("C:\\x"));
    EXPECT_THAT(view.Values("Image"), ElementsAre("C:\\a.exe"));
    for (const char* const bad : {"", "[]", "{", R"({"artifacts":1,"unmapped":[],"source":""})"}) {
        RuleEvent event(view.vocabulary);
        if (event.Read(bad)) {
            EXPECT_FALSE(event.IsOf(view.id));
            EXPECT_THAT(event.ValuesOf(0), IsEmpty());
            EXPECT_TRUE(event.Time().empty());
        }
    }
}

TEST(RuleEvent, GivesEveryValue) {
    const auto records = RecordsOf({Sysmon(11, R"("TargetFilename":"C:\\x","tags":["t",5])")});
    RuleView view({}, records.at(0));
    RuleEvent event(view.vocabulary);
    ASSERT_TRUE(event.Read(view.text));
    std::vector<std::string> all;
    EXPECT_FALSE(event.AnyValue([&](std::string_view value) {
        all.emplace_back(value);
        return false;
    }));
    EXPECT_THAT(all, AllOf(Contains("C:\\x"), Contains("t"), Contains("5"), Contains("11")));
    EXPECT_THAT(all, testing::Not(Contains("file")));
    EXPECT_EQ(event.Time(), "2026-03-02T09:15:03.123Z");
}

// Each field of a source event stands under its own name, with the text that it has there. Of what
// the collector has added, and of its own times and numbers, no rule speaks.
class SourceEvents {
public:
    SourceEvents() {
        std::string problem;
        EXPECT_TRUE(vocabulary_.AddSource({"", "", "sysmon"}, &sysmon_, &problem));
    }
    // Every n-th line.
    void ReadSample(const std::string& path, std::size_t n) {
        const ReadInput input(path, {}, "record");  // which takes lines as they are
        for (const bool isAsked : {false, true}) {
            RuleEvent event(vocabulary_);
            for (std::size_t i = 0; i < input.asTheyAre.size(); i += n)
                ReadLine(input.asTheyAre[i], isAsked ? &event : nullptr);
        }
    }
    std::size_t values = 0;

private:
    void ReadLine(const std::string& line, RuleEvent* event) {
        fields_.Clear();
        ASSERT_TRUE(json_.Read(line, &fields_));
        if (fields_.Has("SyslogMessage"))
            return;  // in which the event is, as XML
        fields_.SetScope(fields_.Has("event_data") ? "event_data." : "");
        const auto records = event != nullptr ? RecordsOf({line}) : std::vector<std::string>();
        if (event != nullptr && (records.empty() || !event->Read(records[0])))
            return;
        for (const SourceField& field : fields_.All()) {
            const std::string_view name = field.name;
            if (!name.starts_with(fields_.Scope()) || field.text == "null" || IsOfCollector(name))
                continue;
            const FieldId id = vocabulary_.AddField(name.substr(fields_.Scope().size()));
            if (event == nullptr)
                continue;
            const auto seen = event->ValuesOf(id);
            ++values;
            EXPECT_NE(std::find(seen.begin(), seen.end(), field.text), seen.end())
                << name << " of " << records[0];
        }
        if (event != nullptr && event->IsOf(sysmon_))
            NothingElse(*event);
    }
    // Nothing is made up, either.
    void NothingElse(RuleEvent& event) {
        for (FieldId id = 0; id < vocabulary_.Fields(); ++id) {
            const std::string_view name = vocabulary_.FieldName(id);
            if (name[0] < 'A' || name[0] > 'Z' || IsOfEveryEvent(name) ||
                fields_.Find(name) != nullptr)
                continue;
            EXPECT_THAT(event.ValuesOf(id), IsEmpty()) << name;
        }
    }
    bool IsOfCollector(std::string_view name) {
        return Is(name, "RecordNumber|TimeCreated|@timestamp") ||
               (name == "EventType" && fields_.Has("EventReceivedTime"));
    }

    RuleVocabulary vocabulary_{{}};
    SourceId sysmon_ = 0;
    JsonFields json_;
    SourceFields fields_;
};

TEST(RuleEvent, HasTheTextOfTheSource) {
    SourceEvents events;
    events.ReadSample(ZEL_EXAMPLES "/raw.ndjson.xz", 1);
    // The whole sample, where it is at hand; it is too large to be kept here.
    if (const char* const folder = std::getenv("ZEL_SOURCE_SAMPLES"))
        events.ReadSample(std::string(folder) + "/raw_sample.ndjson.xz", 5);
    EXPECT_GT(events.values, 1000U);
}

TEST(RuleVocabulary, KnowsLogSources) {
    struct Case {
        LogSource source;
        std::string narrowing;  // or the problem
    };
    const Case cases[] = {
        {{"process_creation", "windows", ""}, "process:launch etw:generic"},
        {{"registry_delete", "windows", ""}, "reg_key:delete reg_value:delete"},
        {{"network_connection", "linux", ""}, "network:connect,accept etw:generic"},
        {{"wmi_event", "windows", ""}, "etw:generic"},
        {{"file_rename", "windows", ""}, "file:rename"},
        {{"ps_script", "windows", ""}, "etw:generic"},
        {{"", "windows", "system"}, "etw:generic service:"},
        {{"", "windows", ""}, ":"},
        {{"", "linux", "auditd"}, ":"},
        {{"proxy", "", ""}, "no format gives events of category proxy"},
        {{"", "aws", "cloudtrail"}, "no format gives events of product aws"},
        {{"", "windows", "bitlocker"}, "etw:generic"},
        {{"", "linux", "sshd"}, "no format gives events of service sshd"},
        {{"", "windows", "auditd"}, "no format gives events of service auditd"},
    };
    for (const Case& each : cases) {
        RuleVocabulary vocabulary({});
        SourceId id = 0;
        std::string told;
        if (vocabulary.AddSource(each.source, &id, &told))
            for (const Narrowing& narrowing : vocabulary.NarrowingsOf(id)) {
                told += (told.empty() ? "" : " ") + narrowing.object + ":";
                for (const std::string& action : narrowing.actions)
                    told += (told.ends_with(':') ? "" : ",") + action;
            }
        EXPECT_EQ(told, each.narrowing);
    }
}

TEST(RuleVocabulary, TellsWhereAFieldStands) {
    RuleVocabulary vocabulary({});
    SourceId launch = 0, value = 0, security = 0;
    std::string problem;
    ASSERT_TRUE(vocabulary.AddSource({"process_creation", "windows", ""}, &launch, &problem));
    ASSERT_TRUE(vocabulary.AddSource({"registry_set", "windows", ""}, &value, &problem));
    ASSERT_TRUE(vocabulary.AddSource({"", "windows", "security"}, &security, &problem));
    struct Case {
        SourceId source;
        std::string field;
        FieldStanding standing;
        std::string place, part, certain;
    };
    using enum FieldStanding;
    const Case cases[] = {
        {launch, "Image", key, "target_path", "\\a.exe", "\\a.exe"},
        {launch, "ParentImage", key, "actor_path", "x", "x"},
        {launch, "CommandLine", column, "target_cmd_line", "-enc", "-enc"},
        {launch, "OriginalFileName", kept, "unmapped.OriginalFileName", "A.EXE", "A.EXE"},
        {launch, "Hashes", kept, "unmapped.Hashes", "IMPHASH=0123456789", "0123456789"},
        {launch, "ProcessId", column, "target_pid", "4", ""},
        {launch, "ProcessGuid", column, "target_uid", "{AB}", "AB"},
        {launch, "EventID", column, "source.event_id", "1", "1"},
        {launch, "TargetObject", never, "", "x", "x"},
        {launch, "process.args", kept, "unmapped.process.args", "x", "x"},
        {value, "CommandLine", never, "", "x", "x"},
        {value, "TargetObject", key, "target_path", "HKLM\\Soft", "\\Soft"},
        {value, "TargetObject", key, "target_path", "\\Machine\\Soft", "\\Soft"},
        {value, "TargetObject", key, "target_path", "Explorer", "Explorer"},
        {value, "TargetObject", key, "target_path", "\\REG", ""},
        {security, "SubjectUserName", kept, "unmapped.SubjectUserName", "x", "x"},
    };
    for (const Case& each : cases) {
        const FieldId field = vocabulary.AddField(each.field);
        EXPECT_EQ(vocabulary.StandingOf(each.source, field), each.standing) << each.field;
        EXPECT_EQ(vocabulary.PlaceOf(each.source, field), each.place) << each.field;
        EXPECT_EQ(vocabulary.CertainPart(each.source, field, each.part), each.certain)
            << each.field << " " << each.part;
    }
}

}  // namespace
}  // namespace zel
