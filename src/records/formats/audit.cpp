#include "records/formats/audit.h"

#include <array>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "records/eventtime.h"
#include "records/formats/auditjoiner.h"
#include "records/formats/auditline.h"
#include "records/formats/auditpath.h"
#include "records/formats/auditsyscalls.h"
#include "records/formats/audittable.h"

// From the lines of an event to its fields. A field is named by the type of its line and its own
// name, TYPE.name. An event has several PATH lines, so these are named by what the path was to the
// call as well: PATH.PARENT.name, PATH.CREATE.name; a second one of a kind is PATH.PARENT.1.name,
// and so are further lines of any other type.
//
// Values become what they stand for: encoded text is decoded, numbers of system calls become their
// names, paths are joined with the folder that they start from, and the bytes of a socket's address
// become address and port, under the names that auditd gives them when it does the same.

namespace zel {

namespace {

constexpr std::string_view noValue = "(null)";
constexpr std::array encodedNames{
    std::string_view{"acct"},     std::string_view{"cmd"},      std::string_view{"comm"},
    std::string_view{"cwd"},      std::string_view{"data"},     std::string_view{"device"},
    std::string_view{"dir"},      std::string_view{"exe"},      std::string_view{"file"},
    std::string_view{"grp"},      std::string_view{"key"},      std::string_view{"name"},
    std::string_view{"ocomm"},    std::string_view{"path"},     std::string_view{"proctitle"},
    std::string_view{"vm"},       std::string_view{"old-disk"}, std::string_view{"new-disk"},
    std::string_view{"root_dir"}, std::string_view{"watch"}};

bool IsEncoded(std::string_view name) {
    for (const std::string_view one : encodedNames) {
        if (one == name)
            return true;
    }
    return false;
}

// What ausearch puts ahead of each event.
bool IsBetweenEvents(std::string_view line) {
    return line == "----" || line.starts_with("time->");
}

// "a0", and "a1[2]" for a piece of a long argument; none for other fields.
std::optional<std::string_view> ArgumentOf(std::string_view name) {
    const std::string_view argument = name.substr(0, name.find('['));
    const bool isArgument = argument.size() > 1 && argument[0] == 'a' &&
                            argument.find_first_not_of("0123456789", 1) == argument.npos;
    return isArgument ? std::optional(argument) : std::nullopt;
}

class AuditSource final : public LineSource {
public:
    explicit AuditSource(Mapper& mapper) : mapper_(mapper) {}

    void Give(const SourceLine& line) override;
    void End() override { joiner_.Finish(); }
    std::uint64_t HeldFrom() const noexcept override { return joiner_.FirstLine(); }
    bool Next(SourceItem* item) override;

private:
    struct Refusal {
        std::uint64_t line = 0;
        std::string_view reason;
        std::string detail;
    };

    void Map(SourceItem* item);
    void AddLine(const AuditLine& line);
    std::string_view PrefixOf(const AuditLine& line);
    void AddField(const AuditLine& line, std::string_view prefix, const AuditField& field);
    void AddEnriched(const AuditLine& line, std::string_view prefix);
    void JoinArguments();
    void NameCall();
    void ResolvePaths();
    void ReadAddress();
    SourceField* FindText(std::string_view name);
    std::string_view TextOf(std::string_view name);

    Mapper& mapper_;
    AuditJoiner joiner_;
    AuditSyscalls syscalls_;
    std::optional<Refusal> refusal_;

