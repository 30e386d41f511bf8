#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// One line of a Linux audit log, as auditd writes it and as its dispatcher passes it on. No line
// is copied; all views are into the text that the caller gave and live as long as that.
namespace zel {

// Which event a line belongs to. Lines of one event share all four.
struct AuditStamp {
    std::uint64_t seconds = 0;
    std::uint32_t milliseconds = 0;
    std::uint32_t serial = 0;
    std::string_view node;  // empty unless the log names the machine

    friend bool operator==(const AuditStamp&, const AuditStamp&) = default;
};

struct AuditLine {
    AuditStamp stamp;
    std::string_view type;      // such as SYSCALL
    std::string_view body;      // all behind the stamp
    std::string_view enriched;  // what auditd has looked up itself, behind its separator
};

// A field as it stands in the line. A quoted value is plain text, an unquoted one may be encoded.
struct AuditField {
    std::string_view name;
    std::string_view value;
    bool quoted = false;
};

// Takes a line without its end. Anything may stand ahead of the type, such as what syslog puts
// there. Null, and why in `reason`, for a line without type, time or number.
std::optional<AuditLine> ParseAuditLine(std::string_view line, std::string_view& reason);

// Appends the fields of a body in the order of the line, those within msg='...' among the others.
// Words that are no field are appended to `words`, with a blank between.
void ParseAuditFields(std::string_view body, std::vector<AuditField>& fields, std::string& words);

// The text that an unquoted value encodes as hexadecimal digits, and the value itself when it does
// not. Bytes that are no UTF-8 are written as \xHH, NULs as `gap`.
std::string DecodeAuditText(std::string_view value, char gap);

// The same for bytes that have been decoded already.
std::string AuditBytesToText(std::string_view bytes, char gap);

// Null unless the value is an even number of hexadecimal digits, at least two.
std::optional<std::string> AuditHexToBytes(std::string_view value);

}  // namespace zel
