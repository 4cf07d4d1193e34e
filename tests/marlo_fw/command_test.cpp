// SPDX-License-Identifier: Apache-2.0
// The command as a whole: arguments in, text or JSON and an exit status out.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <nlohmann/json.hpp>

#include "tests/marlo_fw/strict_bundle.h"
#include "tests/marlo_fw/test_bundle.h"
#include "tools/marlo_fw/run.h"

namespace fs = std::filesystem;

namespace marlo_fw::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

Answer call(std::vector<std::string> arguments, bool in_colour = false) {
    std::vector<const char*> pointers = {"marlo-fw"};
    for (const std::string& argument : arguments) pointers.push_back(argument.c_str());
    return run(static_cast<int>(pointers.size()), pointers.data(), in_colour);
}

std::string last_line(const std::string& text) {
    const size_t end = text.find_last_not_of('\n');
    const size_t begin = text.rfind('\n', end);
    return text.substr(begin + 1, end - begin);
}

bool is_printable(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char character) {
        return character == '\n' || (character >= ' ' && character < 0x7F);
    });
}

class Command : public testing::Test {
  protected:
    Answer inspect_it(std::vector<std::string> more = {}, bool in_colour = false) {
        more.insert(more.begin(), {"inspect", bundle_.directory()});
        return call(more, in_colour);
    }
    Answer compare_with(const std::string& apps, const std::string& dsp, const std::string& bt) {
        return call(
            {"compare", bundle_.directory(), "--apps", apps, "--dsp", dsp, "--bt", bt, "--json"});
    }
    Answer patch_to(const std::string& output, const std::string& platform = "IDP") {
        return call({"patch", bundle_.directory(), "--platform", platform, "--subtype", "0",
                     "--dload", "mini", "-o", output});
    }
    size_t files() const {
        const auto all = fs::recursive_directory_iterator(bundle_.root());
        return static_cast<size_t>(std::distance(begin(all), end(all)));
    }

    TestBundle bundle_;
};

}  // namespace

TEST_F(Command, IntactIsCleanInPlainText) {
    const Answer answer = inspect_it();
    EXPECT_EQ(answer.exit_status, 0);
    EXPECT_EQ(answer.error, "");
    EXPECT_EQ(last_line(answer.output),
              "CLEAN: the daemon would erase 3 partitions of 200704 bytes and serve 5 images of "
              "39993 bytes");
    EXPECT_THAT(inspect_it({}, true).output, HasSubstr("\033[32;1mCLEAN: \033[0m"));
}

TEST_F(Command, NoControlCharacterOfTheBundleIsShown) {
    bundle_.edit(kTable, "DSP_COPY", "D\033[2J\x07\xff");
    bundle_.edit(kTable, "<img_id>8<", "<img_id>\033<");
    bundle_.edit(kVersionText, "TBX7700.DSP", "\033]0;x\x07");
    const Answer answer = inspect_it();
    EXPECT_EQ(answer.exit_status, 1);
    EXPECT_THAT(last_line(answer.output), StartsWith("1 FINDING: "));
    EXPECT_THAT(answer.output, HasSubstr("D\\x1b[2J\\x07\\xff"));
    EXPECT_TRUE(is_printable(answer.output));
    EXPECT_EQ(nlohmann::json::parse(inspect_it({"--json"}).output)["status"], "findings");
}

TEST_F(Command, ADeviceThatTheDaemonLeavesAloneIsAFinding) {
    const Answer answer = inspect_it({"--subtype", "7"});
    EXPECT_EQ(answer.exit_status, 1);
    EXPECT_THAT(answer.output, HasSubstr("subtype-not-supported"));
    EXPECT_THAT(answer.output, HasSubstr("sub_type 0x7"));
}

