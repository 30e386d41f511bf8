#pragma once

#include <optional>
#include <span>
#include <string>

#include "sql/eventwalk.h"
#include "sql/sqliteapi.h"
#include "sql/sqlstore.h"
#include "sql/timeorder.h"

// What the store is asked for a statement's conditions: never less than what fits them, as SQLite
// tests each of them again.
namespace zel {

// Takes over the conditions of SQLite's plan that the store can use; `*plan` says which, in the
// order of their values. `hasColumns`: the table has all columns of events, else its first alone,
// the time. Where a walk comes in the order that the statement asks for,
// SQLite is told so.
int PlanEvents(sqlite3_index_info& info, bool hasColumns, SqlStore& store, std::string* plan);

// The question for the values of a plan; none when no row can fit them. Asks the database what its
// own operators make of names.
std::optional<EventWalk::Question> QuestionFor(const std::string& plan,
                                               std::span<sqlite3_value*> values, sqlite3* database,
                                               const TimeOrder& times, bool joinsEnrichments);

}  // namespace zel
