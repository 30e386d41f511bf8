#pragma once

#include <memory>

#include "zelstore/schema/schemaparser.h"

namespace ZEL::Schema {

// The object that a JSON object describes, by its object_type. A name without a class of its own,
// or none, gives an Unknown that keeps the name's number. Throws as FromJson does.
std::unique_ptr<ZelSchemaParser> CreateObjectFromJson(const web::json::value& in);

// A deep copy, chosen by the object's number. Null for null, and for a number without a class: the
// copy then loses the object.
std::unique_ptr<ZelSchemaParser> CloneObject(const ZelSchemaParser* object);

}  // namespace ZEL::Schema
