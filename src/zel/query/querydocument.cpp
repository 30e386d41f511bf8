#include "zel/query/querydocument.h"

#include <algorithm>

#include "zel/query/documentkeys.h"
#include "zel/query/queryarguments.h"
#include "zel/query/registryroots.h"
#include "zelstore/schema/eventfields.h"

// One sub-query for each way in which an event can fit. `Alternatives` lists those ways: each kind
// of target that has what the flags ask for, and of each the places where a hash or an address may
// stand. `SubQuery` writes one down. Where nothing asks for a target there is one way that names
// none, so that events without a target's path are found as well.

namespace zel {

namespace {

using web::json::value;
using Texts = std::vector<std::string>;
using ZEL::Schema::HasWildcard;

template <typename T>
value ToArray(const std::vector<T>& items) {
    value array = value::array(items.size());
    for (std::size_t i = 0; i < items.size(); ++i)
        array[i] = value(items[i]);
    return array;
}

// Objects keep the order in which they are filled, so a document reads as a person would write it.
value Pair(const char* comparison, value content) {
    value op = value::object(true), pair = value::object(true);
    op["value"] = value(comparison);
    pair["operator"] = std::move(op);
    pair["value"] = std::move(content);
    return pair;
}

// The store turns only the first value with wildcards into a pattern and reads those behind it as
// patterns already, so a single one goes last, and several are turned here.
value WildcardPair(Texts values) {
    const auto wildcards = std::count_if(values.begin(), values.end(), HasWildcard);
    if (wildcards <= 1) {
        std::stable_partition(values.begin(), values.end(),
                              [](const std::string& text) { return !HasWildcard(text); });
        return Pair("equals", ToArray(values));
    }
    for (std::string& text : values)
        text = ZEL::Schema::WildcardToPattern(text);
    return Pair("fits_pattern", ToArray(values));
}

// Beside each value that begins with a root of the registry its other forms are asked for; the
// store itself looks for the long one and for the copies of the key that it knows of.
value RegistryPair(Texts patterns) {
    for (std::size_t i = 0, count = patterns.size(); i < count; ++i)
        if (auto anyRoot = WithAnyRoot(patterns[i]))
            patterns.push_back(std::move(*anyRoot));
    return Pair("fits_pattern", ToArray(patterns));
}

value RegistryWildcardPair(const Texts& values) {
    Texts patterns(values.size());
    std::transform(values.begin(), values.end(), patterns.begin(), ZEL::Schema::WildcardToPattern);
    const bool hasRoot = std::any_of(patterns.begin(), patterns.end(), [](const std::string& text) {
        return WithAnyRoot(text).has_value();
    });
    return hasRoot ? RegistryPair(std::move(patterns)) : WildcardPair(values);
}

// Sources write identifiers in braces or without, people as they have found them.
Texts WithAndWithoutBraces(const Texts& identifiers) {
    Texts forms;
    for (const std::string& text : identifiers) {
        const bool hasBraces = text.starts_with('{') && text.ends_with('}');
        const std::string bare = hasBraces ? text.substr(1, text.size() - 2) : text;
        forms.insert(forms.end(), {bare, "{" + bare + "}"});
    }
    return forms;
}

// By what its path stands for, so that a new kind of registry artifact needs no change here.
bool IsRegistry(const ArtifactKind& kind) {
    return std::any_of(kind.keys.begin(), kind.keys.end(), [](const DocumentKey& key) {
        return key.reading == DocumentKey::registryPath;
    });
}

// Where the alternatives of one sub-query lie.
struct Alternative {
    const ArtifactKind* target = nullptr;  // null: any, also none
    bool hashOfTarget = false;
    bool ipOfSource = false;
};

class Builder {
public:
    Builder(const QueryOptions& options, const QueryArguments& arguments,
            const Narrowing& narrowing)
        : options_(options), arguments_(arguments), narrowing_(narrowing) {}

