// SPDX-License-Identifier: Apache-2.0
// The checksum of a short message, of a fragment and of a long message, in cache: Google Benchmark
// runs them. And the instructions that it takes on a 32-bit ARM processor.
#include <benchmark/benchmark.h>
#include <libdeflate.h>
#include <sys/wait.h>
#include <zlib.h>

#include <cstdio>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/groups.h"
#include "wire/crc32.h"
#include "wire/crc32_paths.h"

namespace bench {
namespace {

using Message = std::span<const uint8_t>;

constexpr size_t kShort = 28;       // a request
constexpr size_t kFragment = 4124;  // 4 KiB with the header before them
constexpr size_t kLong = 1 << 20;

uint32_t by_zlib(Message message) {
    return static_cast<uint32_t>(::crc32(0, message.data(), static_cast<uInt>(message.size())));
}

uint32_t by_libdeflate(Message message) {
    return libdeflate_crc32(0, message.data(), message.size());
}

uint32_t by_portable(Message message) {
    return wire::portable_crc32(message, 0);
}

std::vector<uint8_t> any_bytes(size_t count) {
    std::vector<uint8_t> bytes(count);
    for (size_t index = 0; index < count; ++index) {
        bytes[index] = static_cast<uint8_t>(index * 131 + (index >> 8));
    }
    return bytes;
}

template <uint32_t (*crc32)(Message)>
void checksum(benchmark::State& state) {
    static const std::vector<uint8_t> bytes = any_bytes(kLong);
    const Message message = std::span(bytes).first(static_cast<size_t>(state.range(0)));
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(crc32(message));
    }
}

// Short, and often: what disturbs one run does not reach far.
void set_up(benchmark::internal::Benchmark* each) {
    each->Arg(kShort)->Arg(kFragment)->Arg(kLong)->MinTime(0.005);
}
BENCHMARK(checksum<wire::crc32>)->Name("chosen")->Apply(set_up);
BENCHMARK(checksum<by_portable>)->Name("portable")->Apply(set_up);
BENCHMARK(checksum<by_zlib>)->Name("zlib")->Apply(set_up);
BENCHMARK(checksum<by_libdeflate>)->Name("libdeflate")->Apply(set_up);

// Keeps the processor time that one run took, and prints nothing.
class Stopwatch : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        seconds_ = runs.at(0).cpu_accumulated_time / static_cast<double>(runs.at(0).iterations);
    }
    double seconds_per_iteration() const { return seconds_; }

  private:
    double seconds_ = 0;
};

double gigabytes_per_second(const std::string& name, size_t size) {
    Stopwatch stopwatch;
    benchmark::RunSpecifiedBenchmarks(&stopwatch, "^" + name + "/" + std::to_string(size) + "/");
    return static_cast<double>(size) / stopwatch.seconds_per_iteration() * 1e-9;
}

Figure figure(const Effort& effort, const std::string& ours, const std::string& theirs,
              size_t size) {
    const Pair pair = pair_of(
        effort, [&] { return gigabytes_per_second(ours, size); },
        [&] { return gigabytes_per_second(theirs, size); });
    return {.group = "crc",
            .name = std::to_string(size) + " B, " + ours,
            .unit = "GB/s",
            .value = pair.ours,
            .reference = reference(theirs, pair)};
}

// Counted by a script of its own; nothing where what it takes is not installed.
std::optional<double> arm_instructions_per_byte() {
    const std::string bytes = std::to_string(kFragment);
    const std::string command = "'" MARLO_BENCH_DIRECTORY "/arm_instructions.sh' " + bytes;
    FILE* output = popen(command.c_str(), "r");
    if (output == nullptr) {
        throw std::runtime_error(command + " cannot be run");
    }
    double value = 0;
    const bool is_read = std::fscanf(output, "%lf", &value) == 1;
    const int status = pclose(output);
    constexpr int kSomethingMissing = 77;
    if (WIFEXITED(status) && WEXITSTATUS(status) == kSomethingMissing) {
        return std::nullopt;
    }
    if (status != 0 || !is_read) {
        throw std::runtime_error(command + " failed");
    }
    return value;
}

}  // namespace

Figures crc(const Effort& effort) {
    Effort often = effort;
    often.rounds *= effort.is_quick ? 1 : 7;
    Figures figures;
    for (const size_t size : {kShort, kFragment, kLong}) {
        const std::optional<Goal> goal =
            size == kFragment ? std::optional(at_least(1.0)) : std::nullopt;
        figures.push_back(figure(often, "chosen", "libdeflate", size));
        figures.back().goal = goal;
        figures.push_back(figure(often, "chosen", "zlib", size));
        figures.push_back(figure(often, "portable", "zlib", size));
        figures.back().goal = goal;
    }
    if (const std::optional<double> value = arm_instructions_per_byte()) {
        figures.push_back({.group = "crc",
                           .name = std::to_string(kFragment) + " B, 32-bit ARM, instructions",
                           .unit = "per byte",
                           .value = *value,
                           .goal = at_most(0.45)});
    }
    return figures;
}

}  // namespace bench
