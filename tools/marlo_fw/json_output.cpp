// SPDX-License-Identifier: Apache-2.0
#include "tools/marlo_fw/json_output.h"

namespace marlo_fw {
namespace {

Json or_null(const std::string& text) {
    return text.empty() ? Json(nullptr) : Json(text);
}

Json json_of(const Findings& findings) {
    Json list = Json::array();
    for (const Finding& finding : findings.kept()) {
        list.push_back({{"area", area_name(finding.area)},
                        {"code", finding.code},
                        {"element", finding.element},
                        {"value", finding.value},
                        {"consequence", finding.consequence},
                        {"log", finding.log}});
    }
    return list;
}

Json beginning(const char* command, const char* status, const Bundle& bundle) {
    return {{"command", command}, {"status", status}, {"directory", bundle.directory}};
}

void add_findings(Json& value, const Findings& findings) {
    value["findings_total"] = findings.total();
    value["findings"] = json_of(findings);
}

const char* status_of(const Findings& findings) {
    return findings.total() == 0 ? "clean" : "findings";
}

Json json_of(const ImageRow& row) {
    Json image = {{"id", row.id}, {"name", row.name}};
    image["flash"] =
        row.is_fixed ? Json(nullptr) : Json{{"offset", row.offset}, {"size", row.size}};
    image["erased"] = row.is_erased;
    image["file"] = or_null(row.file);
    image["bytes"] = row.file.empty() ? Json(nullptr) : Json(row.bytes);
    image["crc32"] = row.file.empty() ? Json(nullptr) : Json(row.crc);
    image["served"] = row.is_served;
    return image;
}

Json json_of(const Versions& versions) {
    return {{"file", or_null(versions.file)},
            {"apps_cochip", versions.shipped.apps_cochip},
            {"dsp_cochip", versions.shipped.dsp_cochip},
            {"btfw_cochip", versions.shipped.btfw_cochip}};
}

Json json_of(const PlatformFacts& facts) {
    return {{"platform", facts.platform}, {"subtype", facts.subtype}, {"dload", facts.dload}};
}

Json json_of(const std::optional<BootLoader>& loader) {
    if (!loader) return nullptr;
    const platform_info& info = loader->written;
    Json value = {{"found", loader->found}, {"offset", loader->offset}};
    value["bits"] = loader->found ? Json(loader->is_64_bit ? 64 : 32) : Json(nullptr);
    value["blocks"] = loader->blocks;
    value["block"] = {{"debug_policy", info.debug_policy},
                      {"platform_id", info.platform_id},
                      {"major_id", info.major_id},
                      {"minor_id", info.minor_id},
                      {"sub_type", info.sub_type}};
    return value;
}

}  // namespace

Json json_of(const Inspection& inspection) {
    Json value = beginning("inspect", status_of(inspection.findings), inspection.bundle);
    value["platform"] = json_of(inspection.bundle.facts);
    value["images"] = Json::array();
    for (const ImageRow& row : inspection.images) value["images"].push_back(json_of(row));
    value["bytes_erased"] = inspection.bytes_erased;
    value["update_begins"] = inspection.update_begins;
    value["boot_loader"] = json_of(inspection.boot_loader);
    value["flash_file_crc32"] =
        inspection.flash_file_crc ? Json(*inspection.flash_file_crc) : Json(nullptr);
    value["versions"] = json_of(inspection.versions);
    add_findings(value, inspection.findings);
    return value;
}

Json json_of(const Comparison& comparison) {
    Json value =
        beginning("compare", comparison.updates ? "update" : "no-update", comparison.bundle);
    value["decided_by"] = or_null(comparison.decided_by);
    value["variant_without_flash"] = comparison.is_without_flash;
    value["tests"] = Json::array();
    for (const VersionTest& test : comparison.tests) {
        value["tests"].push_back({{"name", test.name},
                                  {"running", test.running},
                                  {"shipped", test.shipped},
                                  {"outcome", test.outcome}});
    }
    value["log"] = comparison.log;
    value["versions"] = json_of(comparison.versions);
    add_findings(value, comparison.findings);
    return value;
}

Json json_of(const Patch& patch) {
    Json value = beginning("patch", status_of(patch.findings), patch.inspection.bundle);
    value["platform"] = json_of(patch.inspection.bundle.facts);
    value["boot_loader"] = json_of(patch.inspection.boot_loader);
    value["output"] = {{"file", patch.output}, {"bytes", patch.bytes}, {"crc32", patch.crc}};
    add_findings(value, patch.findings);
    return value;
}

Json json_of_error(const std::string& command, const std::string& problem,
                   const std::string& next) {
    Json value;
    value["command"] = or_null(command);
    value["status"] = "error";
    value["problem"] = problem;
    value["next"] = next;
    return value;
}

Json json_of_help(const std::string& text) {
    Json value;
    value["status"] = "help";
    value["text"] = text;
    return value;
}

std::string written(const Json& value) {
    return value.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace marlo_fw
