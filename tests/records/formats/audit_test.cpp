#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "records/formats/auditjoiner.h"
#include "records/formats/auditline.h"
#include "records/formats/auditpath.h"
#include "records/formats/auditsyscalls.h"
#include "records/formats/readall.h"

namespace zel {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

std::string Fields(std::string_view body) {
    std::vector<AuditField> fields;
    std::string words, all;
    ParseAuditFields(body, fields, words);
    for (const AuditField& field : fields) {
        all.append(field.name).append(field.quoted ? ":" : "=").append(field.value).append(";");
    }
    return all + words;
}

TEST(AuditLine, Fields) {
    const std::pair<const char*, const char*> cases[] = {
        {"a=1 b=\"x y\" c=", "a=1;b:x y;c=;"},
        {"pid=1 msg='op=login acct=\"ann\" res=success'", "pid=1;op=login;acct:ann;res=success;"},
        {"msg='cmd=\"it's\" x=1'", "cmd:it's;x=1;"},
        {"msg='a='b='c=1'''", "a=b='c=1';"},
        {"avc:  denied  { read } for  pid=1", "pid=1;avc: denied { read } for"},
        {"config changed, auid=0", "auid=0;config changed,"},
        {"SADDR={ saddr_fam=inet lport=80 }", "SADDR={ saddr_fam=inet lport=80 };"},
        {"key=\"unended", "key:unended;"},
        {"=x '", "= x '"},
    };
    for (const auto& [body, expected] : cases)
        EXPECT_EQ(Fields(body), expected) << body;
}

TEST(AuditLine, Stamp) {
    std::string_view reason;
    const auto line = ParseAuditLine(
        "Mar 2 host: node=web type=PATH msg=audit(1772443205.101:7): item=0\x1dOUID=\"r\"", reason);
    ASSERT_TRUE(line);
    EXPECT_EQ(line->stamp, (AuditStamp{1772443205, 101, 7, "web"}));
    EXPECT_EQ(line->type, "PATH");
    EXPECT_EQ(line->enriched, "OUID=\"r\"");
    for (const char* bad :
         {"", "type=A", "type=UNKNOWN[1329] msg=?", "msg=audit(1.0:1): a=b",
          "type=A msg=audit(1.0:1", "type=A msg=audit(1.1000:1): ", "type=A msg=audit(x.0:1): ",
          "type=A msg=audit(1.0:-1): ", "type=A msg=audit(99999999999999999999.0:1): "})
        EXPECT_FALSE(ParseAuditLine(bad, reason)) << bad;
}

TEST(AuditLine, Decoding) {
    EXPECT_EQ(DecodeAuditText("2F7573", ' '), "/us");
    EXPECT_EQ(DecodeAuditText("6100C3A4FFC3", '+'), "a+\xC3\xA4\\xFF\\xC3");
    EXPECT_EQ(DecodeAuditText("EDA080F4908080C080E09F80", ' '),
              R"(\xED\xA0\x80\xF4\x90\x80\x80\xC0\x80\xE0\x9F\x80)");
    EXPECT_EQ(DecodeAuditText("abc", ' '), "abc");
    EXPECT_EQ(DecodeAuditText("65786563\"", ' '), "65786563\"");
}

TEST(AuditPath, IsMadeAbsolute) {
    EXPECT_EQ(AbsolutePath("/home/ann", "a"), "/home/ann/a");
    EXPECT_EQ(AbsolutePath("/home/ann/", "./x/../../b/"), "/home/b/");
    EXPECT_EQ(AbsolutePath("/", "../.."), "/");
}

TEST(AuditPath, Addresses) {
    const auto text = [](std::string_view hex) {
        const auto address = ReadSocketAddress(hex);
        return !address ? "none"
                        : std::string(address->family) + " " + address->address + " " +
                              address->port + " " + address->path;
    };
    EXPECT_EQ(text("02000050A9FEA9FE0000000000000000"), "inet 169.254.169.254 80 ");
    EXPECT_EQ(text("0A000016000000000000000000000000000000000000000100000000"), "inet6 ::1 22 ");
    EXPECT_EQ(text("01002F72756E00FF"), "local   /run");
    EXPECT_EQ(text("0100006162"), "local   @ab");
    for (const char* bad :
         {"", "0200", "020000", "02000050A9FE", "0A0000160000", "1000000000000000", "zz", "020"})
        EXPECT_EQ(text(bad), "none") << bad;
}

TEST(AuditSyscalls, Names) {
    AuditSyscalls names;
    EXPECT_EQ(names.Name("c000003e", "59"), "execve");
    EXPECT_EQ(names.Name("40000003", "11"), "execve");
    EXPECT_EQ(names.Name("c00000b7", "35"), "unlinkat");
    for (const auto& [arch, number] : {std::pair("c000003e", "9999"), std::pair("deadbeef", "5"),
                                       std::pair("", "5"), std::pair("c000003e", "5 x=")})
        EXPECT_EQ(names.Name(arch, number), "") << arch << " " << number;
}

// The numbers of the lines of each event that comes out.
class Joining : public testing::Test {
protected:
    explicit Joining(const AuditJoiner::Limits& limits = {}) : joiner(limits) {}

