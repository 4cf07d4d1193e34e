// SPDX-License-Identifier: Apache-2.0
// marlo-bench: measures, and prints one table.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/groups.h"
#include "bench/instructions.h"

namespace {

struct Group {
    const char* name;
    bench::Figures (*measure)(const bench::Effort&);
};
// The footprint first, while this process is small: the daemon is forked from it.
constexpr Group kGroups[] = {
    {"footprint", bench::footprint},
    {"loading", bench::loading},
    {"crc", bench::crc},
    {"session", bench::session},
    {"fuse", bench::fuse},
    {"instructions", bench::instructions},
    {"growth", bench::growth},
    {"peers", bench::peers},
    {"rma", bench::rma},
};

bool is_asked_for(const Group& group, const std::vector<std::string>& names) {
    return names.empty() || std::find(names.begin(), names.end(), group.name) != names.end();
}

bench::Figures measure(const std::vector<std::string>& names, const bench::Effort& effort) {
    bench::Figures all;
    for (const Group& group : kGroups) {
        if (is_asked_for(group, names)) {
            std::fprintf(stderr, "measuring %s\n", group.name);
            const bench::Figures found = group.measure(effort);
            all.insert(all.end(), found.begin(), found.end());
        }
    }
    return all;
}

void write_file(const std::string& path, const std::string& text) {
    std::ofstream file(path);
    file << text;
    file.close();
    if (!file) {
        throw std::runtime_error(path + " cannot be written");
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> known;
    for (const Group& group : kGroups) {
        known.emplace_back(group.name);
    }
    CLI::App app("Measures the daemon beside what else people use, and prints one table.");
    std::vector<std::string> names;
    std::string json_path;
    bench::Effort effort;
    app.add_option("GROUP", names, "what to measure; everything unless given")
        ->check(CLI::IsMember(known));
    app.add_option("--json", json_path, "write the figures to FILE as well")->type_name("FILE");
    app.add_option("--rounds", effort.rounds, "rounds of which the median counts")
        ->check(CLI::Range(1, 1001));
    app.add_flag("--quick", effort.is_quick, "one round of small sizes: only shows that it works");
    std::string server;
    int server_log_level = 1;
    // For the group `instructions`, which starts this program again.
    app.add_option("--serve", server)->check(CLI::IsMember({"daemon", "bare"}))->group("");
    app.add_option("--serve-log-level", server_log_level)->group("");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    if (effort.is_quick) {
        effort.rounds = 1;
    }
    try {
        if (!server.empty()) {
            return bench::serve_standard_input(server.c_str(), server_log_level);
        }
        const bench::Figures figures = measure(names, effort);
        std::fputs(bench::table_of(figures).c_str(), stdout);
        if (!json_path.empty()) {
            write_file(json_path, bench::json_of(figures));
        }
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "marlo-bench: %s\n", failure.what());
        return 1;
    }
    return 0;
}
