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

CLI::Option* AddText(CLI::App& command, const char* name, std::string& text, const char* help) {
    return command.add_option(name, text, help)->check(NotEmpty());
}

// May be given several times, with one value each.
CLI::Option* AddTexts(CLI::App& command, const char* name, std::vector<std::string>& texts,
                      const char* help) {
    return command.add_option(name, texts, help)->allow_extra_args(false)->check(NotEmpty());
}

void AddConditions(CLI::App& command, QueryOptions& options) {
    AddTexts(command, "--action", options.actions, "Such as create, launch, connect");
    AddTexts(command, "--object", options.objects, "Kind of target, such as file, process");
    AddTexts(command, "--actor-path", options.actorPaths,
             "Path of the acting process; * and ? stand for any characters");
    AddTexts(command, "--target-path", options.targetPaths, "Path or name of the target, likewise");
    AddTexts(command, "--pattern", options.patterns,
             "Regular expression for the whole path or name of the target (Perl syntax)");
    AddTexts(command, "--hash", options.hashes, "SHA-2 of the actor or of the target");
    AddTexts(command, "--ip", options.ips, "Either address of a connection; * and ? as above");
    AddTexts(command, "--correlation", options.correlations, "Correlation identifier");
    AddTexts(command, "--type-id", options.typeIds, "Number of the event type, such as 8001");
}

}  // namespace

void AddQuery(CLI::App& app, QueryOptions& options) {
    CLI::App& command = *app.add_subcommand("query", "Print events");
    command.footer(
        "Several values of one flag are alternatives; all flags that are given have to fit.\n"
        "Letter case does not matter.");
    CLI::Option* const document = AddText(command, "DOCUMENT", options.document,
                                          "An event_query document, or - for standard input");
    AddText(command, "--since", options.since,
            "First time: 2026-11-12T10:00:00Z, 2026-11-12, today, -2h");
    AddText(command, "--until", options.until, "Last time, in the same forms");
    command
        .add_option_function<std::string>(
            "--by", [&options](const std::string& by) { options.byReceive = by == "receive"; },
            "Walk events by their own time, or by when the store received them")
        ->check(CLI::IsMember({"event", "receive"}))
        ->default_str("event");
    AddConditions(command, options);
    AddText(command, "--limit", options.limit, "Most results");
    command.add_flag("--enrichments", options.enrichments, "Join the enrichments to each event");
    command.add_flag("--no-live-enriched", options.noLiveEnriched,
                     "Leave out events that have a live enrichment");
    AddText(command, "--after-cursor", options.afterCursor,
            "With --by receive: go on behind the position that --show-cursor printed");
    for (CLI::Option* const option : command.get_options())
        if (option != document && option != command.get_help_ptr())
            option->excludes(document);
    command.add_flag("--show-cursor", options.showCursor,
                     "Tell the position of the last row at the end, on stderr");
    command.add_flag("--explain", options.explain, "Print the document and run nothing");
    command
        .add_option("-o,--output", options.output,
                    "Form of the results; without it table on a terminal, else ndjson")
        ->check(CLI::IsMember({"ndjson", "json", "table"}));
}

void AddEnrich(CLI::App& app, EnrichOptions& options) {
    CLI::App& command = *app.add_subcommand("enrich", "Store enrichments for events");
    command.footer(
        "Without --ndjson: KEY is an event's key as `ingest --print-keys` writes it, FILE holds\n"
        "one JSON value. With it: FILE holds lines {\"key\":\"...\",\"enrichment\":...}.\n"
        "- or no FILE: standard input.");
    command.add_option("ARGUMENTS", options.arguments, "KEY [FILE], or with --ndjson [FILE]")
        ->expected(0, 2)
        ->check(NotEmpty());
    CLI::Option* const live =
        command.add_flag("--live", options.live, "Of the kind that --no-live-enriched leaves out");
    command
        .add_flag_callback(
            "--silent", [] {}, "Of the other kind; this is the default")
        ->excludes(live);
    command.add_flag("--ndjson", options.ndjson, "Many, one on each line");
}

}  // namespace zel
