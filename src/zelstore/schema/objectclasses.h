#pragma once

#include <vector>

#include "zelstore/schema/valueclasses.h"

// The things that an event's actor, target and result name. Fields stand in the order of writing.
// FromJson leaves some of them out: those are never filled by parsing.

namespace ZEL::Schema {

using Numbers32 = IntegerPair<std::uint32_t>;
using Numbers64 = IntegerPair<std::uint64_t>;

class Unknown final : public ZelSchemaParser {
public:
    void ToJson(web::json::value& out) const override;
    void FromJson(const web::json::value& in) override;
};

class Process final : public ZelSchemaParser {
public:
    Process() : ZelSchemaParser(objectType::process) {}
    void ToJson(web::json::value& out) const override;
    void FromJson(const web::json::value& in) override;
    bool IsValid() const override;
    const StringPair* GetMd5() const override { return md5.get(); }
    const StringPair* GetSha2() const override { return sha2.get(); }
    const StringPair* GetPath() const override { return path.get(); }
    virtual const StringPair* GetNormalizedPath() const { return normalized_path.get(); }
    virtual const StringPair* GetAlternateDataStreamName() const {
        return alternate_data_stream_name.get();
    }
    virtual const StringPair* GetCmdLine() const { return cmd_line.get(); }
    virtual const StringPair* GetUid() const { return uid.get(); }

    Field<StringPair> path, normalized_path, alternate_data_stream_name, md5, sha2, cmd_line;
    Field<Numbers32> session_id, pid;
    Field<StringPair> uid, loaded_modules, security_descriptor, url;
    Field<Numbers64> file_id, size;
    Field<StringPair> signature_company_name;
    Field<Numbers32> signature_value_ids, signature_level_id;
    Field<ExistPair> state;
};

class File final : public ZelSchemaParser {
public:
    File() : ZelSchemaParser(objectType::file) {}
    void ToJson(web::json::value& out) const override;
    void FromJson(const web::json::value& in) override;
    bool IsValid() const override;
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

class Directory final : public ZelSchemaParser {
public:
    Directory() : ZelSchemaParser(objectType::directory) {}
    void ToJson(web::json::value& out) const override;
    void FromJson(const web::json::value& in) override;
    bool IsValid() const override;
    const StringPair* GetPath() const override { return path.get(); }
    virtual const StringPair* GetNormalizedPath() const { return normalized_path.get(); }

    Field<StringPair> path, normalized_path, security_descriptor;
    Field<ExistPair> state;
};

class Module final : public ZelSchemaParser {
public:
    Module() : ZelSchemaParser(objectType::module) {}
    void ToJson(web::json::value& out) const override;
    void FromJson(const web::json::value& in) override;
    bool IsValid() const override;
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

class Session final : public ZelSchemaParser {
public:
    Session() : ZelSchemaParser(objectType::session) {}
    void ToJson(web::json::value& out) const override;
    void FromJson(const web::json::value& in) override;

    Field<Numbers32> id;
    std::vector<std::int32_t> session_state;
    Field<ExistPair> state;
};

class Network final : public ZelSchemaParser {
public:
    Network() : ZelSchemaParser(objectType::network) {}
    void ToJson(web::json::value& out) const override;
    void FromJson(const web::json::value& in) override;
    bool IsValid() const override;
    virtual const StringPair* GetDstIp() const { return dst_ip.get(); }
    virtual const StringPair* GetSrcIp() const { return src_ip.get(); }
    virtual const StringPair* GetUrl() const { return url.get(); }

    Field<StringPair> dst_ip, src_ip, url;
    Field<Numbers32> dst_port, src_port, protocol_id, direction_id;
};

class RegKey final : public ZelSchemaParser {
public:
    RegKey() : ZelSchemaParser(objectType::regKey) {}
    void ToJson(web::json::value& out) const override;
    void FromJson(const web::json::value& in) override;
    bool IsValid() const override;
    const StringPair* GetPath() const override { return path.get(); }

    Field<StringPair> path, security_descriptor;
    Field<ExistPair> state;
};

class RegValue final : public ZelSchemaParser {
public:
    RegValue() : ZelSchemaParser(objectType::regValue) {}
    void ToJson(web::json::value& out) const override;
    void FromJson(const web::json::value& in) override;
    bool IsValid() const override;
    const StringPair* GetPath() const override { return path.get(); }

    Field<StringPair> path, name;
    std::uint32_t type_id = 1;
    Field<StringPair> data, security_descriptor;
    bool isDefault = false;
    bool isDefaultPresent = false;
    Field<ExistPair> state;
};

class Service final : public ZelSchemaParser {
public:
    Service() : ZelSchemaParser(objectType::service) {}
    void ToJson(web::json::value& out) const override;
    void FromJson(const web::json::value& in) override;
    bool IsValid() const override;
    const StringPair* GetMd5() const override { return md5.get(); }
    const StringPair* GetSha2() const override { return sha2.get(); }
    const StringPair* GetPath() const override { return path.get(); }
    virtual const StringPair* GetNormalizedPath() const { return normalized_path.get(); }

    Field<StringPair> path, normalized_path, name, md5, sha2;
    std::vector<std::int32_t> type_ids;
    std::uint32_t start_id = 0;
    std::uint32_t run_state_id = 0;
    Field<StringPair> loaded_module_name, reg_path, security_descriptor;
    Field<ExistPair> state;
};

class Url final : public ZelSchemaParser {
public:
    Url() : ZelSchemaParser(objectType::url) {}
    void ToJson(web::json::value& out) const override;
    void FromJson(const web::json::value& in) override;
    bool IsValid() const override;
    virtual const StringPair* GetText() const { return text.get(); }

    Field<ExistPair> state;
    Field<StringPair> text;
};

class KernelObject final : public ZelSchemaParser {
public:
    KernelObject() : ZelSchemaParser(objectType::kernelObject) {}
    void ToJson(web::json::value& out) const override;
    void FromJson(const web::json::value& in) override;
    bool IsValid() const override;
    // The name takes the place of a path.
    const StringPair* GetPath() const override { return name.get(); }

    Field<StringPair> name;
    Field<ExistPair> state;
    std::vector<std::uint32_t> type_ids;
};

// Where a traced event came from. Not a schema object of its own.
class Source {
public:
    Source() = default;
    Source(const Source&) = default;
    Source& operator=(const Source&) = default;
    virtual ~Source() = default;
    void ToJson(web::json::value& out) const;
    void FromJson(const web::json::value& in);

    Field<StringPair> facility;
};

class Etw final : public ZelSchemaParser {
public:
    Etw() : ZelSchemaParser(objectType::etw) {}
    void ToJson(web::json::value& out) const override;
    void FromJson(const web::json::value& in) override;
    bool IsValid() const override;

    Field<Numbers32> ref_event;
    Field<Source> source;
    Field<ExistPair> state;
};

class Amsi final : public ZelSchemaParser {
public:
    Amsi() : ZelSchemaParser(objectType::amsi) {}
    void ToJson(web::json::value& out) const override;
    void FromJson(const web::json::value& in) override;
    bool IsValid() const override;

    Field<ExistPair> state;
    Field<StringPair> resource;
};

}  // namespace ZEL::Schema
