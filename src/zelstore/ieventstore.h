#pragma once

#include <string_view>

#include "common/eventobject.h"
#include "common/itobbase.h"
#include "common/ivaluecollection.h"

namespace ZEL {

// Receives a query's results, on the thread that runs the query, one call at a time and under no
// lock of the store: it may call the store. The query holds a reference until its end. See
// IEventStore::Query.
class IQueryCallback : public ITobBase {
public:
    // A batch: status 0, `results` holds 1 to 100 event texts and is valid during the call only,
    // `isFinal` and `complete` are false. For receive-time rows `resumeTime` (UTC, 24 characters)
    // and `resumeSequence` name the row that ended the batch: a later query goes on after it with
    // that receive_time and a seq_num of one more. For other rows they are empty and 0.
    //
    // The end, exactly once, after all batches: the query's result, null `results`, `isFinal`
    // true, `complete` false only when the limit has cut results off.
    //
    // A failure returned for a batch ends the walk of the database in hand and counts as its
    // failure to read.
    virtual HRESULT OnQueryResults(HRESULT status, IValueCollection* results, bool isFinal,
                                   bool complete, IStringValue* resumeTime,
                                   std::int32_t resumeSequence) = 0;

protected:
    ~IQueryCallback() = default;
};

// A second face of a callback, asked for by QueryInterface when its query begins: hears of the
// databases that fail in this query, where the store's table of errors has those of all queries and
// writes. A host that runs many queries at once can tell them apart by it.
class IQueryFailures : public ITobBase {
public:
    // On the query's thread, under no lock of the store, as each failure is counted: so one that
    // cost results comes ahead of what follows them. `folder` is the database's name in the store's
    // directory and valid during the call only; operation 1 open, 2 read, 3 write.
    virtual void OnDatabaseFailure(IStringValue* folder, std::uint32_t operation,
                                   HRESULT result) = 0;

protected:
    ~IQueryFailures() = default;
};

// A third face of a callback, asked for likewise: how large its batches may be. Who needs the place
// of each receive-time row, and not only that of a batch's last one, takes one row at a time.
class IQueryBatches : public ITobBase {
public:
    // Most results of a batch; asked once for each sub-query. 0 and more than 100 mean 100.
    virtual std::uint32_t MostResults() = 0;

protected:
    ~IQueryBatches() = default;
};

// A row of the store as a walk meets it. Views, good during the call that brings them.
struct QueryRow {
    std::string_view key;
    // As it was stored; whether it is UTF-8 was not looked at.
    std::string_view text;
    // A JSON array of those that the document asks for; empty where there are none.
    std::string_view enrichments;
    // In a fleet the machine whose store had it; empty for the rows of one store.
    std::string_view host;
};

// A fourth face of a callback, asked for likewise: takes rows of events one by one, where they
// stand, in place of batches of texts. Nothing is copied or made of them, so that who counts by
// keys never touches a text. Rows by time of receipt still come in batches.
class IQueryRows : public ITobBase {
public:
    // On the query's thread, as OnQueryResults. hr::nothingToDo: no further row of this database is
    // wanted; a failure is as one for a batch. Without a limit a row comes once where several
    // sub-queries of one range want it, and those of a database in the order of their keys.
    virtual HRESULT OnQueryRow(const QueryRow& row) = 0;

protected:
    ~IQueryRows() = default;
};

// A sensor's event as numbered properties; implemented by the host and called within
// MakePropertyKey. Each operation returns false when the property is absent or of another kind.
// Text comes with a new reference.
//
//   text    3 begin time, 5 object type, 6 action, 7 correlation, 9 actor's hash, 10 actor's path,
//           12 target's hash, 13 target's path, 16 source address, 17 destination address, 25 url
//   number  4 sequence, 24 type of a kernel object
//   GUID    8 actor
class IEventProperties : public ITobBase {
public:
    virtual bool GetText(std::uint32_t property, IStringValue** text) = 0;
    virtual bool GetNumber(std::uint32_t property, std::uint32_t* number) = 0;
    virtual bool GetGuid(std::uint32_t property, GUID* guid) = 0;

protected:
    ~IEventProperties() = default;
};

// Kinds of key that MakeKey makes.
inline constexpr std::int32_t keyKindEvent = 0;    // from an event record
inline constexpr std::int32_t keyKindReceive = 1;  // from the clock

// The event store, in seven versions of one table of operations. All operations may be called from
// any thread, also from a query's callback. Every object of the class reaches the one store of the
// process. Nothing is thrown: memory exhaustion gives 0x8007000E, any
// other exception 0x8000FFFF. A null pointer for an output gives 0x80070057; what is given carries
// one reference that the caller owns. On failure an output is not to be used.
//
// Order for a host: Initialize, any number of inserts and queries, Stop, Shutdown, last Release.
class IEventStore : public ITobBase {
public:
    // The key for a record. kind 0: `text` is an event record as JSON; 0x80070057 for a null text
    // or a record without begin_time, 0x80004005 without target or action, 0x8000FFFF for text
    // that is no JSON or holds a name that is not in the vocabulary. The time is taken as it
    // stands. kind 1: a receive-time key of this moment; `text` is not read, but not null.
    // 0x80070057 for any other kind. Works without Initialize and never waits for the disk.
    virtual HRESULT MakeKey(IStringValue* text, std::int32_t kind, IStringValue** key) = 0;

