#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

// What was accepted and is not in the store yet, on the disk. A record that stands here outlives
// the process and the power, so a sender may forget it.
namespace zel {

// One record on its way. Texts are UTF-8.
struct SpoolItem {
    std::string id;  // of the sender; empty: none
    std::string key;
    std::string record;
    bool isDuplicate = false;  // set by Append: its id was accepted before
    std::string receiveKey{};  // set by Append, of what it takes
};

// What a way in has to know after a restart, such as how far a file was read. Kept with the records
// that it belongs to, or not.
struct SpoolMark {
    std::string name;
    std::string value;  // empty: it is forgotten
};

// What somebody has found out of an event, under the key that it is to stand under.
struct SpooledEnrichment {
    std::string key;
    std::string text;
};

// The ways in, as they are counted. Constants, so that nothing a peer sends becomes a name.
namespace intakeSource {
inline constexpr std::string_view events = "events";
inline constexpr std::string_view bulk = "bulk";
inline constexpr std::string_view logs = "logs";
inline constexpr std::string_view files = "files";      // tailed, and standard input
inline constexpr std::string_view service = "service";  // its own notices
inline constexpr std::string_view all[] = {events, bulk, logs, files, service};
}  // namespace intakeSource

// What one request brings: all of it is taken or nothing.
struct Delivery {
    std::vector<SpoolItem> items;
    std::optional<std::uint32_t> sender;  // the user, where the system tells
    std::vector<SpoolMark> marks;
    std::vector<SpooledEnrichment> enrichments;
    std::vector<std::string> hits;  // of rules, as lines for those who are told of them
    std::string_view source{};      // one of intakeSource
};

// Each stands in a row of rows of its own, with numbers of its own.
enum class SpoolKind : std::uint8_t { events, enrichments, hits };

// What was appended together, as it stands in the spool.
struct SpooledRow {
    std::int64_t number = 0;
    struct Record {
        std::string_view key;         // of a hit: empty
        std::string_view receiveKey;  // of events alone
        std::string_view record;
    };
    std::vector<Record> records;  // views into `body`
    std::string body;
    bool isDamaged = false;  // what it held is gone: so many records
    std::uint64_t events = 0;
};

// Where all records are that were ever accepted: accepted = stored + waiting + lost + purged. In
// records; kept from one process to the next.
struct Ledger {
    std::uint64_t accepted = 0;
    std::uint64_t stored = 0;
    std::uint64_t waiting = 0;
    std::uint64_t lost = 0;
    std::uint64_t purged = 0;
    std::uint64_t waitingEnrichments = 0;  // beside the equation
    std::uint64_t waitingHits = 0;
    std::uint64_t waitingBytes = 0;  // of events and enrichments
    std::uint64_t ids = 0;           // that are remembered
    std::uint64_t notices = 0;       // of those accepted: the service's own (notices.h)
};

// A part of the spool that the store has on the disk.
struct SettledPart {
    std::int64_t through = 0;  // its last row
    std::string folder;        // of the store, where it stands
    std::uint64_t lost = 0;    // records of it that came to nothing
    std::string lastKey;       // its last receive-time key; empty when none could be read
};

struct SpoolLimits {
    std::uint64_t ids = 0;
    std::uint64_t idSeconds = 0;
};

// One database of SQLite, which the source tells about. Any thread, but for Append: one at a time
// of those that bring events.
// What fails leaves the spool as it was; `*problem` says why, in words for people.
class Spool {
public:
    Spool();
    ~Spool();
    Spool(const Spool&) = delete;
    Spool& operator=(const Spool&) = delete;

    // Makes the directory (mode 0700) and the database where they are missing. A database that
    // can't be read is put aside under another name, which `*problem` tells although it succeeds:
    // what it held is not lost for those who can mend it, and the service goes on.
    bool Open(const std::string& directory, const SpoolLimits& limits, std::string* problem);

    // Takes all deliveries or none, and returns when they are on the disk. Of items with one id
    // only the first is taken, also over deliveries. `makeReceiveKey` is called for each record
    // taken, in order, under no lock; its keys have to grow.
    bool Append(std::span<Delivery* const> deliveries,
                const std::function<std::string()>& makeReceiveKey, std::string* problem);

    void SetLimits(const SpoolLimits& limits);

    // The same for marks alone.
    bool Keep(const std::vector<SpoolMark>& marks, std::string* problem);
    // All whose names begin so.
    std::vector<SpoolMark> Marks(const std::string& prefix);

    // The row that follows, in the order of acceptance; none when there is none yet. A failure to
    // read is none as well, with its problem.
    std::optional<SpooledRow> Next(std::int64_t behind, std::string* problem,
                                   SpoolKind kind = SpoolKind::events);

    // The rows up to that one are in the store. To be called when the store has them on the disk.
    bool Drop(const SettledPart& part, std::string* problem);
    // The rows of another kind up to that one are where they belong, or lost.
    bool DropOthers(SpoolKind kind, std::int64_t through, std::string* problem);
    // Events behind that row stay when they are dropped, the newest of them in so many bytes:
    // somebody else has still to see them. INT64_MAX, as at first: none stay.
    void KeepBehind(std::int64_t row, std::uint64_t mostBytes);
    // Up to that row the store has all.
    std::int64_t SettledRow() const;
    // Events that were to stay and had no room.
    std::uint64_t DroppedUnseen() const;
    // These folders of the store are gone.
    bool Purged(std::span<const std::string> folders, std::string* problem);
    // Folders that hold what was stored.
    std::vector<std::string> Folders();

    // The receive-time key of the last record that was accepted, ever, and that of the last one
    // ahead of which all are in the store; empty when there was none. Any thread.
    std::string Accepted() const;
    std::string Settled() const;
    // Ahead of the first Append of a process: no key up to this one will be given. Tells a spool
    // without such memories, with nothing in it, what is settled.
    void BeginBehind(const std::string& receiveKey);
    // How many records, at most, stood behind that place, which compares as their keys do, in
    // folders that are purged.
    std::uint64_t PurgedBehind(std::string_view place) const;

    // At one moment: the equation holds. Waits for no disk.
    Ledger Account() const;
    // The last row that was appended; 0 when there was none.
    std::int64_t LastRow(SpoolKind kind = SpoolKind::events) const;

private:
    struct Database;

    bool Prepare(const std::string& file, std::string* problem);
    bool ReadLedger(std::string* problem);
    bool SetMarks(const std::vector<SpoolMark>& marks);
    bool ReadPlaces(std::string* problem);
    bool NoteRange(const SettledPart& part);
    bool AppendOne(Delivery& delivery, const std::vector<std::string>& receiveKeys,
                   std::size_t* usedKeys, Ledger* ledger);
    bool AppendOthers(const Delivery& delivery, Ledger* ledger);
    bool DropSeen(std::int64_t through, std::uint64_t* unseen);
    bool ForgetIds(Ledger* ledger);

    const std::unique_ptr<Database> database_;
    std::mutex databaseMutex_;  // around all use of the database, and the next three
    SpoolLimits limits_;
    std::int64_t keepBehind_ = INT64_MAX;
    std::uint64_t mostKept_ = 0;

    mutable std::mutex accountMutex_;  // inside the other
    Ledger account_;
    std::int64_t lastRow_ = 0, lastEnrichments_ = 0, settledRow_ = 0;
    std::uint64_t unseen_ = 0;
    std::string accepted_, settled_;
    struct PurgedRange {
        std::string last;  // receive-time key
        std::uint64_t events = 0;
    };
    std::vector<PurgedRange> purged_;
};

}  // namespace zel
