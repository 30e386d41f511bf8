#pragma once

#include <boost/container/small_vector.hpp>
#include <vector>

#include "zelstore/schema/schemaparser.h"

// The values of events: in a record facts, mostly without an operator, in a query what to compare
// with. The classes take every operator that has a name; which of them make sense for a field is
// for the query to say.

namespace ZEL::Schema {

// How a condition compares. Case does not matter unless the JSON says "case_insensitive":false. A
// name that is no operator throws; a missing one is operatorUnknown, which no condition fulfils.
class Operator final : public ZelSchemaParser {
public:
    Operator() : ZelSchemaParser(objectType::operatorPair) {}
    Operator(std::int32_t number, bool caseMatters)
        : ZelSchemaParser(objectType::operatorPair), op(number), caseSensitive(caseMatters) {}

    void ToJson(web::json::value& out) const override;
    void FromJson(const web::json::value& in) override;

    std::int32_t op = operatorUnknown;  // an OperatorType
    // The JSON says the opposite, case_insensitive, which is true when it is missing.
    bool caseSensitive = false;
};

// {"operator":{...},"value":["a","b"]}
// A text or several. Of the values of a record its key takes the first in byte order; those of a
// query are alternatives, or all to hold, as the operator has it.
class StringPair final : public ZelSchemaParser {
public:
    StringPair() : ZelSchemaParser(objectType::stringPair) {}
    void ToJson(web::json::value& out) const override;
    void FromJson(const web::json::value& in) override;
    bool IsValid() const override { return !values.empty(); }

    Field<Operator> op;
    boost::container::small_vector<Text, 1> values;  // nearly always one
};

// Numbers are kept to their width: fractions are cut off, and of larger numbers the low bits stay.
// {"operator":{...},"value":[1,2]}, for unsigned 32-bit and 64-bit numbers.
//
// There are two widths and no others.
template <typename T>
class IntegerPair final : public ZelSchemaParser {
public:
    IntegerPair() : ZelSchemaParser(objectType::integerPair) {}
    void ToJson(web::json::value& out) const override;
    void FromJson(const web::json::value& in) override;
    bool IsValid() const override { return !values.empty(); }

    Field<Operator> op;
    // In the order of the JSON, repetitions included.
    boost::container::small_vector<T, 1> values;
};

// {"operator":{...},"value":"text"}; the text is not checked. DatePair and GuidPair read alike. It
// is only a base.
class TextPair : public ZelSchemaParser {
public:
    void FromJson(const web::json::value& in) override;

    Field<Operator> op;
    Text value;

protected:
    using ZelSchemaParser::ZelSchemaParser;
};

// A time, in the form of timetext.h where anybody wants to count with it. Its object type is
// unknown, as it always was.
class DatePair final : public TextPair {
public:
    DatePair() = default;
    explicit DatePair(Text text) { value = std::move(text); }
    void ToJson(web::json::value& out) const override;
    bool IsValid() const override { return !value.empty(); }
};

// An identifier as text, in whatever form the record has it.
class GuidPair final : public TextPair {
public:
    GuidPair() : TextPair(objectType::guidPair) {}
    // Unlike a date, an empty value is written too.
    void ToJson(web::json::value& out) const override;
};

// What a look at an object found: {"state":"exists","error_code":"text"}. It is carried along with
// its object; no condition and no key looks at it.
class ExistPair final : public ZelSchemaParser {
public:
    ExistPair() = default;
    // Throws while there is no state.
    void ToJson(web::json::value& out) const override;
    void FromJson(const web::json::value& in) override;

    // A number of ExistStates; 0 has no name.
    std::int32_t state = 0;
    // As the sensor told it; empty when there was none.
    Text error_code;
};

}  // namespace ZEL::Schema
