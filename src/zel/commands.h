#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The commands, as the command line and tests call them. Each prints its data to stdout, tells
// people on stderr what they should know, and gives the value that the program ends with (exitCode
// in messages.h); failures are told before it returns. Each runs once, on the main thread, after
// the host services were told what was named on the command line. An empty text stands for a flag
// that was not given. What is wrong with a value is told by the command, not by the parser.
namespace zel {

struct IngestOptions {
    // Read one after the other; one that can't be read is told, and the others are read all the
    // same.
    std::vector<std::string> files;  // "-" is standard input, and so is an empty list
    bool printKeys = false;
    bool keysOnly = false;    // printed, and nothing is stored
    bool makesStore = false;  // also in a directory that holds other things
    bool receiveRows = true;
    bool live = false;           // records reach the disk within ten seconds
    bool follow = false;         // and are printed then
    std::string position;        // the file that says how far they are; empty: one in the store
    std::string format;          // what all files are of; empty: found line by line
    bool keepsUnmapped = false;  // events that no rule makes a record of are stored all the same
    bool writesUnmapped = true;  // what has no place in a record, and where it came from
    bool recovers = false;       // of damaged event logs also what only a search finds
};
// Stores the events of the files, and prints keys or events if that is asked for. What is no good
// event is told and passed over. 4 when any line, file or record was lost on the way, 3
// when the store took no more, 130 when interrupted; in live mode SIGTERM is the way to end and
// gives what the run would have given at the end of its input. Whatever ends the reading, the last
// line on stderr is the account.
int RunIngest(const IngestOptions& options);

// How an answer looks.
struct AnswerOptions {
    std::string output;  // a form, such as ndjson or table; empty: table on a terminal, else ndjson
    std::string last;    // a number: so many of the newest; empty: all
    bool sort = false;   // by time, the oldest first
    bool reverse = false;   // the newest first
    std::string fields;     // columns and JSON pointers with commas between; empty: what suits
    std::string countBy;    // columns likewise, by which events are counted and not printed
    std::string histogram;  // a length of time such as 1h, by which they are
    bool trailer = false;   // tell what the answer was made of also where no terminal is
    bool noPager = false;
    std::string zone;  // of the times that are printed, and of those that tell none
};

struct QueryOptions {
    // Flags that ask something beside it are refused by the parser.
    std::string document;  // JSON, a file's name, or "-" for standard input; empty: the flags
    std::string since;
    std::string until;
    std::string day;  // in place of both
    bool byReceive = false;
    // Values of one list are alternatives; all lists that hold something have to fit.
    std::vector<std::string> actions, objects, actorPaths, targetPaths, patterns, hashes, ips,
        correlations, typeIds;
    // Asked of an event's text: values of one list are alternatives, but for `wheres`, each of
    // which is COLUMN OP VALUE and has to fit.
    std::vector<std::string> wheres, cmdLines, users, computers, pids, ports, greps;
    std::vector<std::string> actorUids;
    std::string key;    // of the one event that is asked for; excludes all else that asks
    std::string limit;  // a number; empty: none
    bool enrichments = false;
    bool noLiveEnriched = false;
    bool explain = false;
    bool duplicates = false;  // an event that was stored on several days comes as often
    bool printKeys = false;   // keys in place of events
    bool withKey = false;     // a member "key" in front of each event's others
    AnswerOptions answer;
    bool showCursor = false;
    std::string afterCursor;
    std::string machine;  // a file that describes the machine of the paths; empty: this machine
};
// Prints the events that fit. 1 when there were none, 4 when something could not be read or tested.
// 2 for a question that can't be asked, 3 when the store can't be opened.
int RunQuery(const QueryOptions& options);

struct FollowOptions {
    QueryOptions question;      // what is asked of events, and how they look
    std::string from;           // a position, a time or "now", which an empty one means
    bool withPosition = false;  // a member "position" in front of each event's others
    bool reconnects = false;    // goes on when an agent that went away is back
};
// Prints events as the agent accepts them, until it is told to end: 0 by SIGTERM. 3 when the agent
// is not there or goes away; behind a limit 0, or 4 when events were missing.
int RunFollow(const FollowOptions& options);

struct SqlOptions {
    std::string statement;  // several, or a command of the shell; empty: standard input
    std::string output;     // table, csv or ndjson; empty: table on a terminal, else ndjson
};
// Prints the rows of statements of SQL on the store's events. Without a statement a shell, or what
// standard input holds. 1 when the last statement gave no row, 2 for one that SQLite refuses or
// that would write, 4 when something could not be read.
int RunSql(const SqlOptions& options);

struct TreeOptions {
    std::string process;  // its number or its identifier
    std::string key;      // in its place: of an event that the process is told by
    std::string since, until, day;
    std::string output;  // tree, json or ndjson; empty: tree on a terminal, else ndjson
};
// Prints a process with all above and below it. 1 when no launch tells of it; the others as a
// query.
int RunTree(const TreeOptions& options);

struct HuntOptions {
    std::vector<std::string> rules;  // files and folders
    QueryOptions question;           // its times, zone, pager and conditions on texts alone
    std::string minLevel;            // such as high; empty: all
    std::vector<std::string> tags, statuses;  // values of one list are alternatives
    std::string placeholders;                 // a file with the values of %name%
    std::string output;         // ndjson, json, csv or table; empty: table on a terminal
    bool asksAuditLog = false;  // Windows' own audit events as well as Sysmon's
    bool summary = false;       // hits counted by rule and computer in place of each
    bool enriches = false;      // each hit is stored with its event, which needs to write
    bool check = false;         // reads and explains rules, with any bad one an error; no store
    bool explain = false;       // tells of each rule what decides it; no store
    bool strict = false;        // a bad rule ends the hunt ahead of its beginning
};
// Prints the events that Sigma rules fit. 1 when there were none, 2 for rules that can't be read
// where all have to be, the others as a query.
int RunHunt(const HuntOptions& options);

struct PurgeOptions {
    std::string maxSize;  // such as 500M
    bool dryRun = false;
    bool includingForeign = false;  // folders that are no databases may go as well
    std::string output;             // table or json; empty: as stdout suits
};
// Deletes whole folders, the oldest first, until the store fits. 2, with nothing deleted, where
// folders that are no databases might go; 4 when what may go is not enough. What went, or would go,
// is printed; stdout holds that alone.
int RunPurge(const PurgeOptions& options);

struct InfoOptions {
    bool check = false;  // read all of every database
    std::string output;  // as above
};
// Tells what folders the store has. 4 when one of them could not be read. `check` takes as long as
// reading all of the store.
int RunInfo(const InfoOptions& options);

struct MonitorOptions {
    bool once = false;
    std::optional<std::uint32_t> stopBelow;         // megabytes of 1,000,000 bytes
    std::optional<std::uint32_t> resumePercentage;  // above that
    std::string output;                             // as above
};
// Tells whether the volume has room, and each change of that until the program is interrupted. With
// `once` prints one line and ends with 0. Thresholds that are given hold for this run and are kept
// in no settings but those of a file that was named.
int RunMonitor(const MonitorOptions& options);

// One enrichment for `key`, or with `ndjson` as many as the file has lines.
struct EnrichOptions {
    std::string key;   // with ndjson the file stands here
    std::string file;  // empty or "-": standard input
    bool live = false;
    bool ndjson = false;
};
// Prints nothing on stdout. 2 for a key or a text that can't be stored, with the store unopened; 4
// when lines were rejected or enrichments lost; 3 when the store takes none.
int RunEnrich(const EnrichOptions& options);

// What the parameters of a request to the service ask, as the flags of `query` do.
struct ParameterQuestion {
    std::string document;
    std::function<bool(std::string_view event)> fits;  // null: all
};
using ReadParameters = bool (*)(const std::vector<std::pair<std::string, std::string>>& parameters,
                                ParameterQuestion* question, std::string* problem);
// The question that flags are. False with words that name the flag.
bool AskWithFlags(const QueryOptions& options, ParameterQuestion* question, std::string* problem);

// A fleet's server, and how a store's events come to it.
struct FleetOptions {
    std::string url;              // http[s]://[USER@]HOST[:PORT][/DATABASE]
    std::string passwordFile;     // empty: ZEL_FLEET_PASSWORD
    std::string serverVersion;    // that tables are printed for; empty: a new one
    std::string cluster;          // empty: one node
    unsigned retentionDays = 90;  // 0: for ever
    std::string host;             // empty: this machine's identifier
    std::string position;         // a file; empty: one in the store
    std::string since, until;
    bool follow = false;
    unsigned everySeconds = 10;      // between two looks
    unsigned settlingSeconds = 120;  // the age at which no row can come ahead of one any more
    std::size_t batchRows = 10000, batchBytes = 16U << 20;
    std::uint64_t rate = 0;     // rows a second; 0: no limit
    unsigned firstPauseMs = 0;  // ahead of a second try; 0: a second
};
// The statements that make the tables, on stdout.
int RunFleetSchema(const FleetOptions& options);
// Makes them, and leaves those that are there.
int RunFleetInit(const FleetOptions& options);
// Compares them with what they should be, and tries what the user may do. 4 where something
// differs.
int RunFleetCheck(const FleetOptions& options);
// Sends what came since the last time; with `follow` until it is told to end, then 0 by SIGTERM. 3
// when the server can't be had or a person has to look, 4 when rows were refused, missed or not
// read.
int RunFleetSend(const FleetOptions& options);
// The same by the times of events, whenever they came.
int RunFleetBackfill(const FleetOptions& options);

inline constexpr const char* defaultConfigFile = "/etc/zel/zel.toml";

struct ServeOptions {
    std::string config;  // a file of TOML; empty: for `serve` the default file, for `show` none
    bool check = false;  // look at the configuration and end
    std::vector<std::string> tails;  // files that are followed beside those of the configuration
    bool readsInput = false;         // standard input too, whose end ends the service
    std::string webPort;             // of the page; empty: that of the configuration
    ReadParameters readParameters = nullptr;
};
// Runs the store as a service until it is told to end. 2 for a configuration that can't be used, 3
// when the store, the spool or a listener can't be had, 4 when records were lost.
int RunServe(const ServeOptions& options);
// Prints all effective values as a configuration.
int RunConfigShow(const ServeOptions& options);

inline constexpr const char* defaultWebPort = "9517";

struct WebOptions {
    bool noOpen = false;  // print the link and open nothing
    ReadParameters readParameters = nullptr;
};
// Opens the page: of the service, whose link is printed, or of a store that is named, which is read
// alone until the program is told to end. 3 when neither can be had.
int RunWeb(const WebOptions& options);

struct AudispOptions {
    std::uint32_t queueMegabytes = 16;  // of records that wait for the service
};
// Brings the audit records of standard input to the service until that ends. 3 when no service is
// named, 4 when records were dropped.
int RunAudisp(const AudispOptions& options);

struct StatusOptions {
    bool watch = false;  // print it again and again
    std::string output;  // table or json; empty: as stdout suits
};
// Prints what the service tells of itself. 3 when it is not there.
int RunStatus(const StatusOptions& options);

struct SettingsOptions {
    std::string key;
    std::string name;
    std::string value;  // for set
};
// `get` and `unset` 1 when there is no such value; `set` 2 for a name that nothing reads. `get`
// prints the number alone, the others nothing.
int RunSettingsGet(const SettingsOptions& options);
int RunSettingsSet(const SettingsOptions& options);
int RunSettingsUnset(const SettingsOptions& options);

struct MachineOptions {
    std::string file;  // the described machine in place of this one
};
// Prints the description of this machine, or what was understood of one in a file. JSON on stdout,
// to be edited and given to --machine. 2 for a file that can't be read as one.
int RunMachineShow(const MachineOptions& options);
// Makes the machine that `file` describes (docs/machine.md) the one that queries are answered for.
// False, with a message, when it can't be read. To be called before a store is opened. The machine
// stays until the process ends.
bool UseMachine(const std::string& file);

}  // namespace zel
