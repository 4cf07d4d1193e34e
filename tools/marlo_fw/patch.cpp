// SPDX-License-Identifier: Apache-2.0
#include "tools/marlo_fw/patch.h"

#include "tools/marlo_fw/output_file.h"
#include "tools/marlo_fw/table_structure.h"
#include "tools/marlo_fw/text.h"
#include "wire/crc32.h"

namespace marlo_fw {

namespace {

bool decides_flash_image(const Finding& finding) {
    const bool is_of_whole_table = finding.area == Area::kTable && finding.element == kTableFile;
    return finding.area == Area::kFlashImage || finding.area == Area::kPlatform ||
           is_of_whole_table;
}

}  // namespace

Patch patch(const Bundle& bundle, const std::string& output) {
    Patch result;
    result.inspection = inspect(bundle);
    result.output = output;
    for (const Finding& finding : result.inspection.findings.kept()) {
        if (decides_flash_image(finding)) result.findings.add(finding);
    }
    DaemonRun& run = *result.inspection.run;
    if (run.image_size(kFlashImageId) == 0) {
        throw Failure("image 1 of " + in_quotes(bundle.directory) + " is missing or empty",
                      "nothing was written; marlo-fw inspect shows why");
    }
    OutputFile file(output);
    run.read_image(kFlashImageId, [&](std::span<const uint8_t> piece) {
        result.bytes += static_cast<uint32_t>(piece.size());
        result.crc = wire::crc32(piece, result.crc);
        file.write(piece);
    });
    file.finish();
    return result;
}

}  // namespace marlo_fw
