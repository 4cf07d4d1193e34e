// SPDX-License-Identifier: Apache-2.0
// marlo-fw: what the daemon makes of a directory of firmware images.
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <string_view>

#include "tools/marlo_fw/run.h"

namespace {

bool is_set(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr && *value != '\0';
}

bool may_colour() {
    const char* terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && !is_set("NO_COLOR") && terminal != nullptr &&
           std::string_view(terminal) != "dumb";
}

}  // namespace

int main(int count, char** arguments) {
    const marlo_fw::Answer answer = marlo_fw::run(count, arguments, may_colour());
    std::cerr << answer.error;
    std::cout << answer.output << std::flush;
    if (std::cout) return answer.exit_status;
    std::cerr << "marlo-fw: standard output cannot be written to\n";
    return 2;
}