    // Queues a record, of which the store keeps copies. 0x80070015 before Initialize; 0x80070057
    // for a null or empty argument; 0x80004005 for text that is not Unicode, and when the queue is
    // full: the record is then not taken, and may be offered again; 0x8000FFFF when it is full and
    // the store has been stopped, so that nobody will empty it. Full means 20,000 records (see the
    // settings) or 64 MiB of keys and values in UTF-8; an empty queue takes a larger one, too.
    // Never waits for the disk. What becomes of a queued record only GetDatabaseErrors tells.
    virtual HRESULT Insert(IStringValue* key, IStringValue* value) = 0;

    // Runs an event_query document on the calling thread. 0x80070057 for a null callback, with no
    // call back; on every other path the callback gets its end call with the result: 0x80004005
    // before Initialize, 0x80070057 for a null or empty document, 0x8000FFFF for one that can't be
    // understood. A sub-query also ends the query, after the results of those before it, with
    // 0x80070057 when it has neither begin_time nor receive_time, or an operator on begin_time or
    // end_time that makes no range; 0x8007000D or 0x800705B6 for a time that has an operator and
    // not its form; 0x8007000E when a condition can't be made, its text not being Unicode for
    // instance. What fails in one database is counted and leaves the result alone.
    //
    // Setting `stopEvent` ends what is in hand: the walk of one database, at its next thousandth
    // row or earlier where rows, conditions or the document are costly. An auto-reset event is then
    // used up. The databases behind are still visited, for half a second; then the whole query is
    // over, and ends with 0x80004004 when databases, sub-queries or the reading of the document
    // were left out. Null means that each walk ends at its thousandth row.
    virtual HRESULT Query(IStringValue* document, IQueryCallback* callback, HANDLE stopEvent) = 0;

    // Deletes whole databases, oldest first, until all files of the store fit in `maxSizeMegabytes`
    // of 0x100000 bytes, and returns when that is done. The databases being written stay; one that
    // is being read goes after its last reader. hr::ok whatever came of it: the outcome stands in
    // the settings, under ZEL\Opstate\EMAQ as MaxDBSizeHonored, 1 when the store fits and 2 when it
    // can't. hr::nothingToDo, at once, while another purge runs; 0x80004004 unless started;
    // 0x8007009B without a thread.
    virtual HRESULT Purge(std::uint32_t maxSizeMegabytes) = 0;

    // One record for each database and kind of failure that occurred: 0 the folder's name, 1 the
    // operation (1 open, 2 read, 3 write, 0 when another kind failed first), 2 how often, 3 the
    // last result, as bits. What `*out` holds is released first. Both give 0x80004005 before
    // Initialize.
    virtual HRESULT GetDatabaseErrors(IValueCollection** out) = 0;
    virtual HRESULT ClearDatabaseErrors() = 0;

