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
void ReadNumbers(const Members& in, TextView key, std::vector<T>& numbers) {
    numbers.clear();
    const value* const list = in.Find(key);
    if (list == nullptr)
        return;
    for (const value& element : list->as_array())
        numbers.push_back(static_cast<T>(ReadNumber32(element)));
}

std::uint32_t ReadPlain(const Members& in, TextView key, std::uint32_t absent) {
    const value* const number = in.Find(key);
    return number != nullptr ? ReadNumber32(*number) : absent;
}

}  // namespace

void Unknown::ToJson(value& out) const {
    WriteObject(out, *this);
}

void Unknown::FromJson(const value& json) {
    const Members in(json);
    ReadObjectType(in, *this);
}

void Session::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteField(out, ZEL_TEXT("id"), id);
    if (!session_state.empty()) {
        value names = value::array(session_state.size());
        for (std::size_t i = 0; i < session_state.size(); ++i)
            names[i] = value::string(SessionStates().Name(session_state[i]));
        out[ZEL_TEXT("session_state")] = std::move(names);
    }
    WriteField(out, ZEL_TEXT("state"), state);
}

void Session::FromJson(const value& json) {
    const Members in(json);
    session_state.clear();
    ReadObjectType(in, *this);
    ReadField(in, ZEL_TEXT("id"), id);
    if (const value* const names = in.Find(ZEL_TEXT("session_state")))
        for (const value& name : names->as_array())
            session_state.push_back(SessionStates().Number(name.as_string()));
    ReadField(in, ZEL_TEXT("state"), state);
}

void Network::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteFields(out, ZEL_TEXT("dst_ip"), dst_ip, ZEL_TEXT("src_ip"), src_ip, ZEL_TEXT("url"), url,
                ZEL_TEXT("dst_port"), dst_port, ZEL_TEXT("src_port"), src_port,
                ZEL_TEXT("protocol_id"), protocol_id, ZEL_TEXT("direction_id"), direction_id);
}

void Network::FromJson(const value& json) {
    const Members in(json);
    ResetFields(dst_port, src_port, protocol_id, direction_id);
    ReadObjectType(in, *this);
    ReadFields(in, ZEL_TEXT("dst_ip"), dst_ip, ZEL_TEXT("src_ip"), src_ip, ZEL_TEXT("url"), url);
}

bool Network::IsValid() const {
    return AnyPresent(dst_ip, src_ip, url, protocol_id, direction_id) &&
           PresentAreValid(dst_ip, src_ip, url, protocol_id, direction_id);
}

void RegKey::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteFields(out, ZEL_TEXT("path"), path, ZEL_TEXT("security_descriptor"), security_descriptor,
                ZEL_TEXT("state"), state);
}

void RegKey::FromJson(const value& json) {
    const Members in(json);
    ResetFields(security_descriptor);
    ReadObjectType(in, *this);
    ReadFields(in, ZEL_TEXT("path"), path, ZEL_TEXT("state"), state);
}

bool RegKey::IsValid() const {
    return path && path->IsValid();
}

void RegValue::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteFields(out, ZEL_TEXT("path"), path, ZEL_TEXT("name"), name);
    out[ZEL_TEXT("type_id")] = value(type_id);
    WriteFields(out, ZEL_TEXT("data"), data, ZEL_TEXT("security_descriptor"), security_descriptor);
    if (isDefaultPresent)
        out[ZEL_TEXT("default")] = value::boolean(isDefault);
    WriteField(out, ZEL_TEXT("state"), state);
}

void RegValue::FromJson(const value& json) {
    const Members in(json);
    ResetFields(security_descriptor);
    isDefault = isDefaultPresent = false;
    ReadObjectType(in, *this);
    ReadFields(in, ZEL_TEXT("path"), path, ZEL_TEXT("name"), name);
    type_id = ReadPlain(in, ZEL_TEXT("type_id"), 1);
    ReadField(in, ZEL_TEXT("data"), data);
    if (const value* const given = in.Find(ZEL_TEXT("default"))) {
        isDefault = given->as_bool();
        isDefaultPresent = true;
    }
    ReadField(in, ZEL_TEXT("state"), state);
}

bool RegValue::IsValid() const {
    return AnyPresent(path, name, data) && PresentAreValid(path, name, data, security_descriptor);
}

