#include "arguments.h"

#include <CLI/CLI.hpp>

namespace zel {

namespace {

const CLI::Validator& NotEmpty() {
    static const CLI::Validator validator(
        [](std::string& text) {
            return text.empty() ? std::string("must not be empty") : std::string();
        },
        "");
    return validator;
}

CLI::Option* AddText(CLI::App& command, const char* name, std::string& text, const char* kind,
                     const char* help) {
    return command.add_option(name, text, help)->check(NotEmpty())->type_name(kind);
}

// May be given several times, with one value each.
// May be given several times, with one value each.
void AddTexts(CLI::App& command, const char* name, std::vector<std::string>& texts,
              const char* kind, const char* help) {
    command.add_option(name, texts, help)
        ->allow_extra_args(false)
        ->check(NotEmpty())
        ->type_name(kind);
}

void AddConditions(CLI::App& command, QueryOptions& options) {
    AddTexts(command, "--action", options.actions, "NAME", "Such as create, launch, connect");
    AddTexts(command, "--object", options.objects, "KIND", "Kind of target, such as file, process");
    AddTexts(command, "--actor-path", options.actorPaths, "PATH",
             "Path of the acting process; * and ? stand for any characters");
    AddTexts(command, "--target-path", options.targetPaths, "PATH",
             "Path or name of the target, likewise");
    AddTexts(command, "--pattern", options.patterns, "REGEX",
             "Regular expression for the whole path or name of the target (Perl syntax)");
    AddTexts(command, "--hash", options.hashes, "SHA2", "SHA-2 of the actor or of the target");
    AddTexts(command, "--ip", options.ips, "ADDRESS",
             "Either address of a connection; * and ? as above");
    AddTexts(command, "--correlation", options.correlations, "UID", "Correlation identifier");
    AddTexts(command, "--type-id", options.typeIds, "NUMBER",
             "Number of the event type, such as 8001");
}

void AddTimes(CLI::App& command, QueryOptions& options) {
    AddText(command, "--since", options.since, "TIME",
            "First time: 2026-11-12T10:00:00Z, 2026-11-12, today, -2h");
    AddText(command, "--until", options.until, "TIME", "Last time, in the same forms");
    command
        .add_option_function<std::string>(
            "--by", [&options](const std::string& by) { options.byReceive = by == "receive"; },
            "Walk events by their own time (event), or by when the store received them (receive)")
        ->check(CLI::IsMember({"event", "receive"}))
        ->type_name("TIME");
    AddText(command, "--after-cursor", options.afterCursor, "POSITION",
            "With --by receive: go on behind the position that --show-cursor told");
}

}  // namespace

void AddQuery(CLI::App& app, QueryOptions& options) {
    CLI::App& command = *app.add_subcommand("query", "Print events");
    command.footer(
        "Several values of one flag are alternatives; all flags that are given have to fit.\n"
        "Letter case does not matter. docs/query.md tells the rest.");
    CLI::Option* const document =
        AddText(command, "DOCUMENT", options.document, "",
                "An event_query document in place of the flags, or - for standard input");
    AddTimes(command, options);
    AddConditions(command, options);
    AddText(command, "--limit", options.limit, "NUMBER", "Most results");
    command.add_flag("--enrichments", options.enrichments, "Join the enrichments to each event");
    command.add_flag("--no-live-enriched", options.noLiveEnriched,
                     "Leave out events that have a live enrichment");
    const std::vector<CLI::Option*> asking = command.get_options(
        [document](const CLI::Option* o) { return o != document && o->get_name() != "--help"; });
    command.parse_complete_callback([asking, document] {
        for (const CLI::Option* const option : asking)
            if (option->count() != 0 && document->count() != 0)
                throw CLI::ExcludesError(option->get_name(), "DOCUMENT");
    });
    command.add_flag("--show-cursor", options.showCursor,
                     "Tell the position of the last row at the end, on stderr");
    command.add_flag("--explain", options.explain, "Print the document and run nothing");
    command
        .add_option("-o,--output", options.output,
                    "ndjson, json or table; without it table on a terminal, else ndjson")
        ->check(CLI::IsMember({"ndjson", "json", "table"}))
        ->type_name("FORM");
}

void AddEnrich(CLI::App& app, EnrichOptions& options) {
    CLI::App& command = *app.add_subcommand("enrich", "Store enrichments for events");
    command.footer(
        "Without --ndjson: KEY is an event's key as `ingest --print-keys` writes it, FILE holds\n"
        "one JSON value. With it: FILE holds lines {\"key\":\"...\",\"enrichment\":...}.");
    AddText(command, "KEY", options.key, "", "Key of an event; not with --ndjson");
    AddText(command, "FILE", options.file, "", "What to store; - or none: standard input");
    CLI::Option* const live =
        command.add_flag("--live", options.live, "Of the kind that --no-live-enriched leaves out");
    command
        .add_flag_callback(
            "--silent", [] {}, "Of the other kind; this is the default")
        ->excludes(live);
    command.add_flag("--ndjson", options.ndjson, "Many, one on each line");
}

}  // namespace zel
