// SPDX-License-Identifier: Apache-2.0
#include "tools/marlo_fw/compare.h"

#include <cstring>

#include "fwupdater/version_match.h"
#include "tools/marlo_fw/inspect.h"

namespace marlo_fw {
namespace {

template <size_t kSize>
void store(char (&field)[kSize], const std::string& version) {
    std::memset(field, 0, kSize);
    version.copy(field, kSize - 1);
}

const char* name_of_test(VersionMismatch test) {
    switch (test) {
        case VersionMismatch::apps:
            return "apps";
        case VersionMismatch::bt:
            return "bt";
        case VersionMismatch::dsp:
            return "dsp";
        case VersionMismatch::none:
            break;
    }
    return "";
}

void fill_outcomes(Comparison& result) {
    bool is_decided = false;
    for (VersionTest& test : result.tests) {
        const bool fails = test.name == result.decided_by;
        const bool is_skipped = test.running.empty() && test.name != "apps";
        test.outcome = is_decided   ? "not-reached"
                       : fails      ? "mismatch"
                       : is_skipped ? "skipped"
                                    : "match";
        is_decided = is_decided || fails;
    }
}

}  // namespace

Comparison compare(const Bundle& bundle, const std::string& apps, const std::string& dsp,
                   const std::string& bt) {
    check_directory(bundle.directory);
    aim_at(bundle);
    Comparison result;
    result.bundle = bundle;
    DaemonRun run;
    result.versions = check_versions(run, result.findings);
    const marlo_meta_info& shipped = result.versions.shipped;
    wear_firmware_info_t running = {};
    store(running.apps_version, apps);
    store(running.dsp_version, dsp);
    store(running.bt_version, bt);
    result.updates = run.updater().fw_version_check(&running) < 0;
    for (const std::string& line : complaints(take_daemon_log())) result.log = line;
    result.is_without_flash = run.updater().is_psram_noflash(&running) == 0;
    result.decided_by = name_of_test(first_mismatch(running, shipped));
    result.tests = {{"apps", apps, shipped.apps_cochip, ""},
                    {"bt", bt, shipped.btfw_cochip, ""},
                    {"dsp", dsp, shipped.dsp_cochip, ""}};
    fill_outcomes(result);
    return result;
}

}  // namespace marlo_fw