TEST_F(Command, RefusalsNameTheThingAndTheNextStep) {
    const std::string directory = bundle_.directory();
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{}, "subcommand is required"},
        {{"explain"}, "\"explain\" is no command"},
        {{"inspect"}, "DIR is required"},
        {{"inspect", "/nowhere"}, "\"/nowhere\" cannot be read as a directory: No such file"},
        {{"inspect", directory + "/flash.bin"}, "Not a directory"},
        {{"inspect", directory, "--platform", "XDP"}, "XDP"},
        {{"inspect", directory, "--subtype", "100"}, "\"100\" is no number from 0 to 99"},
        {{"inspect", directory, "--subtype", "-1"}, "\"-1\" is no number"},
        {{"compare", directory, "--apps", "", "--dsp", ""}, "--bt is required"},
        {{"compare", directory, "--dsp", "", "--bt", "", "--apps", std::string(100, 'a')},
         "has 100 bytes, more than the 99"},
        {{"patch", directory, "--platform", "IDP"}, "is required"},
        {{"patch", directory, "-o", ""}, "an empty text names no file"},
        {{"inspect", directory, "--verinfo="}, "an empty text names no file"},
        {{"inspect", directory, "--bogus="}, "--bogus"},
        {{"inspect", directory, "--subtype="}, "\"\" is no number"},
        {{"inspect", directory, "--platform", "\033[31mX"}, "\\x1b[31mX"},
        {{"inspect", directory, "\033[31mX"}, "\\x1b[31mX"},
    };
    for (const auto& [arguments, problem] : cases) {
        const Answer answer = call(arguments);
        EXPECT_EQ(answer.exit_status, 2) << problem;
        EXPECT_EQ(answer.output, "");
        EXPECT_THAT(answer.error, HasSubstr(problem));
        EXPECT_TRUE(is_printable(answer.error)) << problem;
        auto as_json = arguments;
        as_json.push_back("--json");
        const Answer json = call(as_json);
        EXPECT_EQ(json.exit_status, 2) << problem;
        EXPECT_EQ(json.error, "");
        const auto value = nlohmann::json::parse(json.output);
        EXPECT_EQ(value["status"], "error") << problem;
        EXPECT_NE(value["next"], "") << problem;
    }
    std::string many = "<t><Bank_1><Partition_table>";
    for (int count = 0; count <= 4096; ++count) many += "<Partition/>";
    bundle_.write(kTable, many + "</Partition_table></Bank_1></t>");
    EXPECT_THAT(
        inspect_it().error,
        StartsWith("marlo-fw inspect: partition_table.xml has 4097 partitions, more than 4096"));
}

TEST_F(Command, CompareNamesTheTestThatDecides) {
    const std::string apps = "TBX7700.APPS.1.2-00042-MARLO-1";
    const std::string dsp = "TBX7700.DSP.1.7-00042";
    const std::string bt = "TBX7700.BTFW.2.0-00042";
    struct Row {
        std::string apps, dsp, bt, decided_by, outcomes;
    };
    const Row rows[] = {
        {apps + "-x", dsp, "y" + bt, "", "match match match"},
        {apps, "", "", "", "match skipped skipped"},
        {"", dsp, bt, "apps", "mismatch not-reached not-reached"},
        {"TBX7700.APPS.1.2", dsp, bt, "apps", "mismatch not-reached not-reached"},
        {apps, "x", "x", "bt", "match mismatch not-reached"},
        {apps, "x", bt, "dsp", "match match mismatch"},
    };
    for (const Row& row : rows) {
        const Answer answer = compare_with(row.apps, row.dsp, row.bt);
        const auto value = nlohmann::json::parse(answer.output);
        EXPECT_EQ(answer.exit_status, row.decided_by.empty() ? 0 : 1);
        EXPECT_EQ(value["status"], row.decided_by.empty() ? "no-update" : "update");
        EXPECT_EQ(value["decided_by"].is_null() ? "" : value["decided_by"], row.decided_by);
        std::string outcomes;
        for (const auto& test : value["tests"]) {
            outcomes += (outcomes.empty() ? "" : " ") + test["outcome"].get<std::string>();
        }
        EXPECT_EQ(outcomes, row.outcomes);
        EXPECT_EQ(value["variant_without_flash"], false);
    }
    const auto value = nlohmann::json::parse(compare_with("NOFLASH_PSRAM", dsp, bt).output);
    EXPECT_EQ(value["variant_without_flash"], true);
    const Answer text =
        call({"compare", bundle_.directory(), "--apps", "", "--dsp", "", "--bt", ""});
    EXPECT_THAT(text.output, HasSubstr("the daemon would log: crm_build_number MIS-MATHCHED\n"));
    EXPECT_EQ(last_line(text.output), "UPDATE: the daemon would update: the apps test decides");
    EXPECT_THAT(text.output, HasSubstr("persist.vendor.zt_aon.dfu_update = 1;"));
    const Answer apart =
        call({"compare", bundle_.directory(), "--apps=" + apps, "--dsp=", "--bt="});
    EXPECT_EQ(apart.exit_status, 0) << apart.error;
    bundle_.remove(kVersionText);
    EXPECT_EQ(compare_with(apps, dsp, bt).exit_status, 1);
    EXPECT_THAT(
        last_line(call({"compare", bundle_.directory(), "--apps=", "--dsp=", "--bt="}).output),
        StartsWith("NO UPDATE, 1 FINDING: "));
}

