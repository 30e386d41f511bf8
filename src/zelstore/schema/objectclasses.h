#pragma once

#include <vector>

#include "zelstore/schema/fieldlists.h"
#include "zelstore/schema/valueclasses.h"

// The things that an event's actor, target and result name. The list of each class tells its keys,
// in the order in which they are read and written, and what its IsValid asks for (fieldlists.h).
//
// All facts are public members under the names of their keys. Members that are written and not read
// are for code that makes objects: no parsed one has them. The getters of ZelSchemaParser are how
// keys take hash and path of whatever object there is.

namespace ZEL::Schema {

// Widths are those of the documents: what does not fit is cut, not refused.
using Numbers32 = IntegerPair<std::uint32_t>;
using Numbers64 = IntegerPair<std::uint64_t>;

// An object without a class of its own, or without a type: it keeps its number, and says nothing
// else. As the target of a record it still sets the key's object type.
class Unknown final : public ListedObject<Unknown> {
public:
    Unknown() : ListedObject(objectType::unknown) {}
    static constexpr auto Fields() { return std::tuple<>(); }
};

// A running program. What only numbers or describes one does not identify it. As an actor it gives
// a key its hash, path and uid; as a target hash and path.
class Process final : public ListedObject<Process> {
public:
    Process() : ListedObject(objectType::process) {}
    static constexpr auto Fields() {
        return std::tuple(
            Pair(names::path, &Process::path, Check::identifies),
            Pair(names::normalized_path, &Process::normalized_path, Check::ifPresent, isNotRead),
            Pair(names::alternate_data_stream_name, &Process::alternate_data_stream_name,
                 Check::ifPresent, isNotRead),
            Pair(names::md5, &Process::md5, Check::identifies),
            Pair(names::sha2, &Process::sha2, Check::identifies),
            Pair(names::cmd_line, &Process::cmd_line, Check::identifies),
            Pair(names::session_id, &Process::session_id), Pair(names::pid, &Process::pid),
            Pair(names::uid, &Process::uid, Check::identifies),
            Pair(names::loaded_modules, &Process::loaded_modules, Check::identifies),
            Pair(names::security_descriptor, &Process::security_descriptor, Check::ifPresent,
                 isNotRead),
            Pair(names::url, &Process::url, Check::ifPresent, isNotRead),
            Pair(names::file_id, &Process::file_id, Check::ifPresent, isNotRead),
            Pair(names::size, &Process::size, Check::ifPresent, isNotRead),
            Pair(names::signature_company_name, &Process::signature_company_name, Check::ifPresent,
                 isNotRead),
            Pair(names::signature_value_ids, &Process::signature_value_ids, Check::ifPresent,
                 isNotRead),
            Pair(names::signature_level_id, &Process::signature_level_id, Check::ifPresent),
            Pair(names::state, &Process::state));
    }
    const StringPair* GetMd5() const override { return md5.get(); }
    const StringPair* GetSha2() const override { return sha2.get(); }
    const StringPair* GetPath() const override { return path.get(); }
    virtual const StringPair* GetNormalizedPath() const { return normalized_path.get(); }
    virtual const StringPair* GetAlternateDataStreamName() const {
        return alternate_data_stream_name.get();
    }
    virtual const StringPair* GetCmdLine() const { return cmd_line.get(); }
    virtual const StringPair* GetUid() const { return uid.get(); }

