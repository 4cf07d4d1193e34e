// SPDX-License-Identifier: Apache-2.0
// The shipped versions: each line of a version file, and the comparison with the running firmware.
#include <cstring>
#include <regex>

#include "fuzz/harness.h"
#include "fwupdater/marlo_fw_updater.h"

using fuzz::must;
using fuzz::platform;

namespace {

constexpr const char* kVersionFile = "/vendor/firmware_mnt/image/tbx7700_ver_info.txt";

// The library's expressions take time that grows with a power of the length.
constexpr size_t kLongestCompared = 40;

void check_line(std::string_view line) {
    const std::optional<std::string_view> value = version_value(line);
    if (value) {
        must(value->data() >= line.data() &&
                 value->data() + value->size() <= line.data() + line.size(),
             "the value is no part of its line");
    }
    if (line.size() > kLongestCompared) {
        return;
    }
    static const std::regex expression(R"re("([^=]*)": "([^&]*)&?")re");
    std::cmatch match;
    const bool found = std::regex_search(line.data(), line.data() + line.size(), match, expression);
    must(found == value.has_value(), "the expression %s", found ? "is found" : "is not found");
    must(!found || match[2].str() == *value, "the value is %s", match[2].str().c_str());
}

// What the last line that has the key and a value says, one line after the other.
std::string expected_value(const std::string& text, const char* key) {
    std::string expected;
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        const std::string line = text.substr(begin, end - begin);
        const auto value = version_value(line);
        if (value && line.find(key) != std::string::npos) {
            expected = *value;
        }
        begin = end + 1;
    }
    return expected;
}

void check_lines(std::string_view text) {
    while (!text.empty()) {
        const size_t length = std::min(text.find('\n'), text.size());
        check_line(text.substr(0, length));
        text.remove_prefix(std::min(length + 1, text.size()));
    }
}

bool holds(const char (&field)[100], const std::string& text) {
    return std::string_view(field, strnlen(field, sizeof(field))).find(text) !=
           std::string_view::npos;
}

bool is_current(const wear_firmware_info_t& running, const marlo_meta_info& shipped) {
    return holds(running.apps_version, shipped.apps_cochip) &&
           (running.bt_version[0] == '\0' || holds(running.bt_version, shipped.btfw_cochip)) &&
           (running.dsp_version[0] == '\0' || holds(running.dsp_version, shipped.dsp_cochip));
}

}  // namespace

// The running firmware's record comes first (nothing of it where the first decision says so), the
// file last.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::begin();
    fuzz::Input input(data, size);
    wear_firmware_info_t running = {};
    for (auto* field : {&running.apps_version, &running.bt_version, &running.dsp_version}) {
        const std::string version = input.text(input.below(101));
        version.copy(*field, sizeof(*field));
    }
    const std::string file = input.text(size);
    // In memory of exactly its size.
    fuzz::ExactCopy exact({reinterpret_cast<const uint8_t*>(file.data()), file.size()});
    const std::string_view text(reinterpret_cast<const char*>(exact.data()), exact.size());
    check_lines(text);

    platform().file(kVersionFile, file);
    marlo_fw_updater updater;
    const marlo_meta_info shipped = updater.readMarloMetaBuildInfo();
    must(shipped.apps_cochip == expected_value(file, "apps_cochip"), "another apps_cochip");
    must(shipped.btfw_cochip == expected_value(file, "btfw_cochip"), "another btfw_cochip");
    must(shipped.dsp_cochip == expected_value(file, "dsp_cochip"), "another dsp_cochip");
    must((updater.fw_version_check(&running) == 0) == is_current(running, shipped),
         "the comparison has another result");
    must((updater.is_psram_noflash(&running) == 0) == holds(running.apps_version, "NOFLASH_PSRAM"),
         "the variant is another one");
    must(platform().open_descriptors() == 0, "a file is left open");
    return 0;
}