TEST_F(Command, PatchWritesWhatIsServed) {
    std::string expected = read_strictly(bundle_.directory()).images.at(1);
    const size_t block = expected.find(word(0) + word(0x22) + word(~0U));
    expected.replace(block, 8, word(1) + word(0x24));
    const fs::path output = bundle_.root() / "patched.bin";
    const Answer answer = patch_to(output, "WDP");
    EXPECT_EQ(answer.exit_status, 0) << answer.error;
    EXPECT_TRUE(contents(output) == expected);
    EXPECT_THAT(last_line(answer.output), StartsWith("CLEAN: 36992 bytes written to "));
    bundle_.patch_boot_loader(0, "?");
    EXPECT_EQ(patch_to(output, "WDP").exit_status, 1);  // and replaces the file
    EXPECT_TRUE(contents(output) == contents(bundle_.directory() / "flash.bin"));
    EXPECT_EQ(files(), intact_files().size() + 2);
}

TEST_F(Command, PatchTellsWhatDecidesWhatItWrites) {
    const fs::path output = bundle_.root() / "patched.bin";
    bundle_.edit(kTable, "12416<", "12416abc<");
    const Answer misread = patch_to(output);
    EXPECT_EQ(misread.exit_status, 1);
    EXPECT_THAT(misread.output, HasSubstr("number-misread"));
    bundle_.edit(kTable, "12416abc<", "12416<");
    bundle_.edit(kTable, "<img_id>3<", "<img_id>1<");
    const Answer hidden = patch_to(output);
    EXPECT_THAT(hidden.output, HasSubstr("flash.bin is hidden by partition \"APPS\""));
    EXPECT_THAT(last_line(hidden.output),
                StartsWith("1 FINDING: 1000 bytes of \"apps.bin\" written to "));
    EXPECT_TRUE(contents(output) == intact_files().at("apps.bin"));
}

TEST_F(Command, PatchWritesAllOrNothing) {
    const size_t before = files();
    for (const std::string name : {"flash.bin", "partition_table.xml", "tbx7700_ver_info.txt"}) {
        EXPECT_THAT(patch_to(bundle_.directory() / name).error,
                    HasSubstr("is a file of the bundle"));
    }
    EXPECT_THAT(patch_to("/dev/null").error, HasSubstr("no regular file"));
    EXPECT_THAT(patch_to(bundle_.root() / "none" / "x").error, HasSubstr("No such file"));
    const fs::path output = bundle_.root() / "patched.bin";
    fs::create_symlink("nowhere", output);
    EXPECT_THAT(patch_to(output).error, HasSubstr("is a symbolic link"));
    fs::remove(output);
    rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit small = {20000, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    const Answer answer = patch_to(output);
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(answer.exit_status, 2);
    EXPECT_THAT(answer.error, HasSubstr("cannot be written: File too large"));
    bundle_.write("flash.bin", "");
    EXPECT_THAT(patch_to(output).error, HasSubstr("image 1 of "));
    EXPECT_EQ(files(), before);
    EXPECT_TRUE(contents(bundle_.directory() / kTable) == intact_files().at(kTable));
}

}  // namespace marlo_fw::test
