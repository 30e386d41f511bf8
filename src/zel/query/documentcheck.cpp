#include "zel/query/documentcheck.h"

#include "common/textbridge.h"
#include "zel/query/jsonscan.h"
#include "zel/query/valuecheck.h"
#include "zel/terminal/textfit.h"

// The store forgives much: an unknown key is passed over, an empty list counts as absent, a
// condition on what keys don't hold has no effect. Each of these is an answer to another question
// than the one that was meant, so a document is held against the tables of documentkeys.h first.
//
// An error is what the store would refuse, or answer with nothing for sure; a warning is what it
// takes and leaves aside. All of them are gathered, with their places, so that a document needs to
// be mended once. Values are the business of ValueCheck; here are objects and how they nest.

namespace zel {

namespace {

using web::json::value;

constexpr DocumentKey rootKeys[] = {{"event_query", Shape::anything}};

class DocumentCheck {
public:
    explicit DocumentCheck(DocumentFindings& found) : check_(found) {}

    // A missing event_query is told only where nothing else is: a slip in its name has been told
    // already.
    void Document(const value& document) {
        bool isThere = false;
        check_.Members(document, rootKeys, "",
                       [&](const DocumentKey&, const value& query, const std::string& path) {
                           isThere = true;
                           Query(query, path);
                       });
        if (!isThere && !check_.HasErrors())
            check_.Error("", "there is no event_query in it");
    }

private:
    enum class Role { actor, target, result };

    void Query(const value& query, const std::string& path) {
        bool hasEvents = false;
        check_.Members(query, QueryKeys(), path,
                       [&](const DocumentKey& key, const value& member, const std::string& at) {
                           if (key.name != "events")
                               return check_.Value(member, key, at, false);
                           hasEvents = true;
                           Events(member, at);
                       });
        if (query.is_object() && !hasEvents)
            check_.Error(path, "there are no events to ask for");
    }

    void Events(const value& events, const std::string& path) {
        if (!check_.IsArray(events, path))
            return;
        if (events.size() == 0)
            check_.Error(path, "there is no event to ask for");
        for (std::size_t i = 0; i < events.size(); ++i)
            SubQuery(events.at(i), path + "[" + std::to_string(i) + "]");
    }

    void SubQuery(const value& subQuery, const std::string& path) {
        bool hasBegin = false, hasReceive = false, hasConditions = false;
        check_.Members(subQuery, SubQueryKeys(), path,
                       [&](const DocumentKey& key, const value& member, const std::string& at) {
                           hasBegin = hasBegin || key.name == "begin_time";
                           hasReceive = hasReceive || key.name == "receive_time";
                           if (key.name == "artifacts") {
                               hasConditions = Artifacts(member, at) || hasConditions;
                               return;
                           }
                           hasConditions = hasConditions || IsCondition(key, member);
                           if (key.effect == DocumentKey::none || IsEmptyArray(member))
                               check_.Warn(at, "has no effect on a query");
                           check_.Value(member, key, at, key.effect != DocumentKey::none);
                       });
        if (!subQuery.is_object())
            return;
        if (!hasBegin && !hasReceive)
            check_.Error(path,
                         "there is no time; begin_time or receive_time has to tell the start");
        if (hasReceive && hasConditions)
            check_.Error(path,
                         "conditions can't be combined with receive_time: the keys of receive-time "
                         "rows hold the time alone, so that nothing would match");
    }

    static bool IsEmptyArray(const value& member) {
        return member.is_array() && member.size() == 0;
    }

    // Times, and the number that goes with them, tell which rows are walked and are no conditions.
    static bool IsCondition(const DocumentKey& key, const value& member) {
        const bool isTime = key.shape == Shape::datePair || key.shape == Shape::number;
        return key.effect != DocumentKey::none && !isTime && !IsEmptyArray(member);
    }

    // Whether there is an actor or a target.
    bool Artifacts(const value& artifacts, const std::string& path) {
        bool hasConditions = false;
        check_.Members(artifacts, ArtifactKeys(), path,
                       [&](const DocumentKey& key, const value& member, const std::string& at) {
                           const Role role = key.name == "actor"    ? Role::actor
                                             : key.name == "target" ? Role::target
                                                                    : Role::result;
                           if (role == Role::result)
                               check_.Warn(at, "has no effect on a query");
                           hasConditions = hasConditions || role != Role::result;
                           Artifact(member, role, at);
                       });
        return hasConditions;
    }

    // Whether the keys of rows hold this of an artifact in this role.
    static bool Counts(const DocumentKey& key, Role role) {
        return key.effect == DocumentKey::both ||
               (key.effect == DocumentKey::actor && role == Role::actor) ||
               (key.effect == DocumentKey::target && role == Role::target);
    }

    void Artifact(const value& artifact, Role role, const std::string& path) {
        if (!check_.IsObject(artifact, path))
            return;
        if (!artifact.has_field("object_type"))
            return check_.Error(path, "the object_type is missing, without which nothing is read");
        const value& type = artifact.at("object_type");
        const std::string typePath = path + ".object_type";
        if (!check_.IsString(type, typePath))
            return;
        const ArtifactKind* const kind = FindArtifactKind(type.as_string());
        if (kind == nullptr)
            return check_.Error(typePath,
                                UnknownName("object type", type.as_string(), ObjectTypeNames()));
        std::vector<DocumentKey> keys = kind->keys;
        keys.push_back({"object_type", Shape::text, DocumentKey::both});
        check_.Members(artifact, keys, path,
                       [&](const DocumentKey& key, const value& member, const std::string& at) {
                           const bool counts = role != Role::result && Counts(key, role);
                           DocumentKey here = key;
                           if (role != Role::target && here.reading == DocumentKey::registryPath)
                               here.reading = DocumentKey::path;  // the registry is no actor's
                           if (!counts && role != Role::result)
                               check_.Warn(at, "has no effect on a query: keys do not hold it");
                           check_.Value(member, here, at, counts);
                       });
    }

    ValueCheck check_;
};

}  // namespace

// The strict scan comes first, as the parser below it takes more than JSON and has no places to
// tell.
bool ParseDocument(std::string_view text, value* document, std::string* problem) {
    if (text.find_first_not_of(" \t\r\n") == text.npos) {
        *problem = "the document is empty";
        return false;
    }
    if (!wm::IsUtf8(text)) {
        *problem = "the document is not UTF-8";
        return false;
    }
    const JsonScan scan(text);
    if (!scan.Ok()) {
        const TextPlace place = PlaceOf(text, scan.ErrorAt());
        *problem = "the document is no JSON: line " + std::to_string(place.line) + ", column " +
                   std::to_string(place.column) + ": " + scan.Error() + "\n" +
                   PointAt(place.lineText, place.byteInLine);
        return false;
    }
    try {
        *document = value::parse(std::string(text));
        return true;
    } catch (const std::exception& error) {
        *problem = std::string("the document can't be read: ") + error.what();
        return false;
    }
}

DocumentFindings CheckDocument(const value& document) {
    DocumentFindings found;
    DocumentCheck(found).Document(document);
    return found;
}

}  // namespace zel
