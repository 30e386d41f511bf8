#pragma once

#include "zelstore/schema/text.h"

// The names that JSON documents use, listed once. The 18 fields of keys have their names, narrow
// and wide, in keys/keyfield.h; the names with numbers (object types, actions, operators, states)
// stand in vocabulary.cpp.

namespace ZEL::Schema::names {

#define ZEL_NAME(name) inline constexpr TextView name = ZEL_TEXT(#name)

// The query document.
ZEL_NAME(command_uid);
ZEL_NAME(event_query);
ZEL_NAME(events);
ZEL_NAME(limit_result_count);
ZEL_NAME(include_enrichments);
ZEL_NAME(no_live_enriched_events);

// An event.
ZEL_NAME(artifacts);
ZEL_NAME(actor);
ZEL_NAME(result);
ZEL_NAME(target);
ZEL_NAME(action);
ZEL_NAME(type_id);
ZEL_NAME(begin_time);
ZEL_NAME(end_time);
ZEL_NAME(correlation_uid);
ZEL_NAME(filter);
ZEL_NAME(event_count);
ZEL_NAME(enable);
ZEL_NAME(receive_time);
ZEL_NAME(ref_uid);
ZEL_NAME(seq_num);
ZEL_NAME(object_type);

// What `filter` may say.
ZEL_NAME(record);
ZEL_NAME(submit);

// The objects of an event, and values.
ZEL_NAME(path);
ZEL_NAME(name);
ZEL_NAME(data);
ZEL_NAME(type_ids);
ZEL_NAME(start_id);
ZEL_NAME(run_state_id);
ZEL_NAME(loaded_module_name);
ZEL_NAME(reg_path);
inline constexpr TextView default_ = ZEL_TEXT("default");
ZEL_NAME(text);
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
ZEL_NAME(case_insensitive);
ZEL_NAME(state);
ZEL_NAME(pid);
ZEL_NAME(uid);
ZEL_NAME(cmd_line);
ZEL_NAME(id);
ZEL_NAME(value);
inline constexpr TextView operator_ = ZEL_TEXT("operator");
ZEL_NAME(error_code);
ZEL_NAME(src_ip);
ZEL_NAME(src_port);
ZEL_NAME(dst_ip);
ZEL_NAME(dst_port);
ZEL_NAME(direction_id);
ZEL_NAME(protocol_id);
ZEL_NAME(resource);
ZEL_NAME(source);
ZEL_NAME(facility);
ZEL_NAME(ref_event);

#undef ZEL_NAME

}  // namespace ZEL::Schema::names
