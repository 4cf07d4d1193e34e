// SPDX-License-Identifier: Apache-2.0
// Runs inputs through a fuzz target where libFuzzer does not: the seeds, as a test in each preset,
// or a finding under a debugger. Arguments: files, and directories whose files are all run.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/harness.h"

namespace {

namespace fs = std::filesystem;

bool run_file(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    if (!file.is_open() || file.bad()) {
        fprintf(stderr, "%s cannot be read\n", path.c_str());
        return false;
    }
    printf("%s: %zu bytes\n", path.c_str(), bytes.size());
    fflush(stdout);  // names the input that crashes
    fuzz::ExactCopy input({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
    LLVMFuzzerTestOneInput(input.data(), input.size());
    return true;
}

// How many files were run; -1 where one cannot be read.
int run_all(const fs::path& path) {
    if (!fs::is_directory(path)) {
        return run_file(path) ? 1 : -1;
    }
    int count = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(path)) {
        if (!run_file(entry.path())) {
            return -1;
        }
        ++count;
    }
    return count;
}

}  // namespace

int main(int argument_count, char** arguments) {
    int runs = 0;
    for (int index = 1; index < argument_count; ++index) {
        const int count = run_all(arguments[index]);
        if (count < 0) {
            return 1;
        }
        runs += count;
    }
    printf("%d inputs\n", runs);
    if (runs == 0) {
        fprintf(stderr, "no input in the arguments\n");
        return 1;
    }
    return 0;
}
