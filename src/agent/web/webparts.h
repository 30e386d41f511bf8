#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/asking/questions.h"
#include "agent/http.h"
#include "agent/web/livestreams.h"
#include "zelstore/ieventstore.h"

namespace zel {

class EventWays;
class Followers;

// Whose store the page shows: an agent, or a program that reads a copy. Any thread.
class IWebHost {
public:
    // A line for the log, of what somebody does.
    virtual void Note(const std::string& line) = 0;
    virtual void CountRequest(std::string_view route, int status) = 0;
    virtual bool Has(const Peer& peer, Right right) const = 0;
    // Null where nothing comes.
    virtual Followers* Following() = 0;
    // The position, as followers take it, ahead of which the store has all; empty: not known.
    virtual std::string Settled() const = 0;
    // Stores a silent enrichment for the event with that key, which was checked. `done` is called
    // once, on any thread, with whether it is on the disk. Not asked of whom nobody has the right.
    virtual void Annotate(std::string key, std::string json,
                          const std::function<void(bool isStored)>& done) = 0;

protected:
    ~IWebHost() = default;
};

// How the values of an event are shown where a form of `zel query` is wanted. For one thread.
class WebForm {
public:
    virtual ~WebForm() = default;
    // Whether it shows enrichments; then they are to stand in the text of the rows.
    virtual bool WantsEnrichments() const = 0;
    // What stands for an event of the store, its end included.
    virtual std::string Row(std::string_view text, std::string_view key) = 0;
    virtual std::string End() { return ""; }
};
// A form (ndjson, csv, ocsf) of some columns; an empty list: those that suit. Null, with words,
// when there is no such form or column. Any thread.
using MakeWebForm = std::function<std::unique_ptr<WebForm>(
    const std::string& form, const std::string& fields, std::string* problem)>;

// A line that asks for events, as a person types it, in an object of JSON: as parameters, as a
// command, and what may stand at a byte. False where the object tells why it can't be asked. Any
// thread.
using ReadWords =
    std::function<bool(const std::string& line, std::optional<std::size_t> at,
                       const std::function<std::vector<std::string>(std::string_view column)>& seen,
                       std::string* json)>;

// What the program knows of questions and their forms, and a service does not.
struct WebTools {
    AskByParameters ask;
    MakeWebForm form;
    ReadWords words;
};

// What the page's routes work with. All live as long as the server.
struct WebParts {
    ZEL::IEventStore7& store;
    Questions& questions;
    EventWays& events;
    const WebTools& tools;
    IWebHost& host;
    const std::string storePath;
    const std::string version;
    const bool isWritable;  // false: of a copy that is read alone
    LiveStreams live = {};
};

// One of the page's ways. `request.head.peer` is who made the link that the session began with.
using WebHandler = void (*)(WebParts& parts, HttpRequest& request,
                            const IHttpHandler::Answer& answer);

}  // namespace zel
