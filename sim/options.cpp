// SPDX-License-Identifier: Apache-2.0
#include "sim/options.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <map>
#include <utility>

#include "sim/fuse_mount.h"
#include "sim/shell_text.h"

namespace fs = std::filesystem;

namespace sim {
namespace {

// A fragment travels in one packet, behind its header and the three words that describe it.
constexpr uint32_t kFragmentHeader = 28;
constexpr uint32_t kLargestFragment = kLargestTransfer - kFragmentHeader;
constexpr uint64_t kHighestRate = 1'000'000'000'000;  // far above any flash, far below an overflow
constexpr unsigned kMostTimes = 1'000'000;
constexpr unsigned kMostDevices = 1000;  // what an ordinary machine takes in a minute or two
constexpr unsigned kLongestTimeout = 7 * 24 * 3600;  // seconds

// Beside this program, where an installation has it, else where the build tree has it.
fs::path default_daemon() {
    std::error_code ignored;
    const fs::path here = fs::read_symlink("/proc/self/exe", ignored).parent_path();
    for (const char* known : {"marlo_daemon", MARLO_SIM_INSTALLED_DAEMON}) {
        fs::path daemon = (here / known).lexically_normal();
        if (fs::exists(daemon, ignored)) return daemon;
    }
    return (here / MARLO_SIM_DAEMON).lexically_normal();
}

void add_fault(Options& options, const std::string& text) {
    try {
        options.faults.push_back(parse_fault(text));
    } catch (const FaultError& error) {
        throw CLI::ValidationError("--fault", error.what());
    }
}

void declare_common(CLI::App& app, Options& options) {
    app.add_option("--root", options.root, "Directory to use as the daemon's root")
        ->option_text("DIR");
    app.add_flag("--keep", options.keep, "Leave the root in place at the end");
    app.add_option("--daemon", options.daemon, "The daemon")->option_text("PATH");
    app.add_option("--transcript", options.transcript, "Write what happens, as lines of JSON")
        ->option_text("FILE");
    app.add_option("--capture", options.capture,
                   "Write all commands and packets, as a network analyser reads them (pcapng)")
        ->option_text("FILE");
    app.add_option("--report", options.report, "Write what happens, as a page for a browser")
        ->option_text("FILE");
    app.add_option("--trace", options.trace, "Write what happens, as a trace for a trace viewer")
        ->option_text("FILE");
    app.add_flag("--quiet", options.quiet, "Print the last line only");
}

// CLI11 takes -1 for the largest unsigned number.
std::string no_whole_number(const std::string& text) {
    const bool is_one = text.find_first_not_of("0123456789") == text.npos;
    return is_one ? "" : "\"" + text + "\" is no whole number from 0 on";
}

void declare_seed(CLI::App& app, Options& options) {
    app.add_option("--seed", options.seed, "What happens: the same for the same number (1)")
        ->check(CLI::Validator(no_whole_number, ""))
        ->option_text("NUMBER");
}

CLI::App& declare_trial(CLI::App& app, Options& options, const char* name, const char* what,
                        Mode mode) {
    CLI::App* trial = app.add_subcommand(name, what);
    trial->callback([&options, mode] { options.mode = mode; });
    declare_common(*trial, options);
    return *trial;
}

void declare_number(CLI::App& trial, const char* name, uint32_t& number, const char* what) {
    trial.add_option(name, number, what)->check(CLI::Range(1u, kMostTimes))->option_text("NUMBER");
}

void declare_trials(CLI::App& app, Options& options) {
    CLI::App& chaos = declare_trial(
        app, options, "chaos",
        "The daemon against a co-processor out of order, and at last one in order", Mode::kChaos);
    declare_seed(chaos, options);
    declare_number(chaos, "--seconds", options.seconds, "How long it is out of order (20)");
    chaos.add_option("--episodes", options.episodes, "How many it has, instead")
        ->check(CLI::Range(1u, kMostTimes))
        ->option_text("NUMBER");
    CLI::App& kill = declare_trial(
        app, options, "kill",
        "The daemon killed at random moments while it keeps the co-processor's memory",
        Mode::kKill);
    declare_seed(kill, options);
    declare_number(kill, "--times", options.times, "How often it is killed (100)");
    CLI::App& soak = declare_trial(
        app, options, "soak",
        "Restarts of the variant without flash, and what the daemon holds after them", Mode::kSoak);
    declare_number(soak, "--restarts", options.restarts, "How many (200)");
    CLI::App& idle = declare_trial(
        app, options, "idle", "What a daemon costs whose channel is broken for good", Mode::kIdle);
    declare_number(idle, "--seconds", options.idle_seconds,
                   "For how long each way of being broken is looked at (5)");
}

void declare(CLI::App& app, Options& options) {
    app.add_option("SCENARIO", options.scenario, "What happens; --list shows them")
        ->capture_default_str();
    app.add_option("--firmware", options.firmware, "Image directory to serve and to judge by")
        ->check(CLI::ExistingDirectory)
        ->option_text("DIR");
    app.add_option("--bt-firmware", options.bt_firmware,
                   "Directory with the misc data mrbtfw20.mbn and mrnv20.bin")
        ->check(CLI::ExistingDirectory)
        ->option_text("DIR");
    app.add_option("--payload-limit", options.payload_limit,
                   "Largest packet of misc data, its header of 16 bytes included (4096)")
        ->check(CLI::Range(uint32_t{17}, static_cast<uint32_t>(kLargestTransfer - 1)))
        ->option_text("BYTES");
    app.add_option("--fragment", options.fragment, "Bytes of an image asked for at a time (4096)")
        ->check(CLI::Range(uint32_t{1}, kLargestFragment))
        ->option_text("BYTES");
    app.add_option("--flash-rate", options.flash_rate, "Speed of the flash (as fast as it can be)")
        ->check(CLI::Range(uint64_t{1}, kHighestRate))
        ->option_text("BYTES_PER_S");
    app.add_option_function<std::vector<std::string>>(
           "--fault",
           [&options](const std::vector<std::string>& texts) {
               for (const std::string& text : texts) add_fault(options, text);
           },
           "Something that goes wrong; may be given several times, --list-faults shows them")
        ->allow_extra_args(false)
        ->option_text("NAME[@N][:VALUE]");
    app.add_option("--devices", options.devices,
                   "Run so many devices at once, each with a daemon of its own")
        ->check(CLI::Range(1u, kMostDevices))
        ->option_text("NUMBER");
    app.add_option("--timeout", options.timeout,
                   "Fail when nothing has moved on for so long, once the daemon has begun (60; "
                   "none with --no-daemon)")
        ->check(CLI::Range(1u, kLongestTimeout))
        ->option_text("SECONDS");
    app.add_flag("--list", options.list, "Show the scenarios");
    app.add_flag("--list-faults", options.list_faults, "Show the faults for --fault");
}

// Each would write over what the other has written.
void check_files(const Options& options) {
    const std::pair<const char*, const std::optional<fs::path>*> files[] = {
        {"--transcript", &options.transcript},
        {"--capture", &options.capture},
        {"--report", &options.report},
        {"--trace", &options.trace}};
    std::map<fs::path, std::string> taken;
    for (const auto& [name, file] : files) {
        if (!*file) continue;
        const fs::path place = fs::absolute(**file).lexically_normal();
        const auto [first, is_new] = taken.emplace(place, name);
        if (is_new) continue;
        throw CLI::ValidationError(first->second + " and " + name,
                                   (*file)->string() + " for both; give each a file of its own");
    }
}

// What is about one device or about a trial is refused for many.
void check_devices(const CLI::App& app, const Options& options) {
    if (!options.devices) return;
    const std::string devices = "--devices " + std::to_string(*options.devices);
    if (!app.get_subcommands().empty()) {
        throw CLI::ValidationError(devices, "not with the trial " +
                                                app.get_subcommands()[0]->get_name() +
                                                ": only a scenario runs on many devices");
    }
    for (const char* name : {"--capture", "--no-daemon", "--report", "--trace", "--transcript"}) {
        const CLI::Option* option = app.get_option_no_throw(name);
        if (!option || option->count() == 0) continue;
        throw CLI::ValidationError(
            devices, std::string("not with ") + name + ", which is for one device only");
    }
}

}  // namespace

ParsedOptions parse_options(int count, char** arguments) {
    ParsedOptions parsed;
    Options& options = parsed.options;
    options.daemon = default_daemon();
    if (count > 0) options.program = shell_word(arguments[0]);
    for (int index = 1; index < count; ++index) {
        options.command += (index > 1 ? " " : "") + shell_word(arguments[index]);
    }
    bool no_daemon = false;
    CLI::App app("Runs the daemon against a virtual co-processor and judges it.", "marlo-sim");
    declare_common(app, options);
    declare(app, options);
    declare_trials(app, options);
    app.add_flag("--no-daemon", no_daemon,
                 "Print the line that starts the daemon, and wait for it");
    app.set_version_flag("--version", "marlo-sim " MARLO_VERSION, "Print the version");
    app.require_subcommand(0, 1);
    try {
        app.parse(count, arguments);
        if (!app.get_subcommands().empty() && app.count("SCENARIO") != 0) {
            throw CLI::ValidationError(
                options.scenario + " " + app.get_subcommands()[0]->get_name(),
                "a scenario or a trial, not both");
        }
        check_devices(app, options);
        check_files(options);
        options.start_daemon = !no_daemon;
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) std::cerr << "marlo-sim: ";
        parsed.exit_status = app.exit(error) == 0 ? 0 : 2;
    }
    return parsed;
}

}  // namespace sim
