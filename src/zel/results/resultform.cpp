#include "zel/results/resultform.h"

#include <cpprest/json.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <cstring>

#include "common/jsontext.h"
#include "records/formats/ocsf.h"
#include "zel/results/fieldforms.h"
#include "zel/terminal/textfit.h"

// A form turns one result after the other into text and keeps nothing, so that an answer of any
// length needs no memory. That is why a table can't make its columns as wide as what will stand in
// them: widths follow from the terminal, or are fixed.

namespace zel {

namespace {

using web::json::value;

// The event's text, with a member "key" in front of the others where a key was asked for, and in a
// fleet "host" ahead of it, since a key is a key of one host. They are put into the text and not
// into a parsed one, so that all else stays as it was stored.
std::string WithKey(const FoundEvent& event) {
    std::string text;
    text.reserve(event.text.size() + event.key.size() + event.host.size() + 32);
    const std::size_t brace = event.key.empty() ? event.text.npos : event.text.find('{');
    if (brace == event.text.npos)
        return text.append(event.text);
    text.append(event.text, 0, brace + 1);
    if (!event.host.empty())
        text.append("\"host\":").append(wm::JsonString(event.host)).append(",");
    return text.append("\"key\":")
        .append(wm::JsonString(event.key))
        .append(",")
        .append(event.text, brace + 1);
}

// The text as it came: nothing is read or made anew, so nothing can change.
class Lines final : public ResultForm {
public:
    std::string Row(const FoundEvent& event, bool) override { return WithKey(event).append("\n"); }
};

class Keys final : public ResultForm {
public:
    explicit Keys(bool isForTerminal) : isForTerminal_(isForTerminal) {}

    std::string Row(const FoundEvent& event, bool) override {
        return (isForTerminal_ ? Escaped(event.key) : std::string(event.key)).append("\n");
    }

private:
    const bool isForTerminal_;
};

// Whole only with its end: an answer that breaks off is no JSON, which a reader notices.
class OneArray final : public ResultForm {
public:
    std::string Row(const FoundEvent& event, bool isFirst) override {
        return std::string(isFirst ? "[\n" : ",\n").append(WithKey(event));
    }
    std::string End(bool isEmpty) override { return isEmpty ? "[]\n" : "\n]\n"; }
};

// One event of the common schema a line. What is no record, and so has no place in that, stands as
// it came.
class OcsfEvents final : public ResultForm {
public:
    std::string Row(const FoundEvent& event, bool) override {
        std::string row;
        const std::string text = WithKey(event);
        if (!writer_.Write(text, &row))
            row = text;
        return row.append("\n");
    }

private:
    OcsfWriter writer_;
};

// JSON of another form as a terminal may get it.
class OnTerminal final : public ResultForm {
public:
    explicit OnTerminal(std::unique_ptr<ResultForm> form) : form_(std::move(form)) {}

    std::string Row(const FoundEvent& event, bool isFirst) override {
        return EscapedJson(form_->Row(event, isFirst));
    }
    std::string End(bool isEmpty) override { return form_->End(isEmpty); }

private:
    const std::unique_ptr<ResultForm> form_;
};

const value* Find(const value& in, const char* key) {
    if (!in.is_object())
        return nullptr;
    const auto found = in.as_object().find(key);
    return found != in.as_object().end() ? &found->second : nullptr;
}

// The first value of a pair, as text; empty when there is none.
std::string FirstValue(const value& in, const char* key) {
    const value* found = Find(in, key);
    if (found != nullptr && found->is_object())
        found = Find(*found, "value");
    if (found != nullptr && found->is_array())
        found = found->size() != 0 ? &found->at(0) : nullptr;
    if (found == nullptr || found->is_null())
        return "";
    return found->is_string() ? found->as_string() : found->serialize();
}

// What a person would call it: the two ends of a connection, else the first of what tells most.
std::string NameOf(const value& artifact) {
    const std::string source = FirstValue(artifact, "src_ip");
    const std::string destination = FirstValue(artifact, "dst_ip");
    if (!source.empty() || !destination.empty())
        return source + " -> " + destination;
    for (const char* key : {"path", "name", "text", "resource", "id", "sha2"}) {
        std::string text = FirstValue(artifact, key);
        if (!text.empty())
            return text;
    }
    return "";
}

// Time, kind and action keep their widths; actor and target share what is left. Of paths the ends
// tell most, so they lose their beginnings. Where there is no width to keep to, the target, which
// stands last, is the only one that is never cut.
class Table final : public ResultForm {
public:
    explicit Table(const FormChoice& choice)
        : columns_(choice.columns),
          zone_(choice.zone),
          hasHosts_(choice.hasHosts),
          hasColours_(choice.hasColours) {
        if (!zone_.IsUtc())
            timeWidth_ += 5;  // an offset such as +01:00 stands in place of Z
        if (columns_ == 0)
            return;
        constexpr std::size_t narrowest = 8;
        actionWidth_ = 9;
        const std::size_t fixed =
            timeWidth_ + objectWidth + actionWidth_ + 4 * gap + (hasHosts_ ? hostWidth + gap : 0);
        const std::size_t left = columns_ > fixed ? columns_ - fixed : 0;
        actorWidth_ = std::max(left * 2 / 5, narrowest);
        targetWidth_ = std::max(left - left * 2 / 5, narrowest);
    }

