#include "agent/web/noteroutes.h"

#include <pwd.h>
#include <simdjson.h>

#include <array>

#include "agent/access.h"
#include "agent/parameters.h"
#include "common/hostservices.h"
#include "common/jsontext.h"
#include "records/eventkey.h"
#include "zelstore/keys/keyformat.h"

namespace zel {

namespace {

struct Note {
    std::string key, kind, text;
};

// Empty, or what is wrong with it.
std::string ReadNote(const std::string& body, Note* note) {
    constexpr std::size_t longestText = 16384;
    simdjson::dom::parser parser;
    simdjson::dom::element element;
    std::string_view key, kind, text;
    if (parser.parse(body).get(element) != simdjson::SUCCESS ||
        element["key"].get(key) != simdjson::SUCCESS ||
        element["kind"].get(kind) != simdjson::SUCCESS ||
        element["text"].get(text) != simdjson::SUCCESS)
        return R"(the body is not of the form {"key":"...","kind":"note","text":"..."})";
    *note = {std::string(key), std::string(kind), std::string(text)};
    if (kind != "note" && kind != "verdict" && kind != "tag")
        return "kind is none of note, verdict and tag";
    if (text.find_first_not_of(" \t\r\n") == text.npos)
        return "the text is empty";
    if (text.size() > longestText)
        return "the text has more than 16384 bytes";
    return ZEL::ShapeOf(key) == ZEL::KeyShape::primary ? std::string(WhyNoEventKey(key))
                                                       : "the key is none of an event";
}

// The name that the system has for the user; else the number.
std::string NameOf(const Peer& peer) {
    std::array<char, 4096> memory{};
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(peer.uid, &entry, memory.data(), memory.size(), &found) == 0 &&
        found != nullptr)
        return found->pw_name;
    return "uid " + std::to_string(peer.uid);
}

}  // namespace

void TakeNote(WebParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer) {
    Note note;
    const std::string problem = ReadNote(request.body, &note);
    if (!problem.empty())
        return answer(PlainReply(400, problem));
    const std::string author = wm::JsonString(NameOf(request.head.peer));
    const std::string time = wm::JsonString(wm::FormatUtc(wm::Clock().UtcNow()));
    parts.host.Note(DeedOf(request.head, "adds a " + note.kind + " to an event"));
    const std::string json = "{\"annotation\":{\"kind\":" + wm::JsonString(note.kind) +
                             ",\"text\":" + wm::JsonString(note.text) + ",\"author\":" + author +
                             ",\"time\":" + time + "}}";
    parts.host.Annotate(note.key, json, [answer, author, time](bool isStored) {
        answer(isStored ? HttpReply{200,
                                    "application/json",
                                    "{\"author\":" + author + ",\"time\":" + time + "}\n",
                                    {}}
                        : PlainReply(503, "there is no room; nothing was taken"));
    });
}

}  // namespace zel