    AuditEvent event_;
    SourceFields fields_;
    std::vector<AuditField> lineFields_;  // of one line; kept for its memory
    std::string words_;
    std::vector<std::pair<std::string_view, int>> prefixCounts_;
};

void AuditSource::Give(const SourceLine& line) {
    if (IsBetweenEvents(line.text)) {
        joiner_.Finish();
        return;
    }
    std::string_view reason;
    const auto parsed = ParseAuditLine(line.text, reason);
    if (parsed)
        joiner_.Add(line.text, *parsed, line.number);
    else
        refusal_ = Refusal{line.number, reason, std::string(line.text.substr(0, 200))};
}

bool AuditSource::Next(SourceItem* item) {
    item->Clear();
    if (refusal_) {
        item->place = refusal_->line;
        item->problem = refusal_->reason;
        item->detail = std::move(refusal_->detail);
        refusal_.reset();
        return true;
    }
    if (!joiner_.Take(event_))
        return false;
    item->place = event_.firstLine;
    Map(item);
    return true;
}

void AuditSource::Map(SourceItem* item) {
    fields_.Clear();
    prefixCounts_.clear();
    std::optional<AuditLine> main;
    for (std::size_t i = 0; i < event_.lineStarts.size(); ++i) {
        std::string_view reason;
        const auto line = ParseAuditLine(event_.Line(i), reason);
        if (!line)
            continue;
        if (!main || line->type == "SYSCALL")
            main = line;
        AddLine(*line);
    }
    if (!main)
        return;
    NameCall();
    ResolvePaths();
    ReadAddress();
    JoinArguments();

    EventHead head;
    head.format = "audit";
    head.channel = main->type;
    head.eventName = TextOf("SYSCALL.syscall");
    head.computer = main->stamp.node;
    head.recordNumber = main->stamp.serial;
    constexpr std::uint64_t mostSeconds = 1ULL << 40;
    std::optional<EventTime> time;
    if (main->stamp.seconds < mostSeconds) {
        time = EventTimeOfMilliseconds(static_cast<std::int64_t>(main->stamp.seconds) * 1000 +
                                       main->stamp.milliseconds);
    }
    if (time)
        head.time = time->text;
    mapper_.Map(auditTable, head, fields_, item);
}

void AuditSource::AddLine(const AuditLine& line) {
    lineFields_.clear();
    words_.clear();
    ParseAuditFields(line.body, lineFields_, words_);
    const std::string_view prefix = PrefixOf(line);
    if (!words_.empty())
        fields_.AddText(fields_.Keep(prefix, "words"), fields_.Keep(words_));
    for (const AuditField& field : lineFields_)
        AddField(line, prefix, field);
    if (!line.enriched.empty())
        AddEnriched(line, prefix);
}

// PATH lines are named by their role, which old kernels don't tell.
std::string_view AuditSource::PrefixOf(const AuditLine& line) {
    std::string_view prefix = fields_.Keep(line.type, ".");
    if (line.type == "PATH") {
        std::string_view role = "NORMAL";
        for (const AuditField& field : lineFields_) {
            if (field.name == "nametype" || field.name == "objtype")
                role = field.value;
        }
        prefix = fields_.Keep(fields_.Keep(prefix, role), ".");
    }
    for (auto& [known, count] : prefixCounts_) {
        if (known == prefix)
            return fields_.Keep(prefix, std::to_string(++count - 1) + ".");
    }
    prefixCounts_.emplace_back(prefix, 1);
    return prefix;
}

void AuditSource::AddField(const AuditLine& line, std::string_view prefix,
                           const AuditField& field) {
    const std::string_view name = fields_.Keep(prefix, field.name);
    if (!field.quoted && field.value == noValue) {
        fields_.AddText(name, {}).taken = true;
        return;
    }
    const bool isArgument = line.type == "EXECVE" && ArgumentOf(field.name).has_value();
    const bool isEncoded = !field.quoted && (isArgument || IsEncoded(field.name));
    // The arguments in a title end with NULs.
    fields_.AddText(name,
                    isEncoded ? fields_.Keep(DecodeAuditText(field.value, ' ')) : field.value);
}

void AuditSource::AddEnriched(const AuditLine& line, std::string_view prefix) {
    lineFields_.clear();
    words_.clear();
    ParseAuditFields(line.enriched, lineFields_, words_);
    for (const AuditField& field : lineFields_)
        AddField(line, prefix, field);
}

SourceField* AuditSource::FindText(std::string_view name) {
    SourceField* const field = fields_.FindWhole(name);
    return field == nullptr || field->IsAbsent() ? nullptr : field;
}

std::string_view AuditSource::TextOf(std::string_view name) {
    const SourceField* const field = FindText(name);
    return field == nullptr ? std::string_view{} : field->text;
}

// auditd itself may have looked the name up.
void AuditSource::NameCall() {
    SourceField* const number = FindText("SYSCALL.syscall");
    const SourceField* const arch = FindText("SYSCALL.arch");
    if (number == nullptr || arch == nullptr)
        return;
    SourceField* const known = FindText("SYSCALL.SYSCALL");
    const std::string_view name =
        known != nullptr ? known->text : syscalls_.Name(arch->text, number->text);
    if (name.empty())
        return;
    number->text = fields_.Keep(name);
    if (known != nullptr)
        known->taken = true;
}

// A path that starts nowhere starts in the current folder, unless the call was given another folder
// to start from, by a number that means nothing to us.
void AuditSource::ResolvePaths() {
    const std::string_view cwd = TextOf("CWD.cwd");
    const std::string_view call = TextOf("SYSCALL.syscall");
    const bool isAt = call.ends_with("at") || call.ends_with("at2");
    const bool startsHere = !cwd.empty() && (!isAt || IsCurrentFolder(TextOf("SYSCALL.a0")));
    for (std::size_t i = 0; i < fields_.All().size(); ++i) {
        const SourceField field = fields_.All()[i];
        if (!field.name.starts_with("PATH.") || !field.name.ends_with(".name") || field.IsAbsent())
            continue;
        const bool isRelative = !field.text.starts_with('/');
        if (isRelative && !startsHere)
            continue;
        const std::string path = AbsolutePath(isRelative ? cwd : "/", field.text);
        if (path == field.text)
            continue;
        fields_.All()[i].text = fields_.Keep(path);
        if (!path.ends_with(field.text)) {
            const std::string_view stem = field.name.substr(0, field.name.rfind('.') + 1);
            fields_.AddText(fields_.Keep(stem, "given"), field.text);
        }
    }
}

void AuditSource::ReadAddress() {
    SourceField* const bytes = FindText("SOCKADDR.saddr");
    if (bytes == nullptr)
        return;
    const auto address = ReadSocketAddress(bytes->text);
    if (!address)
        return;
    bytes->taken = address->isWhole;
    // auditd's own reading of the same bytes.
    if (SourceField* const known = FindText("SOCKADDR.SADDR"))
        known->taken = true;
    fields_.AddText("SOCKADDR.saddr_fam", address->family);
    if (!address->address.empty()) {
        fields_.AddText("SOCKADDR.laddr", fields_.Keep(address->address));
        fields_.AddText("SOCKADDR.lport", fields_.Keep(address->port));
    }
    if (!address->path.empty())
        fields_.AddText("SOCKADDR.path", fields_.Keep(address->path));
}

// The command line. Its parts stay in `unmapped` when it does not tell where one ends.
void AuditSource::JoinArguments() {
    std::string line;
    std::string_view last;
    bool isPlain = true;
    std::vector<std::size_t> parts;
    for (std::size_t i = 0; i < fields_.All().size(); ++i) {
        const SourceField& field = fields_.All()[i];
        if (!field.name.starts_with("EXECVE."))
            continue;
        const auto argument = ArgumentOf(field.name.substr(field.name.rfind('.') + 1));
        if (!argument)
            continue;
        if (!parts.empty() && *argument != last)
            line += ' ';
        isPlain = isPlain && !field.text.empty() && field.text.find(' ') == field.text.npos;
        line += field.text;
        last = *argument;
        parts.push_back(i);
    }
    if (parts.empty())
        return;
    // An execve without a program to be named has no row, so nothing of it may be left out.
    const bool isMapped = TextOf("SYSCALL.success") == "yes" && !TextOf("SYSCALL.exe").empty();
    for (const std::size_t part : parts)
        fields_.All()[part].taken = isPlain && isMapped;
    fields_.AddText("EXECVE.cmdline", fields_.Keep(line)).taken = isMapped;
}

}  // namespace

bool KnowsAudit(const SourceLine& line) {
    if (line.fields != nullptr)
        return false;
    if (IsBetweenEvents(line.text))
        return true;
    const auto stamp = line.text.find(" msg=audit(");
    return stamp != line.text.npos && line.text.substr(0, stamp).find("type=") != line.text.npos;
}

std::unique_ptr<LineSource> MakeAudit(Mapper& mapper) {
    return std::make_unique<AuditSource>(mapper);
}

}  // namespace zel
