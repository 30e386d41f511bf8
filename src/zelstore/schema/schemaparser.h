#pragma once

#include <cpprest/json.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "zelstore/schema/vocabulary.h"

namespace ZEL::Schema {

class StringPair;

// Root of the typed form of every JSON document that crosses the store. One tree of classes serves
// records and queries: a field is a pair of an optional operator and values, which states a fact in
// a record and a condition in a query. An absent field is a null pointer, and absent differs from
// empty. Objects hold no locks and belong to the thread that parses them.
//
// Failures are exceptions: std::out_of_range "invalid map<K, T> key" for a name or number that is
// not in its table, web::json::json_exception for a value of the wrong JSON type. The object is
// then partly filled and only good for destruction.
//
// Copying goes through the derived classes (CloneObject): a root alone can't be copied or made.
class ZelSchemaParser {
public:
    virtual ~ZelSchemaParser() = default;

    // `out` becomes a new object, whose keys keep the order of writing. Throws std::out_of_range
    // for a number that has no name.
    virtual void ToJson(web::json::value& out) const = 0;
    // Replaces all that the object held. Reads fewer keys than ToJson writes.
    virtual void FromJson(const web::json::value& in) = 0;

    // What the object says it is, which copying goes by. A name throws when it is not in the
    // vocabulary; a number is taken as it stands.
    void SetObjectType(const Text& name) { object_type = ObjectTypes().Number(name); }
    void SetObjectTypeId(std::int32_t number) { object_type = number; }
    const Text& GetObjectTypeName() const { return ObjectTypes().Name(object_type); }
    std::int32_t GetObjectTypeId() const { return object_type; }

    // Hash and path of whatever has them; null where the class has none or the object's is absent.
    // Owned by the object.
    virtual const StringPair* GetMd5() const { return nullptr; }
    virtual const StringPair* GetSha2() const { return nullptr; }
    virtual const StringPair* GetPath() const { return nullptr; }
    // Whether the object says anything. It does not check values, and nothing that stores or
    // queries consults it.
    virtual bool IsValid() const { return true; }

    // A number of ObjectTypes.
    std::int32_t object_type = objectType::unknown;

protected:
    ZelSchemaParser() = default;
    explicit ZelSchemaParser(std::int32_t type) : object_type(type) {}
    ZelSchemaParser(const ZelSchemaParser&) = default;
    ZelSchemaParser& operator=(const ZelSchemaParser&) = default;
};

// An optional field: owns its value, and copies deep. An absent one keeps the memory of the value
// that it had, for the next that is read into it. For one thread, as all of the schema.
template <typename T>
class Field {
public:
    Field() = default;
    Field(const Field& other) : value_(other ? std::make_unique<T>(*other) : nullptr) {
        isPresent_ = other.isPresent_;
    }
    Field(Field&& other) noexcept
        : value_(std::move(other.value_)), isPresent_(std::exchange(other.isPresent_, false)) {}
    // By value: the copy is made before anything changes.
    Field& operator=(Field other) noexcept {
        value_.swap(other.value_);
        std::swap(isPresent_, other.isPresent_);
        return *this;
    }

    // Present, with a new value.
    T& Make() {
        Set(T());
        return *value_;
    }
    // A copy, made before the former value goes: that may be what is given.
    void Set(const T& value) {
        value_ = std::make_unique<T>(value);
        isPresent_ = true;
    }
    // Present, with whatever value; for those who replace all of it. What it held is still there
    // until then.
    T& Reuse() {
        if (value_ == nullptr)
            value_ = std::make_unique<T>();
        isPresent_ = true;
        return *value_;
    }
    // Absent. The memory stays.
    void Reset() noexcept { isPresent_ = false; }
    // Null when absent. The two below must only be used when it is present.
    T* get() const noexcept { return isPresent_ ? value_.get() : nullptr; }
    T* operator->() const noexcept { return value_.get(); }
    T& operator*() const noexcept { return *value_; }
    explicit operator bool() const noexcept { return isPresent_; }

private:
    std::unique_ptr<T> value_;
    bool isPresent_ = false;
};

// The members of a JSON value, which has none unless it is an object. A view: the value must
// outlive it. The library's own search needs a string made of each key that is asked for, and a
// record has few members and is asked for many. Keys are compared exactly. What is no object is no
// failure here; who needs one says so.
class Members {
public:
    Members(const web::json::value& in) : object_(in.is_object() ? &in.as_object() : nullptr) {}

    // Null when there is none. Of several with the same key it is the one that the library's search
    // finds. Valid as long as the JSON value is.
    const web::json::value* Find(TextView key) const noexcept {
        if (object_ == nullptr)
            return nullptr;
        for (const auto& [name, member] : *object_)
            if (name.size() == key.size() && key == name)
                return &member;
        return nullptr;
    }

private:
    const web::json::object* object_;
};

// A JSON number kept to a width: doubles are cut towards zero within the 64-bit range, wider
// numbers lose their high bits. Both throw for a value that is no number.
std::uint32_t ReadNumber32(const web::json::value& in);
std::uint64_t ReadNumber64(const web::json::value& in);

// What a class reads is told once, by its list of fields or by a template; how a kind of member is
// read stands in the functions below, for the JSON library's Members, and in fastrecord.cpp for the
// fast reader's.

// Reads an optional field: absent keys leave it absent. A key that is there with null is not
// absent: it reads as an object without members.
template <typename T>
void ReadField(const Members& in, TextView key, Field<T>& field) {
    field.Reset();
    if (const web::json::value* const member = in.Find(key))
        field.Reuse().FromJson(*member);
}

// A list of names, kept as their numbers; an absent key leaves it empty. A name that the table has
// not throws, and so does a value that is no list of texts.
void ReadNames(const Members& in, TextView key, const NameTable& table,
               std::vector<std::int32_t>& numbers);
// A list of numbers, which lose what their type does not hold; an absent key leaves it empty.
template <typename T>
void ReadNumbers(const Members& in, TextView key, std::vector<T>& numbers) {
    numbers.clear();
    if (const web::json::value* const list = in.Find(key))
        for (const web::json::value& element : list->as_array())
            numbers.push_back(static_cast<T>(ReadNumber32(element)));
}
// A number, or `absent` for a key that is missing.
std::uint32_t ReadNumber(const Members& in, TextView key, std::uint32_t absent);
// None for a key that is missing.
std::optional<bool> ReadFlag(const Members& in, TextView key);
// Whether the key is there with another text than `expected`.
bool ReadsOther(const Members& in, TextView key, TextView expected);
// The members of an object; none for a key that is missing. Throws for anything but an object.
std::optional<Members> ReadMembers(const Members& in, TextView key);

// Writes nothing for an absent field.
template <typename T>
void WriteField(web::json::value& out, TextView key, const Field<T>& field) {
    if (!field)
        return;
    web::json::value nested;
    field->ToJson(nested);
    out[Text(key)] = std::move(nested);
}

// A list, when it has anything. `toValue` makes a JSON value of each element.
template <typename List, typename ToValue>
void WriteList(web::json::value& out, TextView key, const List& list, ToValue&& toValue) {
    if (list.empty())
        return;
    web::json::value array = web::json::value::array(list.size());
    for (std::size_t i = 0; i < list.size(); ++i)
        array[i] = toValue(list[i]);
    out[Text(key)] = std::move(array);
}

void WriteNames(web::json::value& out, TextView key, const NameTable& table,
                const std::vector<std::int32_t>& numbers);

}  // namespace ZEL::Schema
