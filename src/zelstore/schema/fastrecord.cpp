#include "zelstore/schema/fastrecord.h"

#include <simdjson.h>

#include <algorithm>
#include <boost/container/static_vector.hpp>

#include "zelstore/schema/objectclasses.h"

// The fast road of a record into an Event. What an event and its objects read is told by the same
// lists as for the JSON library; here stands how, from the tree of a parser that is many times
// faster and stricter. The two must never give different events, so whatever they may see
// differently, and whatever sensors do not send, ends this road with a Doubt:
//
// - What only the library accepts (comments, malformed UTF-8, numbers beyond 64 bits, other blanks)
//   the fast parser refuses. Nesting it is told to refuse earlier than the library does.
// - Of a name that stands twice in an object the library takes one that depends on the object's
//   size.
// - A NUL, and halves of surrogate pairs: the parsers take escapes of them for different texts.
// - Wrong types, unknown names and numbers with a fraction are the library's to refuse or to cut.
// - Operators, results and states are what questions have, and whole kinds of objects are too rare
//   to be worth a second way.

namespace ZEL::Schema {

namespace {

using simdjson::dom::element;

// The library chooses its parser for this processor at its first use, takes a little memory for
// that, and without it ends the process. So that is while the module is loaded, when a lack of
// memory is the loader's to tell.
[[maybe_unused]] const bool isParserChosen = simdjson::validate_utf8("", 0);

// Ends the fast road; never leaves this file.
struct Doubt {};

template <typename T>
T Sure(simdjson::simdjson_result<T> result) {
    T value;
    if (std::move(result).get(value) != simdjson::SUCCESS)
        throw Doubt();
    return value;
}

// Names mostly differ in their length or their first letter.
bool IsName(std::string_view text, TextView name) {
    return text.size() == name.size() && text.front() == name.front() &&
           std::equal(text.begin(), text.end(), name.begin(), name.end());
}

// Schema text is the library's, which is wide on some systems.
template <typename T>
void Assign(T& out, std::string_view utf8) {
    if constexpr (std::is_same_v<T, std::string>)
        out.assign(utf8);
    else
        out = FromUtf8(utf8);
}

template <typename View>
std::int32_t NumberOf(const NameTable& table, View name) {
    std::optional<std::int32_t> number;
    if constexpr (std::is_same_v<View, TextView>)
        number = table.Find(name);
    else
        number = table.Find(FromUtf8(name));
    if (!number)
        throw Doubt();
    return *number;
}

// The members of an object, laid out for one search after the other.
class FastMembers {
public:
    explicit FastMembers(simdjson::dom::object object) {
        for (const auto [name, value] : object) {
            if (members_.size() == members_.capacity())
                throw Doubt();
            members_.push_back({name, value});
            lengths_ |= LengthBit(name.size());
        }
    }

    // Null when there is none.
    const element* Find(TextView key) const {
        const element* found = nullptr;
        if ((lengths_ & LengthBit(key.size())) == 0)
            return found;
        for (const Member& member : members_) {
            if (!IsName(member.name, key))
                continue;
            if (found != nullptr)
                throw Doubt();
            found = &member.value;
        }
        return found;
    }

private:
    struct Member {
        std::string_view name;
        element value;
    };
    static std::uint64_t LengthBit(std::size_t length) { return std::uint64_t{1} << (length % 64); }

    boost::container::static_vector<Member, 32> members_;
    std::uint64_t lengths_ = 0;  // of the names: most searches end here
};

// The value of a pair that has nothing else.
element ValueOf(const element& pair) {
    const simdjson::dom::object object = Sure(pair.get_object());
    auto member = object.begin();
    if (member == object.end() || !IsName(member.key(), names::value))
        throw Doubt();
    const element value = member.value();
    if (++member != object.end())
        throw Doubt();
    return value;
}

std::uint64_t ReadInteger(const element& number) {
    if (number.is_int64())
        return static_cast<std::uint64_t>(Sure(number.get_int64()));
    return Sure(number.get_uint64());
}

// From here on the counterparts of what reads the library's members (schemaparser.h). The order
// matters to none of them: a doubt about any member ends the road.

void ReadValue(const element& pair, StringPair& out) {
    out.op.Reset();
    std::size_t count = 0;
    for (const element each : Sure(ValueOf(pair).get_array())) {
        if (count == out.values.size())
            out.values.emplace_back();
        Assign(out.values[count++], Sure(each.get_string()));
    }
    out.values.resize(count);
}

template <typename T>
void ReadValue(const element& pair, IntegerPair<T>& out) {
    out.op.Reset();
    out.values.clear();
    for (const element each : Sure(ValueOf(pair).get_array()))
        out.values.push_back(static_cast<T>(ReadInteger(each)));
}

void ReadValue(const element& pair, DatePair& out) {
    out.op.Reset();
    Assign(out.value, Sure(ValueOf(pair).get_string()));
}

template <typename T>
void ReadField(const FastMembers& in, TextView key, Field<T>& field) {
    field.Reset();
    const element* const member = in.Find(key);
    if (member == nullptr)
        return;
    if constexpr (requires { ReadValue(*member, *field); })
        ReadValue(*member, field.Reuse());
    else
        throw Doubt();
}

void ReadNames(const FastMembers& in, TextView key, const NameTable& table,
               std::vector<std::int32_t>& numbers) {
    numbers.clear();
    if (const element* const list = in.Find(key))
        for (const element name : Sure(list->get_array()))
            numbers.push_back(NumberOf(table, Sure(name.get_string())));
}

template <typename T>
void ReadNumbers(const FastMembers& in, TextView key, std::vector<T>& numbers) {
    numbers.clear();
    if (const element* const list = in.Find(key))
        for (const element number : Sure(list->get_array()))
            numbers.push_back(static_cast<T>(ReadInteger(number)));
}

std::uint32_t ReadNumber(const FastMembers& in, TextView key, std::uint32_t absent) {
    const element* const number = in.Find(key);
    return number != nullptr ? static_cast<std::uint32_t>(ReadInteger(*number)) : absent;
}

// Of members that no sensor sends.
void MustBeAbsent(const FastMembers& in, TextView key) {
    if (in.Find(key) != nullptr)
        throw Doubt();
}

std::optional<bool> ReadFlag(const FastMembers& in, TextView key) {
    MustBeAbsent(in, key);
    return std::nullopt;
}

bool ReadsOther(const FastMembers& in, TextView key, TextView) {
    MustBeAbsent(in, key);
    return false;
}

std::optional<FastMembers> ReadMembers(const FastMembers& in, TextView key) {
    const element* const object = in.Find(key);
    if (object == nullptr)
        return std::nullopt;
    return std::optional<FastMembers>(std::in_place, Sure(object->get_object()));
}

template <typename T>
void ReadAs(const FastMembers& in, ZelSchemaParser& object) {
    static_cast<T&>(object).ReadFields(in);
}

// The kinds that sensors send often. The class is the one that the factory makes for the number.
struct FastKind {
    std::int32_t number;
    void (*read)(const FastMembers&, ZelSchemaParser&);
};
constexpr FastKind fastKinds[] = {
    {objectType::process, &ReadAs<Process>},
    {objectType::file, &ReadAs<File>},
    {objectType::network, &ReadAs<Network>},
    {objectType::regValue, &ReadAs<RegValue>},
    {objectType::regKey, &ReadAs<RegKey>},
    {objectType::module, &ReadAs<Module>},
    {objectType::directory, &ReadAs<Directory>},
    {objectType::session, &ReadAs<Session>},
    {objectType::url, &ReadAs<Url>},
    {objectType::kernelObject, &ReadAs<KernelObject>},
};

using ObjectPtr = std::unique_ptr<ZelSchemaParser>;

// What a thread keeps from one record to the next. The parser's memory is far larger than what a
// record uses of it.
struct Reader {
    static constexpr std::size_t longestRecord = std::size_t{64} * 1024;  // bytes
    static constexpr std::size_t deepestNesting = 100;                    // the library's is 128

