#include "zel/query/documentkeys.h"

#include <algorithm>
#include <tuple>
#include <type_traits>

#include "zelstore/schema/objectclasses.h"

// What a document may say is what the store reads, so the members of artifacts come from its own
// tables and can't fall behind them. Two things those tables don't tell stand here: which members
// a row's key holds, as all others have no effect on a query, and what is made of a value before
// rows are tested. The keys of the two outer objects are few and stand here in full.

namespace zel {

namespace {

namespace Schema = ZEL::Schema;
using Key = DocumentKey;

constexpr Key queryKeys[] = {
    {"command_uid", Shape::text},
    {"events", Shape::anything},  // looked at apart
    {"limit_result_count", Shape::integer},
    {"include_enrichments", Shape::boolean},
    {"no_live_enriched_events", Shape::boolean},
};

constexpr Key subQueryKeys[] = {
    {"begin_time", Shape::datePair, Key::both},
    {"receive_time", Shape::datePair, Key::both},
    {"end_time", Shape::datePair, Key::both},
    {"seq_num", Shape::number, Key::both},
    {"artifacts", Shape::artifacts, Key::both},
    {"action", Shape::actions, Key::both},
    {"type_id", Shape::numberPair, Key::both},
    {"correlation_uid", Shape::stringPair, Key::both},
    {"filter", Shape::text},
    {"ref_uid", Shape::guidPair},
    {"event_count", Shape::integer},
    {"enable", Shape::boolean},
};

constexpr Key artifactKeys[] = {
    {"actor", Shape::artifact, Key::both},
    {"target", Shape::artifact, Key::both},
    {"result", Shape::artifact},
};

// What the keys of rows hold of an artifact; all else has no effect on a query.
struct Told {
    std::string_view objectType;  // empty: of every kind that has such a member
    std::string_view name;
    Key::Effect effect;
    Key::Reading reading = Key::plain;
};
constexpr Told told[] = {
    {"", "path", Key::both, Key::path},
    {"", "sha2", Key::both},
    {"reg_key", "path", Key::both, Key::registryPath},
    {"reg_value", "path", Key::both, Key::registryPath},
    {"process", "uid", Key::actor},
    {"network", "dst_ip", Key::target, Key::wildcards},
    {"network", "src_ip", Key::target, Key::wildcards},
    {"url", "text", Key::target, Key::wildcards},
    {"kernel_object", "name", Key::both, Key::path},
    {"kernel_object", "type_ids", Key::target},
};

// By the type that the store reads the member into; a member that it keeps but does not read may be
// anything.
template <typename Object, typename T>
Shape ShapeOf(const Schema::PairRow<Object, T>& row) {
    if (!row.isRead)
        return Shape::anything;
    if constexpr (std::is_same_v<T, Schema::StringPair>)
        return Shape::stringPair;
    else if constexpr (std::is_same_v<T, Schema::ExistPair>)
        return Shape::existPair;
    else if constexpr (std::is_same_v<T, Schema::Source>)
        return Shape::source;
    else
        return Shape::numberPair;
}
template <typename Object, typename T>
Shape ShapeOf(const Schema::NumbersRow<Object, T>&) {
    return Shape::numbers;
}
template <typename Object>
Shape ShapeOf(const Schema::NamesRow<Object>&) {
    return Shape::sessionStates;
}
template <typename Object>
Shape ShapeOf(const Schema::NumberRow<Object>&) {
    return Shape::number;
}
template <typename Object>
Shape ShapeOf(const Schema::FlagRow<Object>&) {
    return Shape::boolean;
}

// A member that is not in the table `told` has no effect.
Key MakeKey(std::string_view objectType, std::string_view name, Shape shape) {
    Key key{name, shape};
    for (const Told& row : told) {
        if (row.name == name && (row.objectType.empty() || row.objectType == objectType)) {
            key.effect = row.effect;
            key.reading = row.reading;  // a later row tells more exactly
        }
    }
    return key;
}

// A kind of artifact by the store's own list of its members.
template <typename Object>
ArtifactKind Kind() {
    ArtifactKind kind{Object().GetObjectTypeName(), {}, "", false};
    std::apply(
        [&](const auto&... row) {
            (kind.keys.push_back(MakeKey(kind.objectType, row.name, ShapeOf(row))), ...);
        },
        Object::Fields());
    for (const Key& key : kind.keys) {
        if (key.reading == Key::path || key.reading == Key::registryPath)
            kind.pathKey = key.name;
        kind.hasHash = kind.hasHash || key.name == Schema::names::sha2;
    }
    return kind;
}

}  // namespace

DocumentKeys QueryKeys() {
    return queryKeys;
}
DocumentKeys SubQueryKeys() {
    return subQueryKeys;
}
DocumentKeys ArtifactKeys() {
    return artifactKeys;
}
// A kind that the store learns has to be added here as well.
const std::vector<ArtifactKind>& ArtifactKinds() {
    using namespace Schema;
    static const std::vector<ArtifactKind> kinds = {
        Kind<Process>(), Kind<File>(),     Kind<Directory>(),    Kind<Module>(),  Kind<Service>(),
        Kind<RegKey>(),  Kind<RegValue>(), Kind<KernelObject>(), Kind<Network>(), Kind<Url>(),
        Kind<Session>(), Kind<Etw>(),      Kind<Amsi>(),         Kind<Unknown>(),
    };
    return kinds;
}

const ArtifactKind* FindArtifactKind(std::string_view objectType) {
    const auto& kinds = ArtifactKinds();
    const auto found = std::find_if(kinds.begin(), kinds.end(), [&](const ArtifactKind& kind) {
        return kind.objectType == objectType;
    });
    return found != kinds.end() ? &*found : nullptr;
}

}  // namespace zel