    void Add(const std::string& type, const std::string& stamp, const std::string& more = {}) {
        const std::string line = "type=" + type + " msg=audit(" + stamp + "): a=1" + more;
        std::string_view reason;
        joiner.Add(line, *ParseAuditLine(line, reason), ++lines);
    }
    std::vector<std::string> Taken() {
        std::vector<std::string> taken;
        for (AuditEvent event; joiner.Take(event);)
            taken.push_back(std::to_string(event.firstLine) + "+" +
                            std::to_string(event.lineStarts.size()));
        return taken;
    }

    AuditJoiner joiner;
    std::uint64_t lines = 0;
};

TEST_F(Joining, LinesApart) {
    Add("SYSCALL", "10.000:1");
    Add("SYSCALL", "10.000:2");
    Add("CWD", "10.000:1");
    Add("USER_LOGIN", "10.001:3");
    Add("PATH", "10.000:2");
    EXPECT_THAT(Taken(), ElementsAre("4+1")) << "what programs send is complete at once";
    Add("EOE", "10.000:2");
    EXPECT_THAT(Taken(), ElementsAre("2+2"));
    Add("SYSCALL", "99.000:2");
    Add("PROCTITLE", "10.000:1");
    Add("PROCTITLE", "99.000:2");
    EXPECT_THAT(Taken(), ElementsAre("1+3", "7+2")) << "a call and its title, and no paths to come";
    Add("EOE", "10.000:1");
    joiner.Finish();
    EXPECT_THAT(Taken(), ElementsAre()) << "nothing but an end";
}

TEST_F(Joining, TitleAheadOfOtherLines) {
    Add("PROCTITLE", "10.000:1");
    Add("SYSCALL", "10.000:1", " items=2");
    Add("SYSCALL", "10.000:2", " items=2");
    Add("PATH", "10.000:2");
    Add("PROCTITLE", "10.000:2");
    Add("PATH", "10.000:1");
    EXPECT_THAT(Taken(), ElementsAre());
    joiner.Finish();
    EXPECT_THAT(Taken(), ElementsAre("1+3", "3+3"));
}

class BoundedJoining : public Joining {
protected:
    BoundedJoining()
        : Joining({.events = 3,
                   .bytes = 150,
                   .eventLines = 4,
                   .eventBytes = 1000,
                   .agingEvents = 1,
                   .ageMs = 2000}) {}
};

TEST_F(BoundedJoining, GivesTheOldestAway) {
    for (int i = 1; i <= 4; ++i)
        Add("SYSCALL", "10.000:" + std::to_string(i));
    EXPECT_THAT(Taken(), ElementsAre("1+1")) << "too many events";
    for (int i = 0; i < 2; ++i)
        Add("PATH", "10.000:4");
    EXPECT_THAT(Taken(), ElementsAre("2+1")) << "too many bytes";
    Add("PATH", "12.001:5");
    EXPECT_THAT(Taken(), ElementsAre("3+1")) << "old";
    Add("PATH", "3.000:6");
    EXPECT_THAT(Taken(), ElementsAre("4+3")) << "an older log begins";
    for (int i = 0; i < 3; ++i)
        Add("PATH", "3.000:6");
    EXPECT_THAT(Taken(), ElementsAre("7+1", "8+4")) << "too many lines of one";
}

// Real logs, one that has an event of each kind and one whose lines are mixed.
TEST(Audit, RealLogs) {
    struct Log {
        const char* file;
        std::size_t items;
        std::size_t refused;
        std::vector<std::string> parts;
    };
    const Log logs[] = {
        {"audit/audit-rhel7.log",
         47,
         1,
         {R"("action":["logon"])", R"("action":["logoff"])", R"("action":["open"])",
          R"(no rule: CONFIG_CHANGE )"}},
        {"audit/test3.log", 10, 0, {"no rule: SYSCALL rt_sigaction", "no rule: SYSCALL select"}},
    };
    for (const Log& log : logs) {
        ReadAll read("audit");
        read.File(std::string(ZEL_RECORD_DATA "/") + log.file);
        EXPECT_EQ(read.items.size(), log.items);
        const auto refused = std::count_if(
            read.items.begin(), read.items.end(),
            [](const std::string& item) { return item.find(": refused: ") != item.npos; });
        EXPECT_EQ(static_cast<std::size_t>(refused), log.refused);
        for (const std::string& part : log.parts)
            EXPECT_THAT(read.items, testing::Contains(HasSubstr(part)));
    }
}

// An event of which lines are missing keeps what there is.
TEST(Audit, IncompleteEvents) {
    ReadAll read("audit", {.keepsAll = true});
    read.Line("type=EXECVE msg=audit(1772443205.101:7): argc=2 a0=\"ls\" a1=2D6C");
    read.Line(
        "type=SYSCALL msg=audit(1772443205.102:8): arch=c000003e syscall=59 success=yes pid=1");
    read.Line("type=SYSCALL msg=audit(999999999999.102:9): arch=c000003e");
    read.Line("no line of a log");
    read.Line("----");
    read.Line("time->Mon Mar  2 09:20:05 2026");
    EXPECT_EQ(read.items.size(), 4U) << "what ausearch writes between events ends them";
    read.End();
    EXPECT_THAT(read.items,
                ElementsAre("4: refused: no type=... msg=audit(TIME:NUMBER)",
                            AllOf(HasSubstr(R"("cmd_line":{"value":["ls -l"]})"),
                                  HasSubstr(R"("EXECVE.a0":"ls","EXECVE.a1":"-l")")),
                            HasSubstr(R"("SYSCALL.syscall":"execve","SYSCALL.success":"yes")"),
                            HasSubstr("3: refused: no time")));
}

// The path of what the call opened, and whether the log's own words for it are kept.
TEST(Audit, RelativePaths) {
    struct Case {
        const char* folder;  // the call's first argument
        const char* name;
        const char* path;
        bool isGivenKept;
    };
    for (const Case& one :
         {Case{"ffffff9c", "x", "/home/ann/x", false},
          Case{"ffffff9c", "../../etc/./passwd", "/etc/passwd", true},
          Case{"ffffff9c", "/etc//passwd", "/etc/passwd", true}, Case{"3", "x", "x", false}}) {
        ReadAll read("audit");
        const std::string stamp = " msg=audit(1772443205.101:7): ";
        read.Line("type=SYSCALL" + stamp + "arch=c000003e syscall=257 success=yes a0=" +
                  one.folder + " a2=0 exe=\"/bin/cat\"");
        read.Line("type=CWD" + stamp + "cwd=\"/home/ann\"");
        for (int i = 0; i < 100; ++i)
            read.Line("type=PATH" + stamp + "name=\"../p\" nametype=PARENT");
        read.Line("type=PATH" + stamp + "name=\"" + one.name + "\" nametype=NORMAL");
        read.End();
        ASSERT_THAT(read.items, ElementsAre(HasSubstr("\"path\":{\"value\":[\"" +
                                                      std::string(one.path) + "\"]}")));
        const bool isKept = read.items[0].find("\"PATH.NORMAL.given\":\"") != std::string::npos;
        EXPECT_EQ(isKept, one.isGivenKept) << one.name;
    }
}

}  // namespace
}  // namespace zel
