#include "zelstore/schema/valueclasses.h"

// The shapes of values. Each is {"operator":{..},"value":..}, and each has its own manners with
// what is empty: a list or a date without a value is written without the key, a GUID with an empty
// text, and an object's state can't be written before it has one. Documents that went through here
// before have that form, so it stays.
//
// Anything but an object reads as an object without members: "path":"x" makes a path that is there
// and has no values, and no failure.

namespace ZEL::Schema {

using web::json::value;

void Operator::ToJson(value& out) const {
    out = value::object(true);
    out[Text(names::value)] = value::string(OperatorTypes().Name(op));
    out[Text(names::case_insensitive)] = value::boolean(!caseSensitive);
}

void Operator::FromJson(const value& json) {
    const Members in(json);
    op = operatorUnknown;
    caseSensitive = false;
    if (const value* const name = in.Find(names::value))
        op = OperatorTypes().Number(name->as_string());
    if (const value* const insensitive = in.Find(names::case_insensitive))
        caseSensitive = !insensitive->as_bool();
}

void StringPair::ToJson(value& out) const {
    out = value::object(true);
    WriteField(out, names::operator_, op);
    WriteList(out, names::value, values, [](const auto& each) { return value(each); });
}

void StringPair::FromJson(const value& json) {
    const Members in(json);
    ReadField(in, names::operator_, op);
    const value* const list = in.Find(names::value);
    if (list == nullptr) {
        values.clear();
        return;
    }
    // Into the former texts, whose memory is mostly large enough.
    const web::json::array& array = list->as_array();
    values.resize(array.size());
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = array.at(i).as_string();  // throws for what is no text, as the other shapes do
}

template <typename T>
void IntegerPair<T>::ToJson(value& out) const {
    out = value::object(true);
    WriteField(out, names::operator_, op);
    WriteList(out, names::value, values, [](const auto& each) { return value(each); });
}

template <typename T>
void IntegerPair<T>::FromJson(const value& json) {
    const Members in(json);
    values.clear();
    ReadField(in, names::operator_, op);
    const value* const list = in.Find(names::value);
    if (list == nullptr)
        return;
    for (const value& element : list->as_array()) {
        if constexpr (sizeof(T) == sizeof(std::uint32_t))
            values.push_back(ReadNumber32(element));
        else
            values.push_back(ReadNumber64(element));
    }
}

template class IntegerPair<std::uint32_t>;
template class IntegerPair<std::uint64_t>;

void TextPair::FromJson(const web::json::value& json) {
    const Members in(json);
    value.clear();
    ReadField(in, names::operator_, op);
    if (const web::json::value* const text = in.Find(names::value))
        value = text->as_string();
}

void DatePair::ToJson(web::json::value& out) const {
    out = web::json::value::object(true);
    WriteField(out, names::operator_, op);
    if (!value.empty())
        out[Text(names::value)] = web::json::value::string(value);
}

// What stands behind a NUL is not written.
void GuidPair::ToJson(web::json::value& out) const {
    out = web::json::value::object(true);
    WriteField(out, names::operator_, op);
    out[Text(names::value)] =
        web::json::value::string(value.substr(0, value.find(utility::char_t())));
}

void ExistPair::ToJson(value& out) const {
    out = value::object(true);
    out[Text(names::state)] = value::string(ExistStates().Name(state));
    if (!error_code.empty())
        out[Text(names::error_code)] = value::string(error_code);
}

void ExistPair::FromJson(const value& json) {
    const Members in(json);
    state = 0;
    error_code.clear();
    if (const value* const name = in.Find(names::state))
        state = ExistStates().Number(name->as_string());
    if (const value* const code = in.Find(names::error_code))
        error_code = code->as_string();
}

}  // namespace ZEL::Schema