    // Members that are missing, or of another kind than in other events, leave their column empty.
    std::string Row(const FoundEvent& event, bool isFirst) override {
        const std::string heading =
            isFirst ? Line("TIME", "HOST", "OBJECT", "ACTION", "ACTOR", "TARGET") : "";
        value parsed;
        try {
            parsed = value::parse(std::string(event.text));
        } catch (const std::exception&) {
            return heading + Cut(Escaped(event.text)) + "\n";
        }
        const value none = value::object();
        const value* const artifacts = Find(parsed, "artifacts");
        const value* const actor = artifacts != nullptr ? Find(*artifacts, "actor") : nullptr;
        const value* const target = artifacts != nullptr ? Find(*artifacts, "target") : nullptr;
        return heading + Line(zone_.Shown(FirstValue(parsed, "begin_time")),
                              std::string(event.host),
                              target != nullptr ? FirstValue(*target, "object_type") : "",
                              FirstValue(parsed, "action"), NameOf(actor ? *actor : none),
                              NameOf(target ? *target : none));
    }

private:
    static constexpr std::size_t objectWidth = 13, gap = 1;
    static constexpr std::size_t noLimit = std::string::npos;

    std::string Cut(const std::string& line) const {
        return columns_ == 0 ? line : Fit(line, columns_, Keep::start);
    }

    static std::string Column(const std::string& text, std::size_t width, Keep keep = Keep::start) {
        const std::string column = Fit(text, width, keep);
        return column + std::string(width - DisplayWidth(column) + gap, ' ');
    }

    std::string Line(const std::string& time, const std::string& host, const std::string& object,
                     const std::string& action, const std::string& actor,
                     const std::string& target) const {
        const std::string front =
            Column(time, timeWidth_) + (hasHosts_ ? Column(host, hostWidth, Keep::end) : "");
        const std::string kind = Column(object, objectWidth) + Column(action, actionWidth_);
        std::string line = front + kind + Column(actor, actorWidth_, Keep::end) +
                           Fit(target, targetWidth_, Keep::end);
        line.erase(line.find_last_not_of(' ') + 1);
        line = Cut(line);
        if (const std::string_view colour = ColourOf(object);
            !colour.empty() && line.starts_with(front + kind)) {
            line.insert(front.size() + kind.size(), "\x1b[0m");
            line.insert(front.size(), colour);
        }
        return line + "\n";
    }

    // One for what happens to processes, files, the registry, the network, sessions and the rest;
    // empty for no kind, such as the heading's.
    std::string_view ColourOf(std::string_view object) const {
        constexpr std::pair<std::string_view, std::string_view> colours[] = {
            {"process", "\x1b[32m"},   {"module", "\x1b[32m"},        {"file", "\x1b[36m"},
            {"directory", "\x1b[36m"}, {"reg_key", "\x1b[35m"},       {"reg_value", "\x1b[35m"},
            {"network", "\x1b[34m"},   {"url", "\x1b[34m"},           {"session", "\x1b[33m"},
            {"service", "\x1b[33m"},   {"kernel_object", "\x1b[31m"}, {"etw", "\x1b[31m"},
            {"amsi", "\x1b[31m"}};
        for (const auto& [kind, colour] : colours)
            if (hasColours_ && kind == object)
                return colour;
        return {};
    }

    const std::size_t columns_;
    const ZoneTime zone_;
    const bool hasHosts_, hasColours_;
    std::size_t timeWidth_ = 24;
    std::size_t actionWidth_ = 16, actorWidth_ = 40, targetWidth_ = noLimit;
};

}  // namespace

std::unique_ptr<ResultForm> MakeResultForm(FormChoice choice) {
    const std::string& name = choice.name;
    if (name == "keys")
        return std::make_unique<Keys>(choice.isForTerminal);
    const bool isTimeline = name == "timesketch";
    if (name != "ocsf" && !isTimeline && !choice.fields.empty())
        return MakeFieldForm(std::move(choice));
    if (name == "table")
        return std::make_unique<Table>(choice);
    const bool isForTerminal = choice.isForTerminal;
    std::unique_ptr<ResultForm> form;
    if (isTimeline)
        form = MakeTimesketchForm(std::move(choice.fields));
    else if (name == "ocsf")
        form = std::make_unique<OcsfEvents>();
    else if (name == "json")
        form = std::make_unique<OneArray>();
    else
        form = std::make_unique<Lines>();
    return isForTerminal ? std::make_unique<OnTerminal>(std::move(form)) : std::move(form);
}

// COLUMNS first, as a person may set it where no terminal is.
std::size_t TerminalColumns() {
    const char* const given = std::getenv("COLUMNS");
    std::size_t columns = 0;
    if (given != nullptr && *given != '\0') {
        const char* const end = given + std::strlen(given);
        const auto parsed = std::from_chars(given, end, columns);
        if (parsed.ec == std::errc() && parsed.ptr == end && columns > 0)
            return columns;
    }
    winsize size{};
    return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

}  // namespace zel