    // Starts the store in the directory that %ZELDataStore% names; the folders in it are listed and
    // not opened. A directory that does not exist is not made, and counts as empty. hr::nothingToDo
    // when the store is started already. A failure leaves it stopped: 0x80004005 when the directory
    // has no name or can't be listed, 0x80004002 without a job manager, that one's own failure,
    // 0x8007000E, 0x8007009B without a thread. In each process the folders are listed once: a store
    // that is started anew sees only what it then writes.
    virtual HRESULT Initialize() = 0;
    // Writes all records that were accepted before the call, in the order of their acceptance: it
    // waits for what is being written, then writes what is queued, on the calling thread. Batches
    // that can't be written don't fail it: GetDatabaseErrors tells them. Purge and queries are
    // asked to end and not waited for: a purge goes on; a query that runs, also one of Query or
    // QueryEx, ends as a whole at its next look, with 0x80004004 when that leaves anything out.
    // Queries of IZelStoreQuery are refused from here on; a Query that begins later works, and
    // finds what was written. Records that are inserted from here on stay queued for the next
    // start.
    virtual HRESULT Stop() = 0;
    // Waits for the store's threads, but for the one that calls it, closes its databases and ends
    // live mode. Always succeeds. Call Stop first, on every path: without it the wait has no end.
    //
    // Initialize, Stop and Shutdown exclude each other; each may be called by several threads. A
    // store that another thread starts anew while Shutdown waits is left open.
    virtual HRESULT Shutdown() = 0;

protected:
    ~IEventStore() = default;
};

class IEventStore2 : public IEventStore {
public:
    // As Query; while `pauseEvent`, when not null, is reset, the walk waits at a thousandth row.
    virtual HRESULT QueryEx(IStringValue* document, IQueryCallback* callback, HANDLE stopEvent,
                            HANDLE pauseEvent) = 0;

protected:
    ~IEventStore2() = default;
};

class IEventStore3 : public IEventStore2 {
public:
    // Earliest date in the store as YYYYMMDD, empty for an empty store, and an estimate of the
    // store's bytes, which may be far off for small folders. 0x80004005 before Initialize.
    virtual HRESULT GetOldestDate(IStringValue** oldestDate, std::uint64_t* totalBytes) = 0;

protected:
    ~IEventStore3() = default;
};

class IEventStore4 : public IEventStore3 {
public:
    // The primary key for an event given as properties. 0x80070057 when a required one is absent.
    virtual HRESULT MakePropertyKey(IEventProperties* event, IStringValue** key) = 0;

protected:
    ~IEventStore4() = default;
};

class IEventStore5 : public IEventStore4 {
public:
    // A key for an enrichment of the event that has `baseKey`, which is not checked. Enrichments
    // are numbered from 1 for each store object, so keys of different objects and runs may meet.
    virtual HRESULT MakeEnrichmentKey(IStringValue* baseKey, IStringValue** key) = 0;
    // As Insert, into the silent queue: the record goes to the database of its event's date, where
    // queries join it to the event.
    virtual HRESULT InsertSilent(IStringValue* key, IStringValue* value) = 0;

protected:
    ~IEventStore5() = default;
};

class IEventStore6 : public IEventStore5 {
public:
    // In live mode records reach the disk within ten seconds, and receive-time rows start the
    // store's job. Always succeeds; may be set at any time.
    virtual HRESULT SetLiveMode(bool enable) = 0;

protected:
    ~IEventStore6() = default;
};

class IEventStore7 : public IEventStore6 {
public:
    // As MakeEnrichmentKey, with a mark that tells silent (true) from live enrichments.
    virtual HRESULT MakeFlaggedEnrichmentKey(IStringValue* baseKey, bool silentEnrichment,
                                             IStringValue** key) = 0;

protected:
    ~IEventStore7() = default;
};

// A store that only reads, such as that of a person who asks beside an agent that writes, or of a
// copy on a read-only disk. Every store object answers this interface.
class IReadOnlyStore : public ITobBase {
public:
    // As IEventStore::Initialize, for reading alone: nothing in the store's directory is made,
    // locked, changed or removed, neither now nor by a later operation. Each folder is read as it
    // stood when a query opened it, also while another process writes it; what that one has not
    // flushed is not seen. Queries that read a folder at the same time share what the first of them
    // has opened. Insert and Purge give 0x80070005. No thread is started. The first start
    // in a process decides: one for the other use gives 0x80004005.
    virtual HRESULT InitializeForReading() = 0;

protected:
    ~IReadOnlyStore() = default;
};

// How far the store has come with what was inserted. For a host that keeps records of its own until
// the store has them. Every store object answers this interface.
class IWriteProgress : public ITobBase {
public:
    // How many of the records that Insert took in this process have left the queue: each was handed
    // to the system, or its loss was reported (wm::reportLabel::lostBatch) ahead of this number.
    // They leave it in the order of their acceptance. Never goes back, not even with a new start.
    virtual std::uint64_t SettledRecords() = 0;
    // The same of those that InsertSilent took.
    virtual std::uint64_t SettledEnrichments() = 0;

protected:
    ~IWriteProgress() = default;
};

// The conditions of a document, for events that come by and not out of the store. Used by one
// thread at a time.
class IRowFilter : public ITobBase {
public:
    // Whether a query with that document would find the event that has this key: whether any of its
    // sub-queries does. 0x80070057 for a null argument, 0x8000FFFF where a condition can't be
    // tested on it, such as an expression that would take too long; `*passes` is false then.
    virtual HRESULT Passes(IStringValue* key, bool* passes) = 0;

protected:
    ~IRowFilter() = default;
};

// Every store object answers this interface, also one that was not started.
class IRowFilterMaker : public ITobBase {
public:
    // A new filter, referenced once, for an event_query document. Its sub-queries need no
    // begin_time here; its limit and what it says of enrichments are not looked at. Fails as
    // IEventStore::Query does, and with 0x80070057 for a document without sub-queries or with a
    // receive_time.
    virtual HRESULT MakeRowFilter(IStringValue* document, IRowFilter** filter) = 0;

protected:
    ~IRowFilterMaker() = default;
};

inline constexpr GUID eventStoreObjectId = MakeGuid("1A8B6619-443B-4B5D-9755-C50696B237C6");
inline constexpr GUID iidEventStore = MakeGuid("89C11C84-4B14-4C69-BBA3-9FB7522711FC");
inline constexpr GUID iidEventStore2 = MakeGuid("6264CC71-0652-406B-AC06-4111E93E794F");
inline constexpr GUID iidEventStore3 = MakeGuid("7C209C73-208E-4F2A-A9DE-032F7AD39F95");
inline constexpr GUID iidEventStore4 = MakeGuid("D314D057-F980-4E7B-BD6C-852FF2F46A2D");
inline constexpr GUID iidEventStore5 = MakeGuid("8705B46D-F6F5-435D-A547-F1AFC1F9BBC6");
inline constexpr GUID iidEventStore6 = MakeGuid("02C1CD3E-F843-4143-BC49-495D5291E58A");
inline constexpr GUID iidEventStore7 = MakeGuid("87FF9166-7045-482F-AED5-1685253A1FBF");
inline constexpr GUID iidQueryFailures = MakeGuid("B47D5E12-8C3A-4F61-A0D9-3E7F51C2986B");
inline constexpr GUID iidReadOnlyStore = MakeGuid("6D3B9A0E-52C7-4F0B-9E1D-8A47C1F20B63");
inline constexpr GUID iidWriteProgress = MakeGuid("4E0C5D1B-7A92-4C36-B8F1-2D93E6A7150C");
inline constexpr GUID iidQueryBatches = MakeGuid("0D8E4B37-91C5-4A2E-B6F8-5C27A1D3E940");
inline constexpr GUID iidQueryRows = MakeGuid("7E1F4A92-3C68-4D05-9B27-A6D80E5F13C4");
inline constexpr GUID iidRowFilter = MakeGuid("C3A95F10-2B6E-47D8-8E41-70F9D2B5A613");
inline constexpr GUID iidRowFilterMaker = MakeGuid("95E1C7A4-6D03-4F5B-A2C9-1B84E60F37D2");

}  // namespace ZEL
