#include "zel/query/documentkeys.h"

#include <algorithm>
#include <iterator>

namespace zel {

namespace {

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

constexpr Key pathKey{"path", Shape::stringPair, Key::both, Key::path};
constexpr Key registryPathKey{"path", Shape::stringPair, Key::both, Key::registryPath};
constexpr Key hashKey{"sha2", Shape::stringPair, Key::both};
constexpr Key md5Key{"md5", Shape::stringPair};
constexpr Key stateKey{"state", Shape::existPair};
constexpr Key normalizedPathKey{"normalized_path", Shape::anything};
constexpr Key streamKey{"alternate_data_stream_name", Shape::anything};
constexpr Key securityKey{"security_descriptor", Shape::anything};

constexpr Key processKeys[] = {pathKey,
                               hashKey,
                               {"uid", Shape::stringPair, Key::actor},
                               md5Key,
                               {"cmd_line", Shape::stringPair},
                               {"session_id", Shape::numberPair},
                               {"pid", Shape::numberPair},
                               {"loaded_modules", Shape::stringPair},
                               {"signature_level_id", Shape::numberPair},
                               stateKey,
                               normalizedPathKey,
                               streamKey,
                               securityKey,
                               {"url", Shape::anything},
                               {"file_id", Shape::anything},
                               {"size", Shape::anything},
                               {"signature_company_name", Shape::anything},
                               {"signature_value_ids", Shape::anything}};
constexpr Key fileKeys[] = {pathKey,
                            hashKey,
                            md5Key,
                            stateKey,
                            normalizedPathKey,
                            streamKey,
                            securityKey,
                            {"size", Shape::anything},
                            {"attributes", Shape::anything},
                            {"attribute_ids", Shape::anything}};
constexpr Key directoryKeys[] = {pathKey, stateKey, normalizedPathKey, securityKey};
constexpr Key moduleKeys[] = {
    pathKey,           hashKey,   md5Key, stateKey, {"signature_level_id", Shape::numberPair},
    normalizedPathKey, streamKey,
};
constexpr Key sessionKeys[] = {
    {"id", Shape::numberPair}, {"session_state", Shape::sessionStates}, stateKey};
constexpr Key networkKeys[] = {{"dst_ip", Shape::stringPair, Key::target, Key::wildcards},
                               {"src_ip", Shape::stringPair, Key::target, Key::wildcards},
                               {"url", Shape::stringPair},
                               {"dst_port", Shape::anything},
                               {"src_port", Shape::anything},
                               {"protocol_id", Shape::anything},
                               {"direction_id", Shape::anything}};
constexpr Key regKeyKeys[] = {registryPathKey, stateKey, securityKey};
constexpr Key regValueKeys[] = {registryPathKey,
                                {"name", Shape::stringPair},
                                {"type_id", Shape::number},
                                {"data", Shape::stringPair},
                                {"default", Shape::boolean},
                                stateKey,
                                securityKey};
constexpr Key serviceKeys[] = {pathKey,
                               hashKey,
                               {"name", Shape::stringPair},
                               md5Key,
                               {"type_ids", Shape::numbers},
                               {"start_id", Shape::number},
                               {"run_state_id", Shape::number},
                               {"loaded_module_name", Shape::stringPair},
                               {"reg_path", Shape::stringPair},
                               {"security_descriptor", Shape::stringPair},
                               stateKey,
                               normalizedPathKey};
constexpr Key urlKeys[] = {{"text", Shape::stringPair, Key::target, Key::wildcards}, stateKey};
constexpr Key kernelObjectKeys[] = {{"name", Shape::stringPair, Key::both, Key::path},
                                    {"type_ids", Shape::numbers, Key::target},
                                    stateKey};
constexpr Key etwKeys[] = {{"ref_event", Shape::numberPair}, {"source", Shape::source}, stateKey};
constexpr Key amsiKeys[] = {{"resource", Shape::stringPair}, stateKey};

constexpr ArtifactKind artifactKinds[] = {
    {"process", processKeys, "path", true},
    {"file", fileKeys, "path", true},
    {"directory", directoryKeys, "path", false},
    {"module", moduleKeys, "path", true},
    {"service", serviceKeys, "path", true},
    {"reg_key", regKeyKeys, "path", false},
    {"reg_value", regValueKeys, "path", false},
    {"kernel_object", kernelObjectKeys, "name", false},
    {"network", networkKeys, "", false},
    {"url", urlKeys, "", false},
    {"session", sessionKeys, "", false},
    {"etw", etwKeys, "", false},
    {"amsi", amsiKeys, "", false},
    {"unknown", {}, "", false},
};

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
std::span<const ArtifactKind> ArtifactKinds() {
    return artifactKinds;
}

const ArtifactKind* FindArtifactKind(std::string_view objectType) {
    const auto found =
        std::find_if(std::begin(artifactKinds), std::end(artifactKinds),
                     [&](const ArtifactKind& kind) { return kind.objectType == objectType; });
    return found != std::end(artifactKinds) ? &*found : nullptr;
}

}  // namespace zel
