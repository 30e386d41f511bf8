#pragma once

#include <span>
#include <string_view>
#include <vector>

// What a query document may say: the keys of each kind of object, and what each may hold.
namespace zel {

// The form of a value. A pair is an object of `operator` and `value`. By it ValueCheck knows what
// may stand there without knowing the key.
enum class Shape {
    anything,  // the store does not read it
    text,
    boolean,
    integer,  // any that fits 32 bits with a sign
    number,   // unsigned, 32 bits
    numbers,
    sessionStates,
    stringPair,
    numberPair,
    datePair,
    guidPair,
    existPair,
    source,
    artifacts,
    artifact,
    actions,
};

// A key that an object may have. Keys that are in no table are mistakes. The store itself passes
// over what it does not know, so a slip would widen the question in silence.
struct DocumentKey {
    std::string_view name;
    Shape shape;
    // Whether it narrows the results: as a condition of a target or a sub-query, or of an actor.
    enum Effect { none, target, both, actor } effect = none;
    // What the store makes of its values before it tests rows: from `wildcards` on, * and ? under
    // `equals` turn them into patterns; paths stand for all that they are on the machine.
    enum Reading { plain, wildcards, path, registryPath } reading = plain;
};

using DocumentKeys = std::span<const DocumentKey>;

// The tables live as long as the program.
DocumentKeys QueryKeys();
DocumentKeys SubQueryKeys();
DocumentKeys ArtifactKeys();  // actor, target, result

// A kind of artifact that records and queries can have. Made from the store's own list of members,
// so that a member that is added there can be asked for here at once.
struct ArtifactKind {
    std::string_view objectType;
    std::vector<DocumentKey> keys;
    std::string_view pathKey;  // what holds its path; empty without one
    bool hasHash;
};
// In the order in which alternatives of a question are tried. Any thread.
const std::vector<ArtifactKind>& ArtifactKinds();
// Null for a name that no kind has. Case counts, as in records.
const ArtifactKind* FindArtifactKind(std::string_view objectType);

}  // namespace zel
