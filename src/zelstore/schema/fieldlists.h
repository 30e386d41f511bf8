#pragma once

#include <optional>
#include <tuple>

#include "zelstore/schema/schemaparser.h"

// What a class of objects holds is told by one list, in the order of its fields:
//
//   static constexpr auto Fields() {
//       return std::tuple(Pair(names::path, &File::path, Check::identifies),
//                         Pair(names::size, &File::size, Check::ifPresent, isNotRead), ...
//
// Reading, writing and checking walk the list, and so does whoever wants to know which keys a class
// has. A row tells the name in the JSON, the member, whether reading takes it, and its part in
// IsValid. How a member looks in the JSON follows from the kind of its row. Reading is by the JSON
// library or by the fast reader, whose members are of another type (`In`).
//
// Rows are made at compile time; reading an object costs a search for each name in its list and
// nothing for the list itself. Rows that are pairs may be absent and take part in IsValid; plain
// rows don't.

namespace ZEL::Schema {

// A field's part in IsValid. One that identifies must be valid when it is there, and of all that
// identify one must be there. A pair that is never looked at may hold anything, and the object is
// valid all the same.
enum class Check { never, ifPresent, identifies };

// Some fields are written and never read: no parsed object has them. Writing them is for objects
// that are made by code; a document that has them is read without a failure, and loses them when it
// is written again.
inline constexpr bool isNotRead = false;

// An optional object of its own.
template <typename Object, typename T>
struct PairRow {
    TextView name;
    Field<T> Object::*member;
    Check check;
    bool isRead;

    // What is not read is absent afterwards, also in an object that had it.
    template <typename In>
    void Read(const In& in, Object& object) const {
        if (isRead)
            ReadField(in, name, object.*member);
        else
            (object.*member).Reset();
    }
    void Write(web::json::value& out, const Object& object) const {
        WriteField(out, name, object.*member);
    }
    bool IsPresent(const Object& object) const { return static_cast<bool>(object.*member); }
    // Only to be asked of what is present.
    bool IsValid(const Object& object) const { return (object.*member)->IsValid(); }
};

// Spares lists the types.
template <typename Object, typename T>
constexpr PairRow<Object, T> Pair(TextView name, Field<T> Object::*member,
                                  Check check = Check::never, bool isRead = true) {
    return {name, member, check, isRead};
}

// What is no pair says nothing that IsValid looks at. All of them are read.
struct PlainRow {
    static constexpr bool isRead = true;
    static constexpr Check check = Check::never;
};

// A list of numbers, written when it has any. An absent key leaves it empty.
template <typename Object, typename T>
struct NumbersRow : PlainRow {
    TextView name;
    std::vector<T> Object::*member;
    constexpr NumbersRow(TextView key, std::vector<T> Object::*m) : name(key), member(m) {}

    template <typename In>
    void Read(const In& in, Object& object) const {
        ReadNumbers(in, name, object.*member);
    }
    void Write(web::json::value& out, const Object& object) const {
        WriteList(out, name, object.*member, [](T number) { return web::json::value(number); });
    }
};

// A list of names, kept as their numbers. The table is asked for at each use, since it is made at
// the first one.
template <typename Object>
struct NamesRow : PlainRow {
    TextView name;
    std::vector<std::int32_t> Object::*member;
    const NameTable& (*table)();
    constexpr NamesRow(TextView key, std::vector<std::int32_t> Object::*m, const NameTable& (*t)())
        : name(key), member(m), table(t) {}

    template <typename In>
    void Read(const In& in, Object& object) const {
        ReadNames(in, name, table(), object.*member);
    }
    void Write(web::json::value& out, const Object& object) const {
        WriteNames(out, name, table(), object.*member);
    }
};

// A number that is always written. So a parsed object can't tell a missing key from one with the
// value that it stands for.
template <typename Object>
struct NumberRow : PlainRow {
    TextView name;
    std::uint32_t Object::*member;
    std::uint32_t absent;  // what a missing key stands for
    constexpr NumberRow(TextView key, std::uint32_t Object::*m, std::uint32_t a = 0)
        : name(key), member(m), absent(a) {}

    template <typename In>
    void Read(const In& in, Object& object) const {
        object.*member = ReadNumber(in, name, absent);
    }
    void Write(web::json::value& out, const Object& object) const {
        out[Text(name)] = web::json::value(object.*member);
    }
};

// True or false, or not said. Written only when it was said.
template <typename Object>
struct FlagRow : PlainRow {
    TextView name;
    std::optional<bool> Object::*member;
    constexpr FlagRow(TextView key, std::optional<bool> Object::*m) : name(key), member(m) {}

    template <typename In>
    void Read(const In& in, Object& object) const {
        object.*member = ReadFlag(in, name);
    }
    void Write(web::json::value& out, const Object& object) const {
        if (object.*member)
            out[Text(name)] = web::json::value::boolean(*(object.*member));
    }
};

// Begins the JSON of an object class. The type's name comes first, keys keep the order of writing.
inline void WriteObject(web::json::value& out, const ZelSchemaParser& object) {
    out = web::json::value::object(true);
    out[Text(names::object_type)] = web::json::value::string(object.GetObjectTypeName());
}

// An object says itself what it is, whatever class it was made as. Without the key the type stays
// as it was.
inline void ReadObjectType(const Members& in, ZelSchemaParser& object) {
    if (const web::json::value* const name = in.Find(names::object_type))
        object.SetObjectType(name->as_string());
}

// The base of an object class that is its list. IsValid asks first whether anything identifies the
// object, then whether each field that it looks at and that is there is valid.
//
// The list comes from the class itself (`Object` is the class that derives from this one), so that
// no call is virtual below the three of the root.
template <typename Object>
class ListedObject : public ZelSchemaParser {
public:
    void ToJson(web::json::value& out) const override {
        WriteObject(out, *this);
        std::apply([&](const auto&... row) { (row.Write(out, Self()), ...); }, Object::Fields());
    }

    // Members that are missing from the JSON lose what they held.
    void FromJson(const web::json::value& json) override {
        const Members in(json);
        ReadObjectType(in, *this);
        ReadFields(in);
    }
    // All of it but the object's type.
    template <typename In>
    void ReadFields(const In& in) {
        std::apply([&](const auto&... row) { (row.Read(in, static_cast<Object&>(*this)), ...); },
                   Object::Fields());
    }

    // By the list alone. Where nothing in the list identifies, an object that says nothing is
    // valid.
    bool IsValid() const override {
        return std::apply(
            [&](const auto&... row) {
                const bool needsOne = ((row.check == Check::identifies) || ...);
                return (!needsOne || (Identifies(row) || ...)) && (IsSound(row) && ...);
            },
            Object::Fields());
    }

protected:
    using ZelSchemaParser::ZelSchemaParser;

private:
    const Object& Self() const { return static_cast<const Object&>(*this); }

    // Both are asked of every row of the list; the plain ones say nothing.
    template <typename Row>
    bool Identifies(const Row& row) const {
        if constexpr (!std::is_base_of_v<PlainRow, Row>)
            return row.check == Check::identifies && row.IsPresent(Self());
        return false;
    }

    template <typename Row>
    bool IsSound(const Row& row) const {
        if constexpr (!std::is_base_of_v<PlainRow, Row>)
            return row.check == Check::never || !row.IsPresent(Self()) || row.IsValid(Self());
        return true;
    }
};

}  // namespace ZEL::Schema