    // One that lacks a part of its memory is not to be used: it is made anew for the next record.
    Reader() {
        if (parser.allocate(longestRecord, deepestNesting) != simdjson::SUCCESS ||
            parser.doc.allocate(longestRecord) != simdjson::SUCCESS)
            throw Doubt();
    }
    static Reader& OfThread() {
        thread_local Reader reader;
        return reader;
    }

    simdjson::dom::parser parser{longestRecord};
    // By kind, one object that is of no use any more: records of several kinds mostly alternate.
    ObjectPtr spares[std::size(fastKinds)];
};

// An object of a kind, for one that is of no use any more.
ObjectPtr Exchange(ObjectPtr former, const FastKind& wanted) {
    auto& spares = Reader::OfThread().spares;
    if (former != nullptr) {
        const std::int32_t number = former->GetObjectTypeId();
        const auto own = std::find_if(std::begin(fastKinds), std::end(fastKinds),
                                      [&](const FastKind& kind) { return kind.number == number; });
        if (own != std::end(fastKinds))
            spares[own - fastKinds].swap(former);
    }
    return ObjectOfType(wanted.number, std::move(spares[&wanted - fastKinds]));
}

ObjectPtr ReadObject(const FastMembers& in, TextView key, ObjectPtr former) {
    if (key == names::result)
        MustBeAbsent(in, key);
    const auto members = ReadMembers(in, key);
    if (!members)
        return nullptr;
    const element* const type = members->Find(names::object_type);
    if (type == nullptr)
        throw Doubt();
    const std::string_view name = Sure(type->get_string());
    const NameTable& names = ObjectTypes();
    const auto kind =
        std::find_if(std::begin(fastKinds), std::end(fastKinds),
                     [&](const auto& each) { return IsName(name, names.Name(each.number)); });
    if (kind == std::end(fastKinds))
        throw Doubt();
    ObjectPtr object = Exchange(std::move(former), *kind);
    kind->read(*members, *object);
    return object;
}

// \u0000, and \uD800 to \uDFFF. What only looks like one, behind another backslash, costs no more
// than the other road.
bool HasDoubtfulEscape(std::string_view text) {
    // Most records have no such escape, which one pass in blocks tells.
    unsigned char least = 0xFF;
    for (std::size_t i = 1; i < text.size(); ++i)
        least = std::min(least, static_cast<unsigned char>((text[i - 1] ^ '\\') | (text[i] ^ 'u')));
    if (least != 0)
        return false;
    for (std::size_t at = text.find("\\u"); at != text.npos; at = text.find("\\u", at + 1)) {
        const std::string_view digits = text.substr(at + 2, 4);
        const bool isSurrogate = digits.starts_with('d') || digits.starts_with('D');
        if (digits == "0000" || (isSurrogate && digits.substr(1, 1) >= "8"))
            return true;
    }
    return false;
}

}  // namespace

bool ReadRecordFast(std::string_view utf8, Event& event) {
    if (!utf8.starts_with('{') || utf8.size() > Reader::longestRecord || HasDoubtfulEscape(utf8))
        return false;
    try {
        const element root = Sure(Reader::OfThread().parser.parse(utf8.data(), utf8.size()));
        event.Read(FastMembers(Sure(root.get_object())));
        return true;
    } catch (const Doubt&) {
        return false;
    }
}

}  // namespace ZEL::Schema