    bool Build(value* document, std::string* problem) const {
        const std::vector<Alternative> alternatives = Alternatives();
        if (alternatives.empty()) {
            *problem =
                "no event has all of that: --ip and --port ask for network events, a path or a "
                "hash for a target that has one";
            return false;
        }
        value events = value::array(alternatives.size());
        for (std::size_t i = 0; i < alternatives.size(); ++i)
            events[i] = SubQuery(alternatives[i]);
        value query = value::object(true);
        query["events"] = std::move(events);
        if (arguments_.limit)
            query["limit_result_count"] = value(*arguments_.limit);
        if (options_.enrichments)
            query["include_enrichments"] = value(true);
        if (options_.noLiveEnriched)
            query["no_live_enriched_events"] = value(true);
        *document = value::object(true);
        (*document)["event_query"] = std::move(query);
        return true;
    }

private:
    bool WantsNetwork() const { return !options_.ips.empty() || !options_.ports.empty(); }

    // Kinds that a person asked for but that lack what else is asked drop out; none left is told as
    // a question that nothing can fit.
    bool Fits(const ArtifactKind& kind, bool hashOfTarget) const {
        const bool wantsPath = !options_.targetPaths.empty() || !options_.patterns.empty();
        const bool isAsked =
            options_.objects.empty() || std::find(options_.objects.begin(), options_.objects.end(),
                                                  kind.objectType) != options_.objects.end();
        return isAsked && (!wantsPath || !kind.pathKey.empty()) &&
               (!hashOfTarget || kind.hasHash) &&
               (narrowing_.object.empty() || kind.objectType == narrowing_.object) &&
               (!WantsNetwork() || kind.objectType == "network");
    }

    std::vector<Alternative> Alternatives() const {
        const bool anyTarget = options_.objects.empty() && options_.targetPaths.empty() &&
                               options_.patterns.empty() && !WantsNetwork() &&
                               narrowing_.object.empty();
        std::vector<Alternative> alternatives;
        const auto add = [&](const ArtifactKind* kind, bool hashOfTarget) {
            alternatives.push_back({kind, hashOfTarget, false});
            if (!options_.ips.empty())
                alternatives.push_back({kind, hashOfTarget, true});
        };
        for (const bool hashOfTarget : {false, true}) {
            if (hashOfTarget && options_.hashes.empty())
                break;
            if (anyTarget && !hashOfTarget) {
                add(nullptr, false);
                continue;
            }
            for (const ArtifactKind& kind : ArtifactKinds())
                if (Fits(kind, hashOfTarget))
                    add(&kind, hashOfTarget);
        }
        return alternatives;
    }

    // Empty when nothing is asked of the actor; it then does not stand in the sub-query.
    value Actor(const Alternative& alternative) const {
        value actor = value::object(true);
        if (!options_.actorPaths.empty())
            actor["path"] = WildcardPair(options_.actorPaths);
        if (!options_.hashes.empty() && !alternative.hashOfTarget)
            actor["sha2"] = Pair("equals", ToArray(options_.hashes));
        if (!options_.actorUids.empty())
            actor["uid"] = Pair("equals", ToArray(WithAndWithoutBraces(options_.actorUids)));
        return actor;
    }

    // With several of them given, all have to fit.
    value Target(const Alternative& alternative) const {
        value target = value::object(true);
        target["object_type"] = value(std::string(alternative.target->objectType));
        const std::string pathKey(alternative.target->pathKey);
        const bool isRegistry = IsRegistry(*alternative.target);
        if (!options_.targetPaths.empty())
            target[pathKey] = isRegistry ? RegistryWildcardPair(options_.targetPaths)
                                         : WildcardPair(options_.targetPaths);
        if (!options_.patterns.empty())
            target[pathKey] = isRegistry ? RegistryPair(options_.patterns)
                                         : Pair("fits_pattern", ToArray(options_.patterns));
        if (alternative.hashOfTarget)
            target["sha2"] = Pair("equals", ToArray(options_.hashes));
        else if (!narrowing_.targetHash.empty())
            target["sha2"] = Pair("equals", ToArray(Texts{narrowing_.targetHash}));
        for (const auto& [member, values] : narrowing_.addresses)
            target[member] = Pair("starts_with", ToArray(values));
        if (!options_.ips.empty())
            target[alternative.ipOfSource ? "src_ip" : "dst_ip"] = WildcardPair(options_.ips);
        return target;
    }