    // The fields of all classes are absent in a new object. Several values under one key are
    // alternatives in a query; a record mostly has one.
    Field<StringPair> path, normalized_path, alternate_data_stream_name, md5, sha2, cmd_line;
    Field<Numbers32> session_id, pid;
    Field<StringPair> uid, loaded_modules, security_descriptor, url;
    Field<Numbers64> file_id, size;
    Field<StringPair> signature_company_name;
    Field<Numbers32> signature_value_ids, signature_level_id;
    Field<ExistPair> state;
};

// A file. Hashes are text in the form of the sensor; a key takes sha2 and path.
class File final : public ListedObject<File> {
public:
    File() : ListedObject(objectType::file) {}
    static constexpr auto Fields() {
        return std::tuple(
            Pair(names::path, &File::path, Check::identifies),
            Pair(names::normalized_path, &File::normalized_path, Check::ifPresent, isNotRead),
            Pair(names::alternate_data_stream_name, &File::alternate_data_stream_name,
                 Check::ifPresent, isNotRead),
            Pair(names::md5, &File::md5, Check::identifies),
            Pair(names::sha2, &File::sha2, Check::identifies),
            Pair(names::security_descriptor, &File::security_descriptor, Check::ifPresent,
                 isNotRead),
            Pair(names::size, &File::size, Check::ifPresent, isNotRead),
            Pair(names::attributes, &File::attributes, Check::ifPresent, isNotRead),
            Pair(names::attribute_ids, &File::attribute_ids, Check::ifPresent, isNotRead),
            Pair(names::state, &File::state));
    }
    const StringPair* GetMd5() const override { return md5.get(); }
    const StringPair* GetSha2() const override { return sha2.get(); }
    const StringPair* GetPath() const override { return path.get(); }
    virtual const StringPair* GetNormalizedPath() const { return normalized_path.get(); }
    virtual const StringPair* GetAlternateDataStreamName() const {
        return alternate_data_stream_name.get();
    }

    Field<StringPair> path, normalized_path, alternate_data_stream_name, md5, sha2,
        security_descriptor;
    Field<Numbers64> size;
    Field<Numbers32> attributes, attribute_ids;
    Field<ExistPair> state;
};

// A folder of the file system. It has no hash.
class Directory final : public ListedObject<Directory> {
public:
    Directory() : ListedObject(objectType::directory) {}
    static constexpr auto Fields() {
        return std::tuple(
            Pair(names::path, &Directory::path, Check::identifies),
            Pair(names::normalized_path, &Directory::normalized_path, Check::ifPresent, isNotRead),
            Pair(names::security_descriptor, &Directory::security_descriptor, Check::ifPresent,
                 isNotRead),
            Pair(names::state, &Directory::state));
    }
    const StringPair* GetPath() const override { return path.get(); }
    virtual const StringPair* GetNormalizedPath() const { return normalized_path.get(); }

    Field<StringPair> path, normalized_path, security_descriptor;
    Field<ExistPair> state;
};

// A library or driver that was loaded. A key takes sha2 and path, as of a file.
class Module final : public ListedObject<Module> {
public:
    Module() : ListedObject(objectType::module) {}
    static constexpr auto Fields() {
        return std::tuple(
            Pair(names::path, &Module::path, Check::identifies),
            Pair(names::normalized_path, &Module::normalized_path, Check::ifPresent, isNotRead),
            Pair(names::alternate_data_stream_name, &Module::alternate_data_stream_name,
                 Check::ifPresent, isNotRead),
            Pair(names::md5, &Module::md5, Check::identifies),
            Pair(names::sha2, &Module::sha2, Check::identifies), Pair(names::state, &Module::state),
            Pair(names::signature_level_id, &Module::signature_level_id, Check::ifPresent));
    }
    const StringPair* GetMd5() const override { return md5.get(); }
    const StringPair* GetSha2() const override { return sha2.get(); }
    const StringPair* GetPath() const override { return path.get(); }
    virtual const StringPair* GetNormalizedPath() const { return normalized_path.get(); }
    virtual const StringPair* GetAlternateDataStreamName() const {
        return alternate_data_stream_name.get();
    }

    Field<StringPair> path, normalized_path, alternate_data_stream_name, md5, sha2;
    Field<ExistPair> state;
    Field<Numbers32> signature_level_id;
};

// A user's session. Valid whatever it says. A key takes nothing of it but its type.
class Session final : public ListedObject<Session> {
public:
    Session() : ListedObject(objectType::session) {}
    static constexpr auto Fields() {
        return std::tuple(Pair(names::id, &Session::id),
                          NamesRow(names::session_state, &Session::session_state, &SessionStates),
                          Pair(names::state, &Session::state));
    }