void Service::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteFields(out, ZEL_TEXT("path"), path, ZEL_TEXT("normalized_path"), normalized_path,
                ZEL_TEXT("name"), name, ZEL_TEXT("md5"), md5, ZEL_TEXT("sha2"), sha2);
    WriteNumbers(out, ZEL_TEXT("type_ids"), type_ids);
    out[ZEL_TEXT("start_id")] = value(start_id);
    out[ZEL_TEXT("run_state_id")] = value(run_state_id);
    WriteFields(out, ZEL_TEXT("loaded_module_name"), loaded_module_name, ZEL_TEXT("reg_path"),
                reg_path, ZEL_TEXT("security_descriptor"), security_descriptor, ZEL_TEXT("state"),
                state);
}

void Service::FromJson(const value& json) {
    const Members in(json);
    ResetFields(normalized_path);
    ReadObjectType(in, *this);
    ReadFields(in, ZEL_TEXT("path"), path, ZEL_TEXT("name"), name, ZEL_TEXT("md5"), md5,
               ZEL_TEXT("sha2"), sha2);
    ReadNumbers(in, ZEL_TEXT("type_ids"), type_ids);
    start_id = ReadPlain(in, ZEL_TEXT("start_id"), 0);
    run_state_id = ReadPlain(in, ZEL_TEXT("run_state_id"), 0);
    ReadFields(in, ZEL_TEXT("loaded_module_name"), loaded_module_name, ZEL_TEXT("reg_path"),
               reg_path, ZEL_TEXT("security_descriptor"), security_descriptor, ZEL_TEXT("state"),
               state);
}

bool Service::IsValid() const {
    return AnyPresent(path, name) &&
           PresentAreValid(path, normalized_path, name, md5, sha2, loaded_module_name, reg_path,
                           security_descriptor);
}

void Url::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteField(out, ZEL_TEXT("text"), text);
    WriteField(out, ZEL_TEXT("state"), state);
}

void Url::FromJson(const value& json) {
    const Members in(json);
    ReadObjectType(in, *this);
    ReadField(in, ZEL_TEXT("state"), state);
    ReadField(in, ZEL_TEXT("text"), text);
}

bool Url::IsValid() const {
    return text && PresentAreValid(state, text);
}

void KernelObject::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteFields(out, ZEL_TEXT("name"), name, ZEL_TEXT("state"), state);
    WriteNumbers(out, ZEL_TEXT("type_ids"), type_ids);
}

void KernelObject::FromJson(const value& json) {
    const Members in(json);
    type_ids.clear();
    ReadObjectType(in, *this);
    ReadFields(in, ZEL_TEXT("name"), name, ZEL_TEXT("state"), state);
    ReadNumbers(in, ZEL_TEXT("type_ids"), type_ids);
}

bool KernelObject::IsValid() const {
    return name && name->IsValid();
}

void Source::ToJson(value& out) const {
    out = value::object(true);
    WriteField(out, ZEL_TEXT("facility"), facility);
}

void Source::FromJson(const value& json) {
    const Members in(json);
    ReadField(in, ZEL_TEXT("facility"), facility);
}

void Etw::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteFields(out, ZEL_TEXT("ref_event"), ref_event, ZEL_TEXT("source"), source,
                ZEL_TEXT("state"), state);
}

void Etw::FromJson(const value& json) {
    const Members in(json);
    ReadObjectType(in, *this);
    ReadFields(in, ZEL_TEXT("ref_event"), ref_event, ZEL_TEXT("source"), source, ZEL_TEXT("state"),
               state);
}

bool Etw::IsValid() const {
    return PresentAreValid(ref_event) && (!source || PresentAreValid(source->facility));
}

void Amsi::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteField(out, ZEL_TEXT("resource"), resource);
    WriteField(out, ZEL_TEXT("state"), state);
}

void Amsi::FromJson(const value& json) {
    const Members in(json);
    ReadObjectType(in, *this);
    ReadField(in, ZEL_TEXT("state"), state);
    ReadField(in, ZEL_TEXT("resource"), resource);
}

bool Amsi::IsValid() const {
    return PresentAreValid(state, resource);
}

}  // namespace ZEL::Schema
