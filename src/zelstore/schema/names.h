#pragma once

#include "zelstore/schema/text.h"

// The names that JSON documents use, listed once. The 18 fields of keys have their names, narrow
// and wide, in keys/keyfield.h; the names with numbers (object types, actions, operators, states)
// stand in vocabulary.cpp.

namespace ZEL::Schema::names {

// The constant has the name that it stands for, so that one can't be misspelt without the other.
// Where C++ keeps a word for itself, an underscore stands behind.
#define ZEL_NAME(name) inline constexpr TextView name = ZEL_TEXT(#name)

// The query document.
ZEL_NAME(command_uid);
// Everything else stands in this object; a document without it asks for nothing.
ZEL_NAME(event_query);
// The sub-queries, run one after the other.
ZEL_NAME(events);
// Over all sub-queries; negative, or missing, for no limit.
ZEL_NAME(limit_result_count);
// Whether results carry their silent enrichments.
ZEL_NAME(include_enrichments);
// Whether events that have a live enrichment are left out.
ZEL_NAME(no_live_enriched_events);

// An event.
// The object that holds actor, result and target.
ZEL_NAME(artifacts);
ZEL_NAME(actor);
ZEL_NAME(result);
ZEL_NAME(target);
ZEL_NAME(action);
ZEL_NAME(type_id);
// Times are text in UTC (timetext.h). Begin and end bound a walk by the events' own time.
ZEL_NAME(begin_time);
ZEL_NAME(end_time);
ZEL_NAME(correlation_uid);
// This and the next two are carried along; no key or condition depends on them.
ZEL_NAME(filter);
ZEL_NAME(event_count);
ZEL_NAME(enable);
// The start of a walk by the time of receipt.
ZEL_NAME(receive_time);
ZEL_NAME(ref_uid);
// The event's number within its time, and in a query where to begin within the first time.
ZEL_NAME(seq_num);
// Names of ObjectTypes; an object without it is an Unknown.
ZEL_NAME(object_type);

// What `filter` may say.
ZEL_NAME(record);
ZEL_NAME(submit);

// The objects of an event, and values.
ZEL_NAME(path);
ZEL_NAME(name);
ZEL_NAME(data);
// Of services and kernel objects.
ZEL_NAME(type_ids);
ZEL_NAME(start_id);
ZEL_NAME(run_state_id);
ZEL_NAME(loaded_module_name);
ZEL_NAME(reg_path);
inline constexpr TextView default_ = ZEL_TEXT("default");
// Of urls.
ZEL_NAME(text);
// Of files and what is like them; most are written and not read (objectclasses.h).
ZEL_NAME(normalized_path);
ZEL_NAME(alternate_data_stream_name);
ZEL_NAME(size);
ZEL_NAME(attributes);
ZEL_NAME(attribute_ids);
ZEL_NAME(security_descriptor);
ZEL_NAME(sha2);
ZEL_NAME(md5);
ZEL_NAME(url);
ZEL_NAME(file_id);
ZEL_NAME(signature_company_name);
ZEL_NAME(signature_level_id);
ZEL_NAME(signature_value_ids);
ZEL_NAME(session_id);
ZEL_NAME(loaded_modules);
ZEL_NAME(session_state);
// Of an operator: false makes case matter.
ZEL_NAME(case_insensitive);
ZEL_NAME(state);
// Of processes.
ZEL_NAME(pid);
ZEL_NAME(uid);
ZEL_NAME(cmd_line);
// Of sessions.
ZEL_NAME(id);
// What a condition compares with, or what a fact is.
ZEL_NAME(value);
inline constexpr TextView operator_ = ZEL_TEXT("operator");
ZEL_NAME(error_code);
// Of connections.
ZEL_NAME(src_ip);
ZEL_NAME(src_port);
ZEL_NAME(dst_ip);
ZEL_NAME(dst_port);
ZEL_NAME(direction_id);
ZEL_NAME(protocol_id);
// Of scanned content and of traced events.
ZEL_NAME(resource);
ZEL_NAME(source);
ZEL_NAME(facility);
ZEL_NAME(ref_event);

#undef ZEL_NAME

}  // namespace ZEL::Schema::names