    Field<Numbers32> id;
    // Numbers of SessionStates.
    std::vector<std::int32_t> session_state;
    Field<ExistPair> state;
};

// A connection. Ports are carried by records, but not read. A key takes both addresses.
//
// Of one that was parsed, either address or a url is enough to identify it.
class Network final : public ListedObject<Network> {
public:
    Network() : ListedObject(objectType::network) {}
    static constexpr auto Fields() {
        return std::tuple(
            Pair(names::dst_ip, &Network::dst_ip, Check::identifies),
            Pair(names::src_ip, &Network::src_ip, Check::identifies),
            Pair(names::url, &Network::url, Check::identifies),
            Pair(names::dst_port, &Network::dst_port, Check::never, isNotRead),
            Pair(names::src_port, &Network::src_port, Check::never, isNotRead),
            Pair(names::protocol_id, &Network::protocol_id, Check::identifies, isNotRead),
            Pair(names::direction_id, &Network::direction_id, Check::identifies, isNotRead));
    }
    // Addresses are text in the sensor's form; nothing here parses them.
    virtual const StringPair* GetDstIp() const { return dst_ip.get(); }
    virtual const StringPair* GetSrcIp() const { return src_ip.get(); }
    virtual const StringPair* GetUrl() const { return url.get(); }

    Field<StringPair> dst_ip, src_ip, url;
    Field<Numbers32> dst_port, src_port, protocol_id, direction_id;
};

// A registry key; `path` begins with its root. A key takes the path, and a query's path is expanded
// by the rules of the registry, not of files.
class RegKey final : public ListedObject<RegKey> {
public:
    RegKey() : ListedObject(objectType::regKey) {}
    static constexpr auto Fields() {
        return std::tuple(
            Pair(names::path, &RegKey::path, Check::identifies),
            Pair(names::security_descriptor, &RegKey::security_descriptor, Check::never, isNotRead),
            Pair(names::state, &RegKey::state));
    }
    const StringPair* GetPath() const override { return path.get(); }

    Field<StringPair> path, security_descriptor;
    Field<ExistPair> state;
};

// The type of a registry value that says none.
inline constexpr std::uint32_t typeIdOfNone = 1;

// A value of a registry key. `path` is the key's; the value's own name stands beside it.
class RegValue final : public ListedObject<RegValue> {
public:
    RegValue() : ListedObject(objectType::regValue) {}
    static constexpr auto Fields() {
        return std::tuple(Pair(names::path, &RegValue::path, Check::identifies),
                          Pair(names::name, &RegValue::name, Check::identifies),
                          NumberRow(names::type_id, &RegValue::type_id, typeIdOfNone),
                          Pair(names::data, &RegValue::data, Check::identifies),
                          Pair(names::security_descriptor, &RegValue::security_descriptor,
                               Check::ifPresent, isNotRead),
                          FlagRow(names::default_, &RegValue::isDefault),
                          Pair(names::state, &RegValue::state));
    }
    const StringPair* GetPath() const override { return path.get(); }

    Field<StringPair> path, name;
    std::uint32_t type_id = typeIdOfNone;
    Field<StringPair> data, security_descriptor;
    // Whether it is the key's nameless value; absent when the record does not say.
    std::optional<bool> isDefault;
    Field<ExistPair> state;
};

// A service of the system. A key takes hash and path, as of the file that it runs.
//
// Unlike a file's, its hashes do not identify it.
class Service final : public ListedObject<Service> {
public:
    Service() : ListedObject(objectType::service) {}
    static constexpr auto Fields() {
        return std::tuple(
            Pair(names::path, &Service::path, Check::identifies),
            Pair(names::normalized_path, &Service::normalized_path, Check::ifPresent, isNotRead),
            Pair(names::name, &Service::name, Check::identifies),
            Pair(names::md5, &Service::md5, Check::ifPresent),
            Pair(names::sha2, &Service::sha2, Check::ifPresent),
            NumbersRow(names::type_ids, &Service::type_ids),
            NumberRow(names::start_id, &Service::start_id),
            NumberRow(names::run_state_id, &Service::run_state_id),
            Pair(names::loaded_module_name, &Service::loaded_module_name, Check::ifPresent),
            Pair(names::reg_path, &Service::reg_path, Check::ifPresent),
            Pair(names::security_descriptor, &Service::security_descriptor, Check::ifPresent),
            Pair(names::state, &Service::state));
    }
    const StringPair* GetMd5() const override { return md5.get(); }
    const StringPair* GetSha2() const override { return sha2.get(); }
    const StringPair* GetPath() const override { return path.get(); }
    virtual const StringPair* GetNormalizedPath() const { return normalized_path.get(); }

