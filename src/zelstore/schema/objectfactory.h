#pragma once

#include <memory>

#include "zelstore/schema/schemaparser.h"

namespace ZEL::Schema {

// The object that a JSON object describes, by its object_type. A name without a class of its own,
// or none, gives an Unknown that keeps the name's number. `former` may be an object of no more use,
// which becomes the new one if it is of its class. Throws as FromJson does. A name that is not in
// the vocabulary throws. What `former` held is replaced, and it is gone when the call throws.
std::unique_ptr<ZelSchemaParser> CreateObjectFromJson(
    const web::json::value& in, std::unique_ptr<ZelSchemaParser> former = nullptr);

// An object of the class that has this number, an Unknown for any other; what it holds is to be
// replaced. `former` as above.
std::unique_ptr<ZelSchemaParser> ObjectOfType(std::int32_t number,
                                              std::unique_ptr<ZelSchemaParser> former);

// The object that stands under a key, or null. Throws as above.
std::unique_ptr<ZelSchemaParser> ReadObject(const Members& in, TextView key,
                                            std::unique_ptr<ZelSchemaParser> former);

// A deep copy, chosen by the object's number. Null for null, and for a number without a class: the
// copy then loses the object.
std::unique_ptr<ZelSchemaParser> CloneObject(const ZelSchemaParser* object);

// An object of whatever class, or none, that is copied with its owner. A moved-from one is empty.
// Assigning copies first, so that a copy that throws changes nothing.
class OwnedObject : public std::unique_ptr<ZelSchemaParser> {
public:
    using Pointer = std::unique_ptr<ZelSchemaParser>;
    OwnedObject() = default;
    OwnedObject(Pointer object) noexcept : Pointer(std::move(object)) {}
    OwnedObject(OwnedObject&&) noexcept = default;
    OwnedObject(const OwnedObject& other) : Pointer(CloneObject(other.get())) {}
    OwnedObject& operator=(OwnedObject&&) noexcept = default;
    OwnedObject& operator=(const OwnedObject& other) { return *this = OwnedObject(other); }
    ~OwnedObject() = default;
};

}  // namespace ZEL::Schema
