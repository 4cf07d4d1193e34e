// SPDX-License-Identifier: Apache-2.0
// Whether a fragment costs more in a large image, or with many partitions.
#include "bench/affinity.h"
#include "bench/firmware.h"
#include "bench/groups.h"
#include "bench/serving.h"
#include "daemon/marlo_deamon_log.h"

namespace bench {
namespace {

constexpr uint32_t kMiB = 1024 * 1024;
constexpr uint32_t kFragment = 4096;

class Serving {
  public:
    Serving(uint32_t image_bytes, int partitions)
        : image_(made_up_image(image_bytes)),
          firmware_(image_, partitions),
          session_(socket_session({kServedImage, image_bytes, kFragment}, image_,
                                  Session::Server::kDaemon)) {}

    double us_per_fragment(uint64_t bytes) { return session_.serve(bytes).us_per_fragment; }

  private:
    std::vector<uint8_t> image_;
    Firmware firmware_;
    Session session_;
};

std::string size_text(uint32_t mebibytes) {
    return mebibytes % 1024 == 0 ? std::to_string(mebibytes / 1024) + " GiB"
                                 : std::to_string(mebibytes) + " MiB";
}

}  // namespace

Figures growth(const Effort& effort) {
    prepare_daemon();
    const uint32_t medium = effort.is_quick ? 2 : 64;
    const uint32_t large = effort.is_quick ? 4 : 1024;
    Serving small_image(kMiB, 2);
    Serving many_partitions(kMiB, 2000);
    use_cores(Cores::kOne);
    marlo_deamon_log::set_level(marlo_deamon_log::log_level::error);

    Figures figures;
    const auto compare_with = [&](Serving& serving, const std::string& name, uint64_t bytes,
                                  const char* of_the_small) {
        const Pair pair = pair_of(
            effort, [&] { return serving.us_per_fragment(bytes); },
            [&] { return small_image.us_per_fragment(bytes); });
        figures.push_back({"growth", name, "us", pair.ours, reference(of_the_small, pair)});
    };
    for (const uint32_t mebibytes : {medium, large}) {
        Serving serving(mebibytes * kMiB, 2);
        use_cores(Cores::kOne);
        marlo_deamon_log::set_level(marlo_deamon_log::log_level::error);
        compare_with(serving, "a fragment of an image of " + size_text(mebibytes),
                     uint64_t{mebibytes} * kMiB, "1 MiB");
    }
    figures.back().goal = at_most(1.05);
    compare_with(many_partitions, "a fragment with 2,000 partitions", uint64_t{medium} * kMiB,
                 "2 partitions");
    figures.back().goal = at_most(1.05);
    use_cores(Cores::kAll);
    return figures;
}

}  // namespace bench