    Field<StringPair> path, normalized_path, name, md5, sha2;
    std::vector<std::int32_t> type_ids;
    // Carried along; 0 when the record has none.
    std::uint32_t start_id = 0;
    std::uint32_t run_state_id = 0;
    Field<StringPair> loaded_module_name, reg_path, security_descriptor;
    Field<ExistPair> state;
};

// A web address. Its text is the one that a record gives, unchecked. A key that is made of a record
// has no place for it; one that is made of properties has.
//
// Nothing else of an address is a member: whoever has to know its host or scheme parses the text.
class Url final : public ListedObject<Url> {
public:
    Url() : ListedObject(objectType::url) {}
    static constexpr auto Fields() {
        return std::tuple(Pair(names::state, &Url::state, Check::ifPresent),
                          Pair(names::text, &Url::text, Check::identifies));
    }
    // Against the order of the list.
    void ToJson(web::json::value& out) const override;
    virtual const StringPair* GetText() const { return text.get(); }

    Field<ExistPair> state;
    Field<StringPair> text;
};

// A named object of the kernel, such as a mutex. A key takes its name; its types are for conditions
// alone.
//
// One without types counts as of type 1 where conditions are tested.
class KernelObject final : public ListedObject<KernelObject> {
public:
    KernelObject() : ListedObject(objectType::kernelObject) {}
    static constexpr auto Fields() {
        return std::tuple(Pair(names::name, &KernelObject::name, Check::identifies),
                          Pair(names::state, &KernelObject::state),
                          NumbersRow(names::type_ids, &KernelObject::type_ids));
    }
    // The name takes the place of a path.
    const StringPair* GetPath() const override { return name.get(); }

    Field<StringPair> name;
    Field<ExistPair> state;
    std::vector<std::uint32_t> type_ids;
};

// Where a traced event came from. Not a schema object of its own.
//
// It has no type of its own in documents, so that it is read and written as a part of the event
// that it belongs to. Valid when its one member is, or is absent.
class Source {
public:
    Source() = default;
    Source(const Source&) = default;
    Source& operator=(const Source&) = default;
    virtual ~Source() = default;
    void ToJson(web::json::value& out) const;
    void FromJson(const web::json::value& in);
    bool IsValid() const { return !facility || facility->IsValid(); }

    Field<StringPair> facility;
};

// An event that was traced by another component. A key takes nothing of it but its type.
class Etw final : public ListedObject<Etw> {
public:
    Etw() : ListedObject(objectType::etw) {}
    static constexpr auto Fields() {
        return std::tuple(Pair(names::ref_event, &Etw::ref_event, Check::ifPresent),
                          Pair(names::source, &Etw::source, Check::ifPresent),
                          Pair(names::state, &Etw::state));
    }

    Field<Numbers32> ref_event;
    Field<Source> source;
    Field<ExistPair> state;
};

// Content that a program had scanned. A key takes nothing of it but its type.
class Amsi final : public ListedObject<Amsi> {
public:
    Amsi() : ListedObject(objectType::amsi) {}
    static constexpr auto Fields() {
        return std::tuple(Pair(names::state, &Amsi::state, Check::ifPresent),
                          Pair(names::resource, &Amsi::resource, Check::ifPresent));
    }
    // Against the order of the list.
    void ToJson(web::json::value& out) const override;

    Field<ExistPair> state;
    Field<StringPair> resource;
};

// Made once, in objectclasses.cpp.
extern template class ListedObject<Unknown>;
extern template class ListedObject<Process>;
extern template class ListedObject<File>;
extern template class ListedObject<Directory>;
extern template class ListedObject<Module>;
extern template class ListedObject<Session>;
extern template class ListedObject<Network>;
extern template class ListedObject<RegKey>;
extern template class ListedObject<RegValue>;
extern template class ListedObject<Service>;
extern template class ListedObject<Url>;
extern template class ListedObject<KernelObject>;
extern template class ListedObject<Etw>;
extern template class ListedObject<Amsi>;

}  // namespace ZEL::Schema
