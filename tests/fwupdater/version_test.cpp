// SPDX-License-Identifier: Apache-2.0
#include <random>
#include <regex>

#include "tests/allocation_limit.h"
#include "tests/fwupdater/recording.h"

namespace {

constexpr char kPrimary[] = "/vendor/firmware_mnt/image/tbx7700_ver_info.txt";
constexpr char kFallback[] = "/vendor/firmware_mnt/verinfo/ver_info.txt";

wear_firmware_info_t record(std::string_view apps, std::string_view dsp, std::string_view bt) {
    wear_firmware_info_t info = {};
    apps.copy(info.apps_version, sizeof(info.apps_version));
    dsp.copy(info.dsp_version, sizeof(info.dsp_version));
    bt.copy(info.bt_version, sizeof(info.bt_version));
    return info;
}

class VersionCheck : public UpdaterTest {
  protected:
    int check(wear_firmware_info_t info) { return updater_.fw_version_check(&info); }
    int no_flash(wear_firmware_info_t info) { return updater_.is_psram_noflash(&info); }
};

}  // namespace

TEST(VersionLine, EqualsRegularExpressionOnRandomLines) {
    const std::regex expression(R"re("([^=]*)": "([^&]*)&?")re");
    const char* pieces[] = {"\"", ":", " ", "=", "&", "a", ",", "\": \"", "\": \"", "&\""};
    std::mt19937 random(7700);
    int found = 0;
    for (int round = 0; round < 20'000; ++round) {
        std::string line;
        for (auto count = random() % 14; count > 0; --count) {
            line += pieces[random() % std::size(pieces)];
        }
        std::smatch match;
        std::optional<std::string> expected;
        if (std::regex_search(line, match, expression)) {
            expected = match[2].str();
            ++found;
        }
        ASSERT_EQ(version_value(line), expected) << line;
    }
    EXPECT_GT(found, 4'000);
}

TEST(VersionLine, MegabyteLinesTakeOnePass) {
    std::string line = R"("apps_cochip": ")";
    for (int index = 0; index < 200'000; ++index) {
        line += R"(": ")";
    }
    ASSERT_TRUE(version_value(line).has_value());
    EXPECT_EQ(version_value(line), R"(": )");
    EXPECT_EQ(version_value(line + std::string(1'000'000, '&')), R"(": )");
    EXPECT_EQ(version_value(std::string(1'000'000, '"')), std::nullopt);
}

TEST_F(VersionCheck, LaterLineWinsAndAKeyInsideAValueCounts) {
    scripted::platform().file(kPrimary,
                              "{\n"
                              "  \"btfw_cochip\": \"one\",\n"
                              "  \"note\": \"not apps_cochip\"\n"
                              "  \"btfw_cochip\": \"two\",\n"
                              "  dsp_cochip without a value\n"
                              "  \"dsp_cochip\": \"three\"");
    const marlo_meta_info info = updater_.readMarloMetaBuildInfo();
    EXPECT_EQ(info.apps_cochip, "not apps_cochip");
    EXPECT_EQ(info.btfw_cochip, "two");
    EXPECT_EQ(info.dsp_cochip, "three");
}

TEST_F(VersionCheck, FallbackIsReadOnlyWhenThePrimaryDoesNotOpen) {
    EXPECT_EQ(updater_.readMarloMetaBuildInfo().apps_cochip, "");
    scripted::platform().file(kFallback, "\"apps_cochip\": \"FALLBACK\"\n");
    EXPECT_EQ(updater_.readMarloMetaBuildInfo().apps_cochip, "FALLBACK");
    scripted::platform().file(kPrimary, "no keys here\n");
    EXPECT_EQ(updater_.readMarloMetaBuildInfo().apps_cochip, "");
    EXPECT_EQ(check(record("", "", "")), 0);
    scripted::platform().script_read(kPrimary, scripted::failure(EIO));
    EXPECT_EQ(updater_.readMarloMetaBuildInfo().apps_cochip, "");
    EXPECT_EQ(logged("aon build from /vendor/firmware_mnt/image/tbx7700_ver_info.txt."), 3U);
}

TEST_F(VersionCheck, VersionsThatDoNotFitIntoMemoryAreUnknown) {
    scripted::platform().file(kPrimary, "\"apps_cochip\": \"A\"\n" + std::string(1'000'000, ' '));
    EXPECT_EQ(updater_.readMarloMetaBuildInfo().apps_cochip, "A");
    EXPECT_EQ(logged(std::string(kPrimary) + " has a line of 1000000 bytes"), 1U);
    const AllocationLimit limit(1'000'019);  // the file, but no copy of it
    EXPECT_EQ(updater_.readMarloMetaBuildInfo().apps_cochip, "");
    EXPECT_EQ(logged(std::string("no memory for the versions in ") + kPrimary), 1U);
}

TEST_F(VersionCheck, ComparesInOrderAndSkipsEmptyTexts) {
    scripted::platform().file(kPrimary,
                              "\"apps_cochip\": \"APPS\"\n\"btfw_cochip\": \"BT\"\n"
                              "\"dsp_cochip\": \"DSP\"\n");
    EXPECT_EQ(check(record("x.APPS-NOFLASH_PSRAM", "DSP.1", "1.BT")), 0);
    EXPECT_EQ(logged("E fw_version_check:"), 1U);
    EXPECT_EQ(logged("Marlo firmware versions are MATHCHED, skip fw_update"), 1U);
    EXPECT_EQ(check(record("APPS", "", "")), 0);
    EXPECT_EQ(check(record("APP", "", "")), -1);
    EXPECT_EQ(check(record("", "DSP", "BT")), -1);
    EXPECT_EQ(logged("crm_build_number MIS-MATHCHED"), 2U);
    EXPECT_EQ(check(record("APPS", "other", "other")), -1);
    EXPECT_EQ(logged("btfw_cochip MIS-MATHCHED"), 1U);
    EXPECT_EQ(check(record("APPS", "other", "BT")), -1);
    EXPECT_EQ(logged("dsp_cochip MIS-MATHCHED"), 1U);
    EXPECT_EQ(updater_.fw_version_check(nullptr), -1);
    EXPECT_EQ(logged("fw_info: version is invalid"), 1U);
}

TEST_F(VersionCheck, VariantIsNamedByTheAppsVersionAlone) {
    EXPECT_EQ(no_flash(record("APPS", "NOFLASH_PSRAM", "NOFLASH_PSRAM")), -1);
    // A text that fills its field has no NUL: what follows it does not belong to it.
    EXPECT_EQ(no_flash(record(std::string(90, 'x') + "NOFLASH_PS", "RAM", "")), -1);
    EXPECT_EQ(no_flash(record("APPS.NOFLASH_PSRAM.1", "", "")), 0);
    EXPECT_EQ(updater_.is_psram_noflash(nullptr), -1);
}
