#include "zelstore/schema/fieldlists.h"
#include "zelstore/schema/objectclasses.h"

// Processes, files, directories and modules.

namespace ZEL::Schema {

using web::json::value;

void Process::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteFields(out, U("path"), path, U("normalized_path"), normalized_path,
                U("alternate_data_stream_name"), alternate_data_stream_name, U("md5"), md5,
                U("sha2"), sha2, U("cmd_line"), cmd_line, U("session_id"), session_id, U("pid"),
                pid, U("uid"), uid, U("loaded_modules"), loaded_modules);
    WriteFields(out, U("security_descriptor"), security_descriptor, U("url"), url, U("file_id"),
                file_id, U("size"), size, U("signature_company_name"), signature_company_name,
                U("signature_value_ids"), signature_value_ids, U("signature_level_id"),
                signature_level_id, U("state"), state);
}

void Process::FromJson(const value& in) {
    ResetFields(normalized_path, alternate_data_stream_name, security_descriptor, url, file_id,
                size, signature_company_name, signature_value_ids);
    ReadObjectType(in, *this);
    ReadFields(in, U("path"), path, U("md5"), md5, U("sha2"), sha2, U("cmd_line"), cmd_line,
               U("session_id"), session_id, U("pid"), pid, U("uid"), uid, U("loaded_modules"),
               loaded_modules, U("signature_level_id"), signature_level_id, U("state"), state);
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
    WriteFields(out, U("path"), path, U("normalized_path"), normalized_path,
                U("alternate_data_stream_name"), alternate_data_stream_name, U("md5"), md5,
                U("sha2"), sha2, U("security_descriptor"), security_descriptor, U("size"), size,
                U("attributes"), attributes, U("attribute_ids"), attribute_ids, U("state"), state);
}

void File::FromJson(const value& in) {
    ResetFields(normalized_path, alternate_data_stream_name, security_descriptor, size, attributes,
                attribute_ids);
    ReadObjectType(in, *this);
    ReadFields(in, U("path"), path, U("md5"), md5, U("sha2"), sha2, U("state"), state);
}

bool File::IsValid() const {
    return AnyPresent(path, md5, sha2) &&
           PresentAreValid(path, normalized_path, alternate_data_stream_name, md5, sha2,
                           security_descriptor, size, attributes, attribute_ids);
}

void Directory::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteFields(out, U("path"), path, U("normalized_path"), normalized_path,
                U("security_descriptor"), security_descriptor, U("state"), state);
}

void Directory::FromJson(const value& in) {
    ResetFields(normalized_path, security_descriptor);
    ReadObjectType(in, *this);
    ReadFields(in, U("path"), path, U("state"), state);
}

bool Directory::IsValid() const {
    return path && PresentAreValid(path, normalized_path, security_descriptor);
}

void Module::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteFields(out, U("path"), path, U("normalized_path"), normalized_path,
                U("alternate_data_stream_name"), alternate_data_stream_name, U("md5"), md5,
                U("sha2"), sha2, U("state"), state, U("signature_level_id"), signature_level_id);
}

void Module::FromJson(const value& in) {
    ResetFields(normalized_path, alternate_data_stream_name);
    ReadObjectType(in, *this);
    ReadFields(in, U("path"), path, U("md5"), md5, U("sha2"), sha2, U("state"), state,
               U("signature_level_id"), signature_level_id);
}

bool Module::IsValid() const {
    return AnyPresent(path, md5, sha2) &&
           PresentAreValid(path, normalized_path, alternate_data_stream_name, md5, sha2,
                           signature_level_id);
}

}  // namespace ZEL::Schema
