// SPDX-License-Identifier: Apache-2.0
#include "tools/marlo_fw/run.h"

#include <new>

#include "tools/marlo_fw/json_output.h"
#include "tools/marlo_fw/options.h"
#include "tools/marlo_fw/text.h"
#include "tools/marlo_fw/text_output.h"

namespace marlo_fw {
namespace {

constexpr int kCannot = 2;
constexpr size_t kLongestProblem = 1000;  // it may name an argument as it was given

template <typename Result>
std::string output_of(const Result& result, const Options& options, bool in_colour) {
    return options.json ? written(json_of(result)) : text_of(result, in_colour);
}

Answer answer(const Options& options, bool in_colour) {
    switch (options.command) {
        case Command::kInspect: {
            const Inspection inspection = inspect(options.bundle);
            return {output_of(inspection, options, in_colour), "",
                    inspection.findings.total() == 0 ? 0 : 1};
        }
        case Command::kCompare: {
            const Comparison comparison =
                compare(options.bundle, options.apps, options.dsp, options.bt);
            return {output_of(comparison, options, in_colour), "",
                    comparison.updates || comparison.findings.total() != 0 ? 1 : 0};
        }
        case Command::kPatch: {
            const Patch result = patch(options.bundle, options.output);
            return {output_of(result, options, in_colour), "",
                    result.findings.total() == 0 ? 0 : 1};
        }
    }
    return {"", "", kCannot};
}

Answer refusal(const std::string& command, const std::string& problem, const std::string& next,
               bool json) {
    if (json) return {written(json_of_error(command, problem, next)), "", kCannot};
    const std::string who = "marlo-fw" + (command.empty() ? "" : " " + command);
    return {"", who + ": " + printable(problem, kLongestProblem) + "; " + next + "\n", kCannot};
}

}  // namespace

Answer run(int count, const char* const* arguments, bool in_colour) {
    const ParsedOptions parsed = parse_options(count, arguments);
    const Options& options = parsed.options;
    if (parsed.exit_status == 0) {
        return {options.json ? written(json_of_help(parsed.help)) : parsed.help, "", 0};
    }
    if (parsed.exit_status)
        return refusal(parsed.command, parsed.problem, parsed.next, options.json);
    const std::string command = command_name(options.command);
    try {
        return answer(options, in_colour);
    } catch (const Failure& failure) {
        return refusal(command, failure.what(), failure.next, options.json);
    } catch (const std::bad_alloc&) {
        return refusal(command, "no memory for " + in_quotes(options.bundle.directory),
                       "the daemon would have none either with as little; use a larger machine",
                       options.json);
    }
}

}  // namespace marlo_fw
