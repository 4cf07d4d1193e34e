// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace bench {

// Answers fragments on standard input, a socket, with bench/fragment_server.h's server of this name
// ("daemon", "bare"), until what writes to standard output has gone: what `instructions` counts in.
// The exit status. Throws std::runtime_error.
int serve_standard_input(const char* server, int log_level);

}  // namespace bench
