// SPDX-License-Identifier: Apache-2.0
#include "tools/marlo_fw/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "comhandler/wear_firmware_info.h"
#include "tools/marlo_fw/text.h"

namespace marlo_fw {
namespace {

constexpr unsigned kHighestSubtype = 99;  // the daemon reads two digits
constexpr size_t kLongestVersion = sizeof(wear_firmware_info_t::apps_version) - 1;

std::string too_long(const std::string& version) {
    if (version.size() <= kLongestVersion) return "";
    return in_quotes(version) + " has " + std::to_string(version.size()) +
           " bytes, more than the " + std::to_string(kLongestVersion) + " that one can have";
}

std::string no_file(const std::string& name) {
    return name.empty() ? "an empty text names no file" : "";
}

// CLI11 takes -1 for the largest unsigned number, and 010 for 8.
std::string no_subtype(const std::string& text) {
    const bool is_number =
        !text.empty() && text.size() <= 2 && text.find_first_not_of("0123456789") == text.npos;
    return is_number
               ? ""
               : in_quotes(text) + " is no number from 0 to " + std::to_string(kHighestSubtype);
}

CLI::App& declare_command(CLI::App& app, Options& options, Command command, const char* what) {
    CLI::App* declared = app.add_subcommand(command_name(command), what);
    declared->callback([&options, command] { options.command = command; });
    declared->add_option("DIR", options.bundle.directory, "The image directory")->required();
    declared
        ->add_option(
            "--verinfo", options.bundle.fallback_version_file,
            "The version file that is read where DIR has none (DIR/../verinfo/ver_info.txt)")
        ->check(CLI::Validator(no_file, ""))
        ->option_text("FILE");
    declared->add_flag("--json", options.json, "Standard output is JSON alone");
    return *declared;
}

void declare_platform(CLI::App& command, PlatformFacts& facts, bool is_required) {
    const auto declare = [&](const char* name, auto& value, const char* what, const char* usual) {
        const std::string unless_given = is_required ? "" : " (" + std::string(usual) + ")";
        return command.add_option(name, value, what + unless_given)->required(is_required);
    };
    declare("--platform", facts.platform, "The device's hardware platform", "IDP")
        ->check(CLI::IsMember({"IDP", "WDP"}))
        ->option_text("IDP|WDP");
    declare("--subtype", facts.subtype, "Its platform subtype, 0 to 99", "0")
        ->check(CLI::Validator(no_subtype, ""))
        ->option_text("NUMBER");
    declare("--dload", facts.dload, "The memory dumps that it takes", "full")
        ->check(CLI::IsMember({"full", "mini"}))
        ->option_text("full|mini");
}

void declare_versions(CLI::App& command, Options& options) {
    const auto declare = [&](const char* name, std::string& version, const char* what) {
        command.add_option(name, version, what)
            ->required()
            ->check(CLI::Validator(too_long, ""))
            ->option_text("TEXT");
    };
    declare("--apps", options.apps, "The application version that the co-processor reports");
    declare("--dsp", options.dsp, "The DSP version; \"\" where it reports none");
    declare("--bt", options.bt, "The Bluetooth version; \"\" where it reports none");
}

void declare(CLI::App& app, Options& options) {
    CLI::App& inspect = declare_command(
        app, options, Command::kInspect,
        "What the daemon would load, erase and serve: 0 clean, 1 findings, 2 not to be told");
    declare_platform(inspect, options.bundle.facts, false);
    CLI::App& compare = declare_command(
        app, options, Command::kCompare,
        "Whether the daemon would update such a co-processor: 0 no, 1 yes or findings, 2 not to be "
        "told");
    declare_versions(compare, options);
    CLI::App& patch = declare_command(
        app, options, Command::kPatch,
        "Write the flash image as it is served: 0 clean, 1 findings, 2 not written");
    declare_platform(patch, options.bundle.facts, true);
    patch.add_option("-o,--output", options.output, "Where to write it")
        ->required()
        ->check(CLI::Validator(no_file, ""))
        ->option_text("FILE");
    app.require_subcommand(1);
}

// The option counts wherever it stands, also among arguments that are wrong.
bool asks_for_json(int count, const char* const* arguments) {
    for (int index = 1; index < count; ++index) {
        const std::string_view argument = arguments[index];
        if (argument == "--") return false;
        if (argument == "--json") return true;
    }
    return false;
}

bool takes_value(const CLI::App& app, const std::string& name) {
    const auto commands = app.get_subcommands({});
    return std::any_of(commands.begin(), commands.end(), [&](const CLI::App* command) {
        const CLI::Option* option = command->get_option_no_throw(name);
        return option != nullptr && option->get_items_expected_max() > 0;
    });
}

// CLI11 overlooks the empty value of "--dsp=" and takes the next argument for it. Given apart, the
// value is seen.
std::vector<std::string> with_values_apart(const CLI::App& app, int count,
                                           const char* const* arguments) {
    std::vector<std::string> apart;
    bool is_behind_options = false;
    for (int index = 1; index < count; ++index) {
        const std::string_view argument = arguments[index];
        is_behind_options = is_behind_options || argument == "--";
        const std::string name(argument.substr(0, argument.find('=')));
        const bool is_empty = !is_behind_options && argument.starts_with("--") &&
                              argument.size() == name.size() + 1 && takes_value(app, name);
        apart.emplace_back(is_empty ? name : argument);
        if (is_empty) apart.emplace_back();
    }
    return apart;
}

}  // namespace

const char* command_name(Command command) {
    switch (command) {
        case Command::kInspect:
            return "inspect";
        case Command::kCompare:
            return "compare";
        case Command::kPatch:
            return "patch";
    }
    return "";
}

ParsedOptions parse_options(int count, const char* const* arguments) {
    ParsedOptions parsed;
    Options& options = parsed.options;
    CLI::App app("Tells what the daemon makes of a directory of firmware images.", "marlo-fw");
    declare(app, options);
    app.set_version_flag("--version", "marlo-fw " MARLO_VERSION, "Print the version");
    try {
        std::vector<std::string> apart = with_values_apart(app, count, arguments);
        std::reverse(apart.begin(), apart.end());  // as CLI11 wants them
        app.parse(std::move(apart));
    } catch (const CLI::CallForVersion& version) {
        parsed.exit_status = 0;
        parsed.help = version.what() + std::string("\n");
    } catch (const CLI::Success&) {
        parsed.exit_status = 0;
        const auto named = app.get_subcommands();
        parsed.help = (named.empty() ? &app : named[0])->help();
    } catch (const CLI::ParseError& error) {
        parsed.exit_status = 2;
        parsed.problem = error.what();
        if (app.get_subcommands().empty() && count > 1 && arguments[1][0] != '-') {
            parsed.problem = in_quotes(arguments[1]) + " is no command";
        }
        const auto named = app.get_subcommands();
        if (!named.empty()) parsed.command = named[0]->get_name();
        parsed.next =
            "see marlo-fw " + (named.empty() ? "" : named[0]->get_name() + " ") + "--help";
    }
    options.json = asks_for_json(count, arguments);
    if (options.bundle.fallback_version_file.empty()) {
        options.bundle.fallback_version_file =
            options.bundle.directory + "/../verinfo/ver_info.txt";
    }
    return parsed;
}

}  // namespace marlo_fw