    std::string Until() const {
        if (arguments_.until.empty() || narrowing_.until.empty())
            return arguments_.until + narrowing_.until;
        return std::min(arguments_.until, narrowing_.until);
    }

    // Each carries all conditions that do not lie in alternatives, as sub-queries share nothing.
    value SubQuery(const Alternative& alternative) const {
        value event = value::object(true);
        event[options_.byReceive ? "receive_time" : "begin_time"] =
            Pair("greater_than_or_equal", value(std::max(arguments_.since, narrowing_.since)));
        const std::string until = Until();
        if (!until.empty())
            event["end_time"] = Pair("less_than_or_equal", value(until));
        if (arguments_.sequence != 0)
            event["seq_num"] = value(arguments_.sequence);
        const Texts& actions = options_.actions.empty() ? narrowing_.actions : options_.actions;
        if (!actions.empty())
            event["action"] = ToArray(actions);
        if (!arguments_.typeIds.empty())
            event["type_id"] = Pair("equals", ToArray(arguments_.typeIds));
        if (!options_.correlations.empty())
            event["correlation_uid"] = Pair("equals", ToArray(options_.correlations));
        else if (!narrowing_.correlation.empty())
            event["correlation_uid"] = Pair("equals", ToArray(Texts{narrowing_.correlation}));
        value artifacts = value::object(true);
        const value conditions = Actor(alternative);
        if (conditions.size() != 0) {
            value actor = value::object(true);
            actor["object_type"] = value("process");
            for (const auto& [name, pair] : conditions.as_object())
                actor[name] = pair;
            artifacts["actor"] = std::move(actor);
        }
        if (alternative.target != nullptr)
            artifacts["target"] = Target(alternative);
        if (artifacts.size() != 0)
            event["artifacts"] = std::move(artifacts);
        return event;
    }

    const QueryOptions& options_;
    const QueryArguments& arguments_;
    const Narrowing& narrowing_;
};

// What fits a line stands on one, but for the document's frame.
void PrettyPrint(const value& v, const std::string& indent, std::string* out) {
    constexpr std::size_t lineWidth = 100, frameIndent = 6;
    const std::string flat = v.serialize();
    const bool isFrame = indent.size() <= frameIndent && v.size() != 0;
    if ((!v.is_array() && !v.is_object()) ||
        (!isFrame && indent.size() + flat.size() <= lineWidth)) {
        *out += flat;
        return;
    }
    const std::string inner = indent + "  ";
    const char* separator = "\n";
    *out += v.is_array() ? "[" : "{";
    const auto print = [&](const std::string& name, const value& member) {
        out->append(separator).append(inner).append(name);
        PrettyPrint(member, inner, out);
        separator = ",\n";
    };
    if (v.is_array()) {
        for (const value& element : v.as_array())
            print("", element);
    } else {
        for (const auto& [name, member] : v.as_object())
            print(value(name).serialize() + ": ", member);
    }
    out->append("\n").append(indent).append(v.is_array() ? "]" : "}");
}

}  // namespace

bool BuildDocument(const QueryOptions& options, value* document, std::string* problem,
                   const Narrowing& narrowing) {
    QueryArguments arguments;
    if (!ReadArguments(options, &arguments, problem))
        return false;
    // Conditions on the text that contradict the flags ask nothing wrong: nothing fits them all.
    return Builder(options, arguments, narrowing).Build(document, problem) ||
           Builder(options, arguments, Narrowing()).Build(document, problem);
}

std::string PrettyDocument(const value& document) {
    std::string text;
    PrettyPrint(document, "", &text);
    return text + "\n";
}

}  // namespace zel
