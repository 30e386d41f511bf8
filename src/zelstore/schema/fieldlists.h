#pragma once

#include "zelstore/schema/schemaparser.h"

// Reading, writing and checking many fields in one go: lists of key and field, worked through in
// order.
namespace ZEL::Schema {

inline constexpr const utility::char_t* keyObjectType = ZEL_TEXT("object_type");

// Begins the JSON of an object class.
inline void WriteObject(web::json::value& out, const ZelSchemaParser& object) {
    out = web::json::value::object(true);
    out[keyObjectType] = web::json::value::string(object.GetObjectTypeName());
}

// An object says itself what it is, whatever class it was made as.
inline void ReadObjectType(const Members& in, ZelSchemaParser& object) {
    if (const web::json::value* const name = in.Find(keyObjectType))
        object.SetObjectType(name->as_string());
}

inline void WriteFields(web::json::value&) {}
template <typename T, typename... Rest>
void WriteFields(web::json::value& out, const utility::char_t* key, const Field<T>& field,
                 const Rest&... rest) {
    WriteField(out, key, field);
    WriteFields(out, rest...);
}

inline void ReadFields(const Members&) {}
template <typename T, typename... Rest>
void ReadFields(const Members& in, TextView key, Field<T>& field, Rest&&... rest) {
    ReadField(in, key, field);
    ReadFields(in, rest...);
}

template <typename... T>
void ResetFields(Field<T>&... fields) {
    (fields.Reset(), ...);
}

// Whether each present field is valid.
template <typename... T>
bool PresentAreValid(const Field<T>&... fields) {
    return ((!fields || fields->IsValid()) && ...);
}

template <typename... T>
bool AnyPresent(const Field<T>&... fields) {
    return (static_cast<bool>(fields) || ...);
}

}  // namespace ZEL::Schema
