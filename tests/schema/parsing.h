#pragma once

#include <gtest/gtest.h>

#include <string>

#include "zelstore/schema/schemaparser.h"

namespace ZEL::Schema {

inline web::json::value Json(const std::string& text) {
    return web::json::value::parse(text);
}

template <typename T>
T Parse(const std::string& text) {
    T object;
    object.FromJson(Json(text));
    return object;
}

inline std::string Write(const ZelSchemaParser& object) {
    web::json::value out;
    object.ToJson(out);
    return out.serialize();
}

// What an object becomes when it is read and written back.
template <typename T>
std::string RoundTrip(const std::string& text) {
    return Write(Parse<T>(text));
}

}  // namespace ZEL::Schema
