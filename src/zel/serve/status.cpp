#include <poll.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "connection/agentrequest.h"
#include "connection/storefolders.h"
#include "records/jsonfields.h"
#include "zel/commands.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/textfit.h"

// What the service tells of itself, for people: one line for each fact, so that nothing has to be
// added here when it tells more.

namespace zel {

namespace {

constexpr int betweenLooksMs = 2000;

bool Ask(std::string* answer) {
    std::string problem;
    const bool isTold = Succeeded(CallAgent("GET", "/v1/status", "", answer, &problem));
    if (!isTold && !Interrupted())
        Say(problem);
    return isTold;
}

// The messages, each behind its time.
std::string Messages(const std::string& list) {
    JsonFields json;
    SourceFields fields;
    std::vector<std::string> entries;
    std::string lines;
    if (!json.Split(list, &entries))
        return lines;
    for (const std::string& entry : entries) {
        fields.Clear();
        if (json.Read(entry, &fields))
            lines +=
                "  " + Escaped(fields.Take("time")) + "  " + Escaped(fields.Take("text")) + "\n";
    }
    return lines;
}

std::string Shown(const SourceField& field) {
    const std::string text = Escaped(field.text);
    const bool isSize = field.kind == SourceField::Kind::number && field.name.ends_with("bytes");
    return isSize ? ReadableBytes(std::strtoull(text.c_str(), nullptr, 10)) : text;
}

bool PrintFacts(const std::string& answer) {
    JsonFields json;
    SourceFields fields;
    std::string messages;
    if (!json.Read(answer, &fields)) {
        Say("the agent does not tell its state as an agent does");
        return false;
    }
    std::string text;
    for (const SourceField& field : fields.All()) {
        if (field.name == "last_messages") {
            messages = Messages(std::string(field.text));
            continue;
        }
        std::string name(field.name);
        name.resize(std::max<std::size_t>(name.size(), 28), ' ');
        text += Escaped(name) + "  " + Shown(field) + "\n";
    }
    std::fputs((text + (messages.empty() ? "" : "last messages\n" + messages)).c_str(), stdout);
    std::fflush(stdout);
    return true;
}

bool PrintOnce(bool asTable) {
    std::string answer;
    if (!Ask(&answer))
        return false;
    if (asTable)
        return PrintFacts(answer);
    std::fputs(answer.c_str(), stdout);
    return true;
}

}  // namespace

int RunStatus(const StatusOptions& options) {
    constexpr const char* home = "\033[H\033[2J";
    if (AgentSocket().empty()) {
        Say("no agent is named: --socket or ZEL_SOCKET names its socket");
        return exitCode::noStore;
    }
    if (!options.watch)
        return PrintOnce(WantsTable(options.output)) ? exitCode::done : exitCode::noStore;
    while (!Interrupted()) {
        std::fputs(home, stdout);
        if (!PrintOnce(true) && !Interrupted())
            return exitCode::noStore;
        pollfd wait{InterruptDescriptor(), POLLIN, 0};
        ::poll(&wait, 1, betweenLooksMs);
    }
    return exitCode::interrupted;
}

}  // namespace zel
