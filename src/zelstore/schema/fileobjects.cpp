#include "zelstore/schema/fieldlists.h"
#include "zelstore/schema/objectclasses.h"

// Processes, files, directories and modules.

namespace ZEL::Schema {

using web::json::value;

void Process::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteFields(out, ZEL_TEXT("path"), path, ZEL_TEXT("normalized_path"), normalized_path,
                ZEL_TEXT("alternate_data_stream_name"), alternate_data_stream_name, ZEL_TEXT("md5"),
                md5, ZEL_TEXT("sha2"), sha2, ZEL_TEXT("cmd_line"), cmd_line, ZEL_TEXT("session_id"),
                session_id, ZEL_TEXT("pid"), pid, ZEL_TEXT("uid"), uid, ZEL_TEXT("loaded_modules"),
                loaded_modules);
    WriteFields(out, ZEL_TEXT("security_descriptor"), security_descriptor, ZEL_TEXT("url"), url,
                ZEL_TEXT("file_id"), file_id, ZEL_TEXT("size"), size,
                ZEL_TEXT("signature_company_name"), signature_company_name,
                ZEL_TEXT("signature_value_ids"), signature_value_ids,
                ZEL_TEXT("signature_level_id"), signature_level_id, ZEL_TEXT("state"), state);
}

void Process::FromJson(const value& json) {
    const Members in(json);
    ResetFields(normalized_path, alternate_data_stream_name, security_descriptor, url, file_id,
                size, signature_company_name, signature_value_ids);
    ReadObjectType(in, *this);
    ReadFields(in, ZEL_TEXT("path"), path, ZEL_TEXT("md5"), md5, ZEL_TEXT("sha2"), sha2,
               ZEL_TEXT("cmd_line"), cmd_line, ZEL_TEXT("session_id"), session_id, ZEL_TEXT("pid"),
               pid, ZEL_TEXT("uid"), uid, ZEL_TEXT("loaded_modules"), loaded_modules,
               ZEL_TEXT("signature_level_id"), signature_level_id, ZEL_TEXT("state"), state);
}

bool Process::IsValid() const {
    // What only numbers or describes a process does not identify one.
    return AnyPresent(path, md5, sha2, cmd_line, loaded_modules, uid) &&
           PresentAreValid(path, normalized_path, alternate_data_stream_name, md5, sha2, cmd_line,
                           uid, loaded_modules, security_descriptor, url, file_id, size,
                           signature_company_name, signature_value_ids, signature_level_id);
}

void File::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteFields(out, ZEL_TEXT("path"), path, ZEL_TEXT("normalized_path"), normalized_path,
                ZEL_TEXT("alternate_data_stream_name"), alternate_data_stream_name, ZEL_TEXT("md5"),
                md5, ZEL_TEXT("sha2"), sha2, ZEL_TEXT("security_descriptor"), security_descriptor,
                ZEL_TEXT("size"), size, ZEL_TEXT("attributes"), attributes,
                ZEL_TEXT("attribute_ids"), attribute_ids, ZEL_TEXT("state"), state);
}

void File::FromJson(const value& json) {
    const Members in(json);
    ResetFields(normalized_path, alternate_data_stream_name, security_descriptor, size, attributes,
                attribute_ids);
    ReadObjectType(in, *this);
    ReadFields(in, ZEL_TEXT("path"), path, ZEL_TEXT("md5"), md5, ZEL_TEXT("sha2"), sha2,
               ZEL_TEXT("state"), state);
}

bool File::IsValid() const {
    return AnyPresent(path, md5, sha2) &&
           PresentAreValid(path, normalized_path, alternate_data_stream_name, md5, sha2,
                           security_descriptor, size, attributes, attribute_ids);
}

void Directory::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteFields(out, ZEL_TEXT("path"), path, ZEL_TEXT("normalized_path"), normalized_path,
                ZEL_TEXT("security_descriptor"), security_descriptor, ZEL_TEXT("state"), state);
}

void Directory::FromJson(const value& json) {
    const Members in(json);
    ResetFields(normalized_path, security_descriptor);
    ReadObjectType(in, *this);
    ReadFields(in, ZEL_TEXT("path"), path, ZEL_TEXT("state"), state);
}

bool Directory::IsValid() const {
    return path && PresentAreValid(path, normalized_path, security_descriptor);
}

void Module::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteFields(out, ZEL_TEXT("path"), path, ZEL_TEXT("normalized_path"), normalized_path,
                ZEL_TEXT("alternate_data_stream_name"), alternate_data_stream_name, ZEL_TEXT("md5"),
                md5, ZEL_TEXT("sha2"), sha2, ZEL_TEXT("state"), state,
                ZEL_TEXT("signature_level_id"), signature_level_id);
}

void Module::FromJson(const value& json) {
    const Members in(json);
    ResetFields(normalized_path, alternate_data_stream_name);
    ReadObjectType(in, *this);
    ReadFields(in, ZEL_TEXT("path"), path, ZEL_TEXT("md5"), md5, ZEL_TEXT("sha2"), sha2,
               ZEL_TEXT("state"), state, ZEL_TEXT("signature_level_id"), signature_level_id);
}

bool Module::IsValid() const {
    return AnyPresent(path, md5, sha2) &&
           PresentAreValid(path, normalized_path, alternate_data_stream_name, md5, sha2,
                           signature_level_id);
}

}  // namespace ZEL::Schema
