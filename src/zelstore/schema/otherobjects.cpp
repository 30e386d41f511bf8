#include "zelstore/schema/fieldlists.h"
#include "zelstore/schema/objectclasses.h"

// Sessions, network, registry, services and the rest.

namespace ZEL::Schema {

using web::json::value;

namespace {

template <typename T>
void WriteNumbers(value& out, const utility::char_t* key, const std::vector<T>& numbers) {
    if (numbers.empty())
        return;
    value array = value::array(numbers.size());
    for (std::size_t i = 0; i < numbers.size(); ++i)
        array[i] = value(numbers[i]);
    out[key] = std::move(array);
}

template <typename T>
void ReadNumbers(const value& in, const utility::char_t* key, std::vector<T>& numbers) {
    numbers.clear();
    if (!in.has_field(key))
        return;
    for (const value& element : Member(in, key).as_array())
        numbers.push_back(static_cast<T>(ReadNumber32(element)));
}

std::uint32_t ReadPlain(const value& in, const utility::char_t* key, std::uint32_t absent) {
    return in.has_field(key) ? ReadNumber32(Member(in, key)) : absent;
}

}  // namespace

void Unknown::ToJson(value& out) const {
    WriteObject(out, *this);
}

void Unknown::FromJson(const value& in) {
    ReadObjectType(in, *this);
}

void Session::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteField(out, U("id"), id);
    if (!session_state.empty()) {
        value names = value::array(session_state.size());
        for (std::size_t i = 0; i < session_state.size(); ++i)
            names[i] = value::string(SessionStates().Name(session_state[i]));
        out[U("session_state")] = std::move(names);
    }
    WriteField(out, U("state"), state);
}

void Session::FromJson(const value& in) {
    session_state.clear();
    ReadObjectType(in, *this);
    ReadField(in, U("id"), id);
    if (in.has_field(U("session_state")))
        for (const value& name : Member(in, U("session_state")).as_array())
            session_state.push_back(SessionStates().Number(name.as_string()));
    ReadField(in, U("state"), state);
}

void Network::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteFields(out, U("dst_ip"), dst_ip, U("src_ip"), src_ip, U("url"), url, U("dst_port"),
                dst_port, U("src_port"), src_port, U("protocol_id"), protocol_id, U("direction_id"),
                direction_id);
}

void Network::FromJson(const value& in) {
    ResetFields(dst_port, src_port, protocol_id, direction_id);
    ReadObjectType(in, *this);
    ReadFields(in, U("dst_ip"), dst_ip, U("src_ip"), src_ip, U("url"), url);
}

bool Network::IsValid() const {
    return AnyPresent(dst_ip, src_ip, url, protocol_id, direction_id) &&
           PresentAreValid(dst_ip, src_ip, url, protocol_id, direction_id);
}

void RegKey::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteFields(out, U("path"), path, U("security_descriptor"), security_descriptor, U("state"),
                state);
}

void RegKey::FromJson(const value& in) {
    ResetFields(security_descriptor);
    ReadObjectType(in, *this);
    ReadFields(in, U("path"), path, U("state"), state);
}

bool RegKey::IsValid() const {
    return path && path->IsValid();
}

void RegValue::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteFields(out, U("path"), path, U("name"), name);
    out[U("type_id")] = value(type_id);
    WriteFields(out, U("data"), data, U("security_descriptor"), security_descriptor);
    if (isDefaultPresent)
        out[U("default")] = value::boolean(isDefault);
    WriteField(out, U("state"), state);
}

void RegValue::FromJson(const value& in) {
    ResetFields(security_descriptor);
    isDefault = isDefaultPresent = false;
    ReadObjectType(in, *this);
    ReadFields(in, U("path"), path, U("name"), name);
    type_id = ReadPlain(in, U("type_id"), 1);
    ReadField(in, U("data"), data);
    if (in.has_field(U("default"))) {
        isDefault = Member(in, U("default")).as_bool();
        isDefaultPresent = true;
    }
    ReadField(in, U("state"), state);
}

bool RegValue::IsValid() const {
    return AnyPresent(path, name, data) && PresentAreValid(path, name, data, security_descriptor);
}

void Service::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteFields(out, U("path"), path, U("normalized_path"), normalized_path, U("name"), name,
                U("md5"), md5, U("sha2"), sha2);
    WriteNumbers(out, U("type_ids"), type_ids);
    out[U("start_id")] = value(start_id);
    out[U("run_state_id")] = value(run_state_id);
    WriteFields(out, U("loaded_module_name"), loaded_module_name, U("reg_path"), reg_path,
                U("security_descriptor"), security_descriptor, U("state"), state);
}

void Service::FromJson(const value& in) {
    ResetFields(normalized_path);
    ReadObjectType(in, *this);
    ReadFields(in, U("path"), path, U("name"), name, U("md5"), md5, U("sha2"), sha2);
    ReadNumbers(in, U("type_ids"), type_ids);
    start_id = ReadPlain(in, U("start_id"), 0);
    run_state_id = ReadPlain(in, U("run_state_id"), 0);
    ReadFields(in, U("loaded_module_name"), loaded_module_name, U("reg_path"), reg_path,
               U("security_descriptor"), security_descriptor, U("state"), state);
}

bool Service::IsValid() const {
    return AnyPresent(path, name) &&
           PresentAreValid(path, normalized_path, name, md5, sha2, loaded_module_name, reg_path,
                           security_descriptor);
}

void Url::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteField(out, U("text"), text);
    WriteField(out, U("state"), state);
}

void Url::FromJson(const value& in) {
    ReadObjectType(in, *this);
    ReadField(in, U("state"), state);
    ReadField(in, U("text"), text);
}

bool Url::IsValid() const {
    return text && PresentAreValid(state, text);
}

void KernelObject::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteFields(out, U("name"), name, U("state"), state);
    WriteNumbers(out, U("type_ids"), type_ids);
}

void KernelObject::FromJson(const value& in) {
    type_ids.clear();
    ReadObjectType(in, *this);
    ReadFields(in, U("name"), name, U("state"), state);
    ReadNumbers(in, U("type_ids"), type_ids);
}

bool KernelObject::IsValid() const {
    return name && name->IsValid();
}

void Source::ToJson(value& out) const {
    out = value::object(true);
    WriteField(out, U("facility"), facility);
}

void Source::FromJson(const value& in) {
    ReadField(in, U("facility"), facility);
}

void Etw::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteFields(out, U("ref_event"), ref_event, U("source"), source, U("state"), state);
}

void Etw::FromJson(const value& in) {
    ReadObjectType(in, *this);
    ReadFields(in, U("ref_event"), ref_event, U("source"), source, U("state"), state);
}

bool Etw::IsValid() const {
    return PresentAreValid(ref_event) && (!source || PresentAreValid(source->facility));
}

void Amsi::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteField(out, U("resource"), resource);
    WriteField(out, U("state"), state);
}

void Amsi::FromJson(const value& in) {
    ReadObjectType(in, *this);
    ReadField(in, U("state"), state);
    ReadField(in, U("resource"), resource);
}

bool Amsi::IsValid() const {
    return PresentAreValid(state, resource);
}

}  // namespace ZEL::Schema
