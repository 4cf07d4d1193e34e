// SPDX-License-Identifier: Apache-2.0
// To add a scenario: add a row to one of the tables. A new property, file or fault that it starts
// with belongs to Start, a new word of a step to Judge::event.
#include <chrono>
#include <initializer_list>
#include <utility>

#include "sim/scenario.h"

namespace sim {

namespace {

using namespace std::chrono_literals;

using Steps = std::vector<Step>;

constexpr const char* kPresence = "ro.vendor.zt_aon_presence";
constexpr const char* kUpdateDone = "persist.vendor.zt_aon.dfu_update";
constexpr const char* kMiscPushed = "vendor.zt_aon.misc_update";
constexpr const char* kReset = "vendor.marlo_reset";

const std::map<std::string, std::string> kNewDevice = {{kPresence, "1"}};
const std::map<std::string, std::string> kPushedBefore = {{kPresence, "1"}, {kMiscPushed, "1"}};
const std::map<std::string, std::string> kUpdatedBefore = {{kPresence, "1"}, {kUpdateDone, "1"}};

Steps course(std::initializer_list<Steps> parts) {
    Steps steps;
    for (const Steps& part : parts) steps.insert(steps.end(), part.begin(), part.end());
    return steps;
}

const Steps kAskFlash = {"get boot mode FLASH"};
const Steps kAskHost = {"get boot mode HOST"};
const Steps kLoad = {"SPI busy", "load", "SPI free"};
const Steps kLoadFails = {"SPI busy", "load fails"};
const Steps kBootComplete = {"vendor.marlo.boot_complete=1", "query version"};
const Steps kReportReady = {"boot status 1"};
const Steps kSwitchToHost = {"set boot mode HOST", "unload", "SPI busy", "soft reset", "load"};
const Steps kSessionBegins = {"state INIT", "session begins", "persist.vendor.zt_aon.dfu_update=0"};
const Steps kSessionEnds = {"session ends", "persist.vendor.zt_aon.dfu_update=1"};
const Steps kDownload = course({kSessionBegins, kSessionEnds});
const Steps kSwitchToFlash = {
    "set boot mode FLASH",          "unload",   "SPI busy",     "soft reset", "load",
    "vendor.marlo.boot_complete=1", "SPI free", "boot status 1"};
const Steps kRestart = {Restart{300ms}, "vendor.marlo.boot_complete=0",
                        "vendor.marlo.boot_complete=1"};

// The channel is announced as awaited, then the transfer begins.
const Steps kPushMiscData = {"boot status 2", "vendor.zt_aon.misc_update=0",
                             "boot status 2", "vendor.zt_aon.misc_update=0",
                             "misc begins",   "misc ends"};
const Steps kServeMemory = {"rma opened", "rma begins", "rma half", "rma ends"};
const Steps kHostBoot = course({kAskHost, kLoad, kAskHost, kBootComplete, kReportReady});
// After a restart the transport of before reopens the channel by itself, on its own thread, and is
// then replaced.
const Steps kReopenAndReplace = {Step::early("rma opened"), "rma opened"};

Start new_device_with(std::vector<FaultRequest> faults) {
    return {.properties = kNewDevice, .faults = std::move(faults)};
}

Start no_flash(std::map<std::string, std::string> properties, std::vector<FaultRequest> faults = {},
               RmaLength rma = RmaLength::kShort) {
    return {.properties = std::move(properties),
            .boot_mode = kHostMode,
            .firmware = RunningFirmware::kNoFlash,
            .faults = std::move(faults),
            .rma = rma};
}

// An update with something in between.
Steps update_with(const Steps& steps) {
    return course({kAskFlash, kSwitchToHost, kSessionBegins, steps, kSessionEnds, kSwitchToFlash});
}
const Steps kUpdate = course({kSwitchToHost, kDownload, kSwitchToFlash});
const Steps kFlashBoot = course({kAskFlash, kLoad, kAskFlash, kBootComplete, kReportReady});

const End kRunsFlash = {.boot_status = 1};
const End kRunsNewFlash = {.boot_status = 1, .flash_written = true};
// A completed transfer of misc data is not reported as a boot status of its own.
const End kServed = {.boot_mode = kHostMode,
                     .boot_status = 2,
                     .rma_channel_open = true,
                     .misc_data = true,
                     .backing_files = true};
const End kServedBefore = {
    .boot_mode = kHostMode, .boot_status = 1, .rma_channel_open = true, .backing_files = true};
const End kNeverStarted = {.running = false};
// The download owns the bus and has not given it back.
const End kLeftInHostMode = {.boot_mode = kHostMode, .spi_busy = true};

std::vector<Scenario> boots() {
    return {
        {.name = "update",
         .description = "never updated before: download, then FLASH mode",
         .start = {.properties = kNewDevice},
         .steps = course({kAskFlash, kUpdate}),
         .logs = {"zt_aon.dfu_update is 0, do fW_update",
                  "### Marlo Firmware Update finished. ###"},
         .end = kRunsNewFlash},
        {.name = "current",
         .description = "updated before and the versions match: no download",
         .start = {.properties = kUpdatedBefore},
         .steps = kFlashBoot,
         .logs = {"Marlo firmware versions are MATHCHED, skip fw_update"},
         .end = kRunsFlash},
        {.name = "mismatch",
         .description = "already running, updated before, other versions: download",
         .start = {.properties = kUpdatedBefore,
                   .running = true,
                   .firmware = RunningFirmware::kOther},
         .steps = course({kAskFlash, kAskFlash, kBootComplete, kUpdate}),
         .logs = {"Version mis-match, switch2HOST, do fW_update"},
         .end = kRunsNewFlash},
        {.name = "host",
         .description = "boots in HOST mode by itself: no download",
         .start = {.properties = kNewDevice, .boot_mode = kHostMode},
         .steps = kHostBoot,
         .logs = {"Marlo boot complete in HOST Mode!"},
         .end = {.boot_mode = kHostMode, .boot_status = 1}},
        {.name = "fallback",
         .description = "the firmware in flash does not load: HOST mode, download, FLASH mode",
         .start = {.properties = kUpdatedBefore, .faults = {{Fault::kFlashFirmwareDamaged}}},
         .steps = course(
             {kAskFlash,
              kLoadFails,
              kAskFlash,
              {"set boot mode HOST", "reset", "load", "vendor.marlo.boot_complete=1", "SPI free"},
              kDownload,
              kSwitchToFlash}),
         .logs = {"Fallback: Marlo boot complete in Host Mode, try DFU"},
         .end = kRunsNewFlash},
        {.name = "boot-failure",
         .description = "loads neither in FLASH nor in HOST mode",
         .start = {.properties = kUpdatedBefore, .faults = {{Fault::kLoadFails}}},
         .steps = course(
             {kAskFlash, kLoadFails, kAskFlash, {"set boot mode HOST", "reset", "load fails"}}),
         .logs = {"Marlo boot fail even on fallback to host from flash"},
         .end = {.boot_mode = kHostMode, .running = false, .spi_busy = true}},
        {.name = "unsupported",
         .description = "platform subtype 1: the co-processor is left alone",
         .start = {.properties = kNewDevice, .platform = {.platform_subtype = "1\n"}},
         .steps = {},
         .logs = {"platform subtype: -19 is not supported, skip marlo PIL"},
         .end = kNeverStarted},
        {.name = "twm-exit",
         .description = "the power chip reports a TWM exit: dump saved, then a normal boot",
         .start = {.properties = kUpdatedBefore, .twm_exit = "1\n"},
         .steps = course({{"persist.vendor.ssr.enable_ramdumps=1", "TWM exit", "save dump",
                           "persist.vendor.ssr.enable_ramdumps=0"},
                          kFlashBoot}),
         .logs = {"TWM/RTOS exit,PIL will save dump only if it is crash"},
         .end = kRunsFlash},
        {.name = "reset",
         .description = "after the boot somebody asks for a reset: exactly one",
         .start = {.properties = kUpdatedBefore},
         .steps =
             course({kFlashBoot, {PropertyChange{kReset, "1"}, "reset", "vendor.marlo_reset=0"}}),
         .logs = {"***** Marlo Reset Start *****"},
         .end = kRunsFlash,
         .settle = 2300ms},
        {.name = "version-late",
         .description = "the version query is answered on its fifth try",
         .start = {.properties = kUpdatedBefore,
                   .faults = first_occasions(Fault::kVersionQueryFails, 4)},
         .steps = course({kAskFlash,
                          kLoad,
                          kAskFlash,
                          {"vendor.marlo.boot_complete=1"},
                          Steps(4, "query version fails"),
                          {"query version"},
                          kReportReady}),
         .logs = {"Marlo boot done, but get version fail-retry:4"},
         .end = kRunsFlash},
        {.name = "version-never",
         .description = "the version query fails each time: the old firmware goes on running",
         .start = {.properties = kUpdatedBefore, .faults = {{Fault::kVersionQueryFails}}},
         .steps = course({kAskFlash,
                          kLoad,
                          kAskFlash,
                          {"vendor.marlo.boot_complete=1"},
                          Steps(14, "query version fails"),
                          kReportReady}),
         .logs = {"failed to get fw version! after re-tries, marlo is running with old firmware"},
         .end = kRunsFlash},
        {.name = "absent",
         .description = "no co-processor: the daemon ends with -19",
         .start = {.properties = {{kPresence, "0"}}},
         .steps = {"exit 237"},
         .logs = {"ZT AON not present: Do not perform PIL"},
         .end = kNeverStarted,
         .settle = 0ms},
    };
}

std::vector<Scenario> odd_downloads() {
    return {
        {.name = "resume",
         .description = "the channel hangs up in the middle of an image: the download goes on",
         .start = new_device_with({{Fault::kHangUpAtFragment, 3}}),
         .steps = update_with({"state OFFSET_REQ"}),
         .logs = {"POLLHUP event is received, AON CLIENT SSR occured"},
         .end = kRunsNewFlash},
        {.name = "resume-info",
         .description =
             "hang-up with an image's size asked for; the channel is away for half a second",
         .start = new_device_with({{Fault::kHangUpAtInfo, 2, 500}}),
         .steps = update_with({"state INFO_REQ"}),
         .logs = {"glink_pkt_marlo_dfu failed with errno = 19"},
         .end = kRunsNewFlash},
        {.name = "resume-end",
         .description = "hang-up when all is written and the session about to end",
         .start = new_device_with({{Fault::kHangUpAtSessionEnd, 1}}),
         .steps = update_with({"state SESSION_END_REQ"}),
         .logs = {"### Marlo Firmware Update finished. ###"},
         .end = kRunsNewFlash},
        {.name = "erase-failure",
         .description = "no partition can be erased at the daemon's request: the download goes on",
         .start = new_device_with({{Fault::kEraseFails}}),
         .steps = update_with({}),
         .logs = {"### Marlo Firmware Update finished. ###"},
         .end = kRunsNewFlash},
        {.name = "unknown-image",
         .description = "an image is asked for that there is none of: size 0, and on with the next",
         .start = new_device_with({{Fault::kUnknownImage, 1}}),
         .steps = update_with({"unknown image"}),
         .logs = {"sendmarloImageInfoRes 99"},
         .end = kRunsNewFlash},
    };
}

std::vector<Scenario> failing_downloads() {
    return {
        {.name = "state-failure",
         .description = "the co-processor refuses to tell its state: no download",
         .start = new_device_with({{Fault::kStateQueryFails}}),
         .steps = course({kAskFlash, kSwitchToHost, {"state refused"}}),
         .logs = {"handleDFUResponse: Get Marlo DFU State Failed."},
         .end = kLeftInHostMode},
        {.name = "cancel",
         .description = "the co-processor cancels in the middle of an image",
         .start = new_device_with({{Fault::kCancel, 3}}),
         .steps =
             course({kAskFlash,
                     kSwitchToHost,
                     kSessionBegins,
                     {"session cancelled", Restart{300ms, 1s}, "vendor.marlo.boot_complete=0",
                      "vendor.marlo.boot_complete=1", Step::early("state CANCEL_UPDATE_REQ")}}),
         .logs = {"handleDFUResponse: Received CANCEL_UPDT_REQ"},
         .end = kLeftInHostMode},
        {.name = "no-channel",
         .description = "the download's channel is missing: HOST mode, boot status 1",
         .start = new_device_with({{Fault::kDfuChannelMissing}}),
         .steps = course({kAskFlash, kSwitchToHost, kReportReady}),
         .logs = {"handleDFUResponse: Marlo dfu channel open failed",
                  "handleDFUResponse: MarloDownloader END"},
         .end = {.boot_mode = kHostMode, .spi_busy = true, .boot_status = 1}},
        {.name = "no-flash-image",
         .description = "flash.bin is missing: no download",
         .start = {.properties = kNewDevice, .flash_image = false},
         .steps = course({kAskFlash, kSwitchToHost, {"state INIT"}}),
         .logs = {"handleDFUResponse: AON Flash bin file is empty or not present"},
         .end = kLeftInHostMode},
    };
}

std::vector<Scenario> variant_without_flash() {
    return {
        {.name = "noflash",
         .description = "the variant without flash: misc data is pushed, then its memory served",
         .start = no_flash(kNewDevice),
         .steps = course({kHostBoot, kPushMiscData, kServeMemory}),
         .logs = {"found NOFLASH_PSRAM AON, do misc_data_fW_update",
                  "handleSHMResponse: Marlo Misc Data Resources Update Done"},
         .end = kServed},
        {.name = "noflash-done",
         .description = "the variant without flash has its misc data: its memory is served",
         .start = no_flash(kPushedBefore),
         .steps = course({kHostBoot, kServeMemory}),
         .logs = {"starting rma connection"},
         .end = kServedBefore},
        {.name = "restart",
         .description = "two restarts of the variant without flash: misc data again each time",
         .start = no_flash(kNewDevice),
         .steps = course({kHostBoot,
                          kPushMiscData,
                          {"rma opened", "rma begins", "rma half"},
                          kRestart,
                          kPushMiscData,
                          kReopenAndReplace,
                          {Step::early("rma ends")},
                          // From the second on the restart takes back that it was pushed.
                          {Restart{300ms}, "vendor.marlo.boot_complete=0",
                           "vendor.zt_aon.misc_update=0", "vendor.marlo.boot_complete=1"},
                          kPushMiscData,
                          kReopenAndReplace}),
         .logs = {"marlo is power down", "marlo is powered up"},
         .end = kServed},
        {.name = "rma",
         .description =
             "the memory of the variant without flash, at length, with a restart halfway",
         .start = no_flash(kPushedBefore, {}, RmaLength::kLong),
         .steps = course({kHostBoot,
                          {"rma opened", "rma begins", "rma half"},
                          kRestart,
                          kReopenAndReplace,
                          {"rma ends"}}),
         .logs = {"marlo is powered up"},
         .end = kServedBefore},
        {.name = "misc-retry",
         .description = "misc data is refused twice and taken the third time",
         .start =
             no_flash(kNewDevice, {{Fault::kMiscStartRefused, 1}, {Fault::kMiscCrcRefused, 1}}),
         .steps = course({kHostBoot, kPushMiscData, kServeMemory}),
         .logs = {"send_start_data_buffer failed with : 1", "send_crc_data_buffer failed with: 1"},
         .end = kServed},
        {.name = "misc-failure",
         .description = "misc data is never taken: the memory is served all the same",
         .start = no_flash(kNewDevice, {{Fault::kMiscCrcRefused}}),
         .steps = course({kHostBoot,
                          {"boot status 2", "vendor.zt_aon.misc_update=0", "boot status 2",
                           "vendor.zt_aon.misc_update=0", "misc begins"},
                          kServeMemory}),
         .logs = {"handleSHMResponse: ### Marlo Misc Data Resources Update Failed. ###"},
         .end = {.boot_mode = kHostMode,
                 .boot_status = 2,
                 .rma_channel_open = true,
                 .backing_files = true}},
    };
}

}  // namespace

const std::vector<Scenario>& all_scenarios() {
    static const std::vector<Scenario> scenarios = [] {
        std::vector<Scenario> all;
        for (const auto& part :
             {boots(), odd_downloads(), failing_downloads(), variant_without_flash()}) {
            all.insert(all.end(), part.begin(), part.end());
        }
        return all;
    }();
    return scenarios;
}

const Scenario* find_scenario(std::string_view name) {
    for (const Scenario& scenario : all_scenarios()) {
        if (scenario.name == name) return &scenario;
    }
    return nullptr;
}

}  // namespace sim
