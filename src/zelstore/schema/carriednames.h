#pragma once

#include "zelstore/schema/text.h"

// Names that the agent's documents use and this component only carries: nothing here reads them.
// Whoever comes to read one moves it to names.h.
//
// They stand together so that the vocabulary of the agent's documents is known in one place, and a
// name that is taken up here is spelt as everybody else spells it. A list holds what belongs to one
// document. Nothing is looked up in them at run time.

namespace ZEL::Schema::carried {

// Query documents.
inline constexpr TextView eventQueryDocument[] = {ZEL_TEXT("device_uid"), ZEL_TEXT("org_unit_uid"),
                                                  ZEL_TEXT("device_group"), ZEL_TEXT("results"),
                                                  ZEL_TEXT("event_query_results")};
// Commands, each with what stands beside it.
inline constexpr TextView scanCommand[] = {ZEL_TEXT("eoc_scan_command"),
                                           ZEL_TEXT("commands"),
                                           ZEL_TEXT("remediation"),
                                           ZEL_TEXT("override_process_termination"),
                                           ZEL_TEXT("action"),
                                           ZEL_TEXT("pids"),
                                           ZEL_TEXT("scan_uids"),
                                           ZEL_TEXT("allow_quick_search"),
                                           ZEL_TEXT("scan_network_paths"),
                                           ZEL_TEXT("QUARANTINE"),
                                           ZEL_TEXT("TERMINATE"),
                                           ZEL_TEXT("eoc_scan_results")};
inline constexpr TextView remediationCommand[] = {
    ZEL_TEXT("eoc_remediation_command"), ZEL_TEXT("eoc_remediation_results"), ZEL_TEXT("trigger"),
    ZEL_TEXT("side_effects"), ZEL_TEXT("result")};
inline constexpr TextView rebootCommand[] = {ZEL_TEXT("reboot_command"), ZEL_TEXT("prompt_type"),
                                             ZEL_TEXT("schedule_type"), ZEL_TEXT("reason_type"),
                                             ZEL_TEXT("message")};
inline constexpr TextView cancelCommand[] = {ZEL_TEXT("cancel_command"),
                                             ZEL_TEXT("command_to_cancel_uid"),
                                             ZEL_TEXT("cancel_command_result"), ZEL_TEXT("result")};
inline constexpr TextView ironCommand[] = {ZEL_TEXT("iron_command"),
                                           ZEL_TEXT("entries_to_invalidate")};
inline constexpr TextView getFileCommand[] = {ZEL_TEXT("get_file_command"),
                                              ZEL_TEXT("search_location"),
                                              ZEL_TEXT("filepath"),
                                              ZEL_TEXT("sha256"),
                                              ZEL_TEXT("md5"),
                                              ZEL_TEXT("user_name"),
                                              ZEL_TEXT("user_domain"),
                                              ZEL_TEXT("password"),
                                              ZEL_TEXT("get_file_results"),
                                              ZEL_TEXT("result"),
                                              ZEL_TEXT("original_filename"),
                                              ZEL_TEXT("original_filepath"),
                                              ZEL_TEXT("file_source"),
                                              ZEL_TEXT("file_contents"),
                                              ZEL_TEXT("artifact"),
                                              ZEL_TEXT("scan_id"),
                                              ZEL_TEXT("type_id"),
                                              ZEL_TEXT("hosts"),
                                              ZEL_TEXT("mac"),
                                              ZEL_TEXT("dns_domain"),
                                              ZEL_TEXT("dns_host"),
                                              ZEL_TEXT("ip"),
                                              ZEL_TEXT("ipv4_subnet"),
                                              ZEL_TEXT("ipv6_subnet"),
                                              ZEL_TEXT("ip_range"),
                                              ZEL_TEXT("location"),
                                              ZEL_TEXT("mask"),
                                              ZEL_TEXT("ip_start"),
                                              ZEL_TEXT("ip_end")};
inline constexpr TextView reverseShellCommand[] = {ZEL_TEXT("reverse_shell_command"),
                                                   ZEL_TEXT("websocket_url"), ZEL_TEXT("user_name"),
                                                   ZEL_TEXT("user_domain"), ZEL_TEXT("password")};
// Policies.
inline constexpr TextView policies[] = {ZEL_TEXT("monitor_policy"),
                                        ZEL_TEXT("policies"),
                                        ZEL_TEXT("granular_policies"),
                                        ZEL_TEXT("statistic_protocols"),
                                        ZEL_TEXT("submission_throttle"),
                                        ZEL_TEXT("allow_reverse_shell"),
                                        ZEL_TEXT("amsi_provider"),
                                        ZEL_TEXT("etw_provider"),
                                        ZEL_TEXT("foi_provider"),
                                        ZEL_TEXT("reputation_provider"),
                                        ZEL_TEXT("schedule_policy"),
                                        ZEL_TEXT("max_batch_size_in_kb"),
                                        ZEL_TEXT("categories_of_interest"),
                                        ZEL_TEXT("categories_of_silent_enrichment"),
                                        ZEL_TEXT("enable_real_time_submission")};
// Events and their objects.
inline constexpr TextView event[] = {ZEL_TEXT("device_user_idle"), ZEL_TEXT("timezone")};
inline constexpr TextView objects[] = {ZEL_TEXT("host"),
                                       ZEL_TEXT("scheme"),
                                       ZEL_TEXT("method"),
                                       ZEL_TEXT("port"),
                                       ZEL_TEXT("query"),
                                       ZEL_TEXT("rep_score_id"),
                                       ZEL_TEXT("category_ids"),
                                       ZEL_TEXT("folder"),
                                       ZEL_TEXT("content_type"),
                                       ZEL_TEXT("family_id"),
                                       ZEL_TEXT("subtype"),
                                       ZEL_TEXT("user_sid"),
                                       ZEL_TEXT("open_mode"),
                                       ZEL_TEXT("access_mask_ids"),
                                       ZEL_TEXT("created"),
                                       ZEL_TEXT("modified"),
                                       ZEL_TEXT("signature_created_date"),
                                       ZEL_TEXT("rep_score"),
                                       ZEL_TEXT("rep_score_band"),
                                       ZEL_TEXT("rep_prevalence"),
                                       ZEL_TEXT("rep_prevalence_band"),
                                       ZEL_TEXT("rep_discovered_date"),
                                       ZEL_TEXT("rep_discovered_band"),
                                       ZEL_TEXT("company_name"),
                                       ZEL_TEXT("product_name"),
                                       ZEL_TEXT("parent_name"),
                                       ZEL_TEXT("remote"),
                                       ZEL_TEXT("admin"),
                                       ZEL_TEXT("user_name"),
                                       ZEL_TEXT("user_domain"),
                                       ZEL_TEXT("start_time"),
                                       ZEL_TEXT("xattributes"),
                                       ZEL_TEXT("app_name"),
                                       ZEL_TEXT("tobc_injected"),
                                       ZEL_TEXT("is_trusted"),
                                       ZEL_TEXT("injection_type_id"),
                                       ZEL_TEXT("tid"),
                                       ZEL_TEXT("integrity_id"),
                                       ZEL_TEXT("original_name"),
                                       ZEL_TEXT("bytes_upload"),
                                       ZEL_TEXT("bytes_download"),
                                       ZEL_TEXT("scan_uid"),
                                       ZEL_TEXT("data_size"),
                                       ZEL_TEXT("risk_ref_value"),
                                       ZEL_TEXT("attacks"),
                                       ZEL_TEXT("technique_uid"),
                                       ZEL_TEXT("sub_technique_uid"),
                                       ZEL_TEXT("analysis"),
                                       ZEL_TEXT("analysis_obj"),
                                       ZEL_TEXT("facility_uid"),
                                       ZEL_TEXT("ref_event_name"),
                                       ZEL_TEXT("log_level"),
                                       ZEL_TEXT("data_obj"),
                                       ZEL_TEXT("raw_data"),
                                       ZEL_TEXT("operation"),
                                       ZEL_TEXT("status_os_src"),
                                       ZEL_TEXT("status_os"),
                                       ZEL_TEXT("requested_permissions")};
// The header of a record, and enrichments.
inline constexpr TextView recordHeader[] = {ZEL_TEXT("zel_ver"),
                                            ZEL_TEXT("zel_data_protocols"),
                                            ZEL_TEXT("zel_files"),
                                            ZEL_TEXT("enriched_data"),
                                            ZEL_TEXT("enrichments"),
                                            ZEL_TEXT("category"),
                                            ZEL_TEXT("category_id"),
                                            ZEL_TEXT("feature_policy_name"),
                                            ZEL_TEXT("feature_policy_version"),
                                            ZEL_TEXT("feature_policy_uuid"),
                                            ZEL_TEXT("severity_id"),
                                            ZEL_TEXT("product_name"),
                                            ZEL_TEXT("product_uid"),
                                            ZEL_TEXT("product_ver"),
                                            ZEL_TEXT("feature_name"),
                                            ZEL_TEXT("feature_uid"),
                                            ZEL_TEXT("device_time")};
// Lists of values.
inline constexpr TextView registryValueTypes[] = {ZEL_TEXT("REG_BINARY"),
                                                  ZEL_TEXT("REG_DWORD"),
                                                  ZEL_TEXT("REG_EXPAND_SZ"),
                                                  ZEL_TEXT("REG_LINK"),
                                                  ZEL_TEXT("REG_MULTI_SZ"),
                                                  ZEL_TEXT("REG_NONE"),
                                                  ZEL_TEXT("REG_QWORD"),
                                                  ZEL_TEXT("REG_SZ"),
                                                  ZEL_TEXT("REG_DWORD_BIG_ENDIAN"),
                                                  ZEL_TEXT("REG_RESOURCE_LIST"),
                                                  ZEL_TEXT("REG_FULL_RESOURCE_DESCRIPTOR"),
                                                  ZEL_TEXT("REG_RESOURCE_REQUIREMENTS_LIST")};
inline constexpr TextView accessRights[] = {ZEL_TEXT("generic_read"),
                                            ZEL_TEXT("generic_write"),
                                            ZEL_TEXT("generic_execute"),
                                            ZEL_TEXT("generic_all"),
                                            ZEL_TEXT("delete"),
                                            ZEL_TEXT("write_dac"),
                                            ZEL_TEXT("write_owner"),
                                            ZEL_TEXT("synchronize"),
                                            ZEL_TEXT("read_data"),
                                            ZEL_TEXT("write_data"),
                                            ZEL_TEXT("append_data"),
                                            ZEL_TEXT("read_extended_attributes"),
                                            ZEL_TEXT("write_extended_attributes"),
                                            ZEL_TEXT("execute"),
                                            ZEL_TEXT("delete_child"),
                                            ZEL_TEXT("read_attributes"),
                                            ZEL_TEXT("write_attributes"),
                                            ZEL_TEXT("read_control"),
                                            ZEL_TEXT("access_system_security"),
                                            ZEL_TEXT("maximum_allowed")};
inline constexpr TextView contentTypes[] = {
    ZEL_TEXT("unk"), ZEL_TEXT("exe"), ZEL_TEXT("med"),  ZEL_TEXT("doc"), ZEL_TEXT("con"),
    ZEL_TEXT("unk"), ZEL_TEXT("app"), ZEL_TEXT("aud"),  ZEL_TEXT("exa"), ZEL_TEXT("img"),
    ZEL_TEXT("msg"), ZEL_TEXT("mod"), ZEL_TEXT("text"), ZEL_TEXT("vid"), ZEL_TEXT("bin")};

// What a record's header says of its origin.
inline constexpr TextView formatVersion = ZEL_TEXT("zel/1.3.0");
inline constexpr TextView detectionResponse = ZEL_TEXT("DETECTION_RESPONSE");
inline constexpr TextView fixedVersion = ZEL_TEXT("14.0.0000.1000");
inline constexpr TextView productName = ZEL_TEXT("ZELStore");
inline constexpr TextView productUid = ZEL_TEXT("6F3C1B52-0E4D-4B7A-9C58-2D1A7E90B364");
inline constexpr TextView featureUid = ZEL_TEXT("A94E0D17-5C82-4F3B-8B61-E07F4C2D9A15");

}  // namespace ZEL::Schema::carried
