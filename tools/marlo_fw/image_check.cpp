// SPDX-License-Identifier: Apache-2.0
#include "tools/marlo_fw/image_check.h"

#include <algorithm>
#include <map>

#include "tools/marlo_fw/text.h"

namespace marlo_fw {
namespace {

uint64_t size_on_flash(const ImageRow& row) {
    return std::max(row.size, row.bytes);
}

std::string range_text(const ImageRow& row) {
    return hexadecimal(row.offset) + " to " + hexadecimal(row.offset + size_on_flash(row) - 1);
}

void check_ids(const std::vector<ImageRow>& rows, Findings& findings) {
    std::map<uint32_t, const ImageRow*> first;
    for (const ImageRow& row : rows) {
        const auto [found, is_new] = first.emplace(row.id, &row);
        if (is_new) continue;
        const ImageRow& served = *found->second;
        findings.add({row.is_fixed ? Area::kFlashImage : Area::kTable,
                      row.is_fixed ? "fixed-image-shadowed" : "id-used-twice",
                      row.is_fixed ? served.place : row.place,
                      "id " + std::to_string(row.id),
                      "the daemon never serves " + (row.is_fixed ? row.file : "this partition") +
                          ": the id is that of " + in_quotes(served.name) + ", which comes first",
                      {}});
    }
}

void check_file(const ImageRow& row, Findings& findings) {
    const Area area = row.is_fixed ? Area::kFlashImage : Area::kImage;
    if (row.file.empty()) return;
    if (!row.errors.empty()) {
        const std::string served = row.bytes == 0 ? "as empty" : "what it can read";
        findings.add({area, "image-unreadable", row.place, in_quotes(row.file),
                      "the daemon cannot read the file, and serves " + served, row.errors});
    } else if (row.bytes == 0) {
        findings.add({area,
                      "image-empty",
                      row.place,
                      in_quotes(row.file) + ": 0 bytes",
                      "the daemon serves an image of size 0",
                      {}});
    }
    if (!row.is_fixed && row.bytes > row.size) {
        findings.add({area,
                      "image-too-large",
                      row.place,
                      in_quotes(row.file) + ": " + count_of(row.bytes, "byte") +
                          ", the partition has " + std::to_string(row.size),
                      "the daemon serves all of it, over what is behind the partition",
                      {}});
    }
}

// Those that share flash with the one that reaches furthest of those that begin before them.
void check_ranges(const std::vector<ImageRow>& rows, Findings& findings) {
    std::vector<const ImageRow*> placed;
    for (const ImageRow& row : rows) {
        if (!row.is_fixed && size_on_flash(row) != 0) placed.push_back(&row);
    }
    std::stable_sort(placed.begin(), placed.end(), [](const ImageRow* one, const ImageRow* other) {
        return one->offset < other->offset;
    });
    const ImageRow* furthest = nullptr;
    for (const ImageRow* row : placed) {
        const uint64_t end = row->offset + size_on_flash(*row);
        const uint64_t furthest_end =
            furthest == nullptr ? 0 : furthest->offset + size_on_flash(*furthest);
        if (row->offset < furthest_end) {
            findings.add({Area::kTable,
                          "flash-ranges-overlap",
                          row->place,
                          range_text(*row),
                          "the daemon erases and serves it over " + range_text(*furthest) + " of " +
                              in_quotes(furthest->name),
                          {}});
        }
        if (end > uint64_t{UINT32_MAX} + 1) {
            findings.add({Area::kTable,
                          "flash-range-too-high",
                          row->place,
                          range_text(*row),
                          "the daemon names places above 4 GiB as if they were below",
                          {}});
        }
        if (end > furthest_end) furthest = row;
    }
}

}  // namespace

void check_images(const std::vector<ImageRow>& rows, Findings& findings) {
    check_ids(rows, findings);
    for (const ImageRow& row : rows) check_file(row, findings);
    check_ranges(rows, findings);
}

}  // namespace marlo_fw
