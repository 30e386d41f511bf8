#include "zelstore/schema/objectclasses.h"

// The object classes are their lists; here stands what lists can't say. Two classes are written in
// another order than they are read, as documents have always had it. The templates are made here
// once, since each class walks its list in three ways, and every file that knows the classes would
// make them anew.

namespace ZEL::Schema {

using web::json::value;

template class ListedObject<Unknown>;
template class ListedObject<Process>;
template class ListedObject<File>;
template class ListedObject<Directory>;
template class ListedObject<Module>;
template class ListedObject<Session>;
template class ListedObject<Network>;
template class ListedObject<RegKey>;
template class ListedObject<RegValue>;
template class ListedObject<Service>;
template class ListedObject<Url>;
template class ListedObject<KernelObject>;
template class ListedObject<Etw>;
template class ListedObject<Amsi>;

void Url::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteField(out, names::text, text);
    WriteField(out, names::state, state);
}

void Amsi::ToJson(value& out) const {
    WriteObject(out, *this);
    WriteField(out, names::resource, resource);
    WriteField(out, names::state, state);
}

void Source::ToJson(value& out) const {
    out = value::object(true);
    WriteField(out, names::facility, facility);
}

void Source::FromJson(const value& json) {
    const Members in(json);
    ReadField(in, names::facility, facility);
}

}  // namespace ZEL::Schema
