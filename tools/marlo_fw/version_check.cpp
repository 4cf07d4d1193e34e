// SPDX-License-Identifier: Apache-2.0
#include "tools/marlo_fw/version_check.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "comhandler/wear_firmware_info.h"
#include "daemon/marlo_deamon_log.h"
#include "fwupdater/image_file.h"
#include "tools/marlo_fw/bundle_files.h"
#include "tools/marlo_fw/link_check.h"
#include "tools/marlo_fw/text.h"

namespace marlo_fw {
namespace {

constexpr const char* kVersionFile = "tbx7700_ver_info.txt";
constexpr size_t kLongestVersion = sizeof(wear_firmware_info_t::apps_version) - 1;

struct Key {
    const char* name;
    std::string marlo_meta_info::*value;
    const char* running;
};
constexpr Key kKeys[] = {{"apps_cochip", &marlo_meta_info::apps_cochip, "apps"},
                         {"dsp_cochip", &marlo_meta_info::dsp_cochip, "DSP"},
                         {"btfw_cochip", &marlo_meta_info::btfw_cochip, "Bluetooth"}};

std::string_view behind_blanks(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\r"), text.size()));
    return text;
}

// What stands beside the key: "key" : "value".
std::optional<std::string_view> written_value(std::string_view line, const std::string& key) {
    const std::string quoted_key = "\"" + key + "\"";
    const size_t at = line.find(quoted_key);
    if (at == line.npos) return {};
    line = behind_blanks(line.substr(at + quoted_key.size()));
    if (!line.starts_with(':')) return {};
    line = behind_blanks(line.substr(1));
    if (!line.starts_with('"')) return {};
    line.remove_prefix(1);
    const size_t end = line.find('"');
    return end == line.npos ? std::nullopt : std::optional(line.substr(0, end));
}

// How often the line says "key":.
int times_written(std::string_view line, const std::string& key) {
    const std::string quoted_key = "\"" + key + "\"";
    int times = 0;
    for (size_t at = line.find(quoted_key); at != line.npos; at = line.find(quoted_key)) {
        line.remove_prefix(at + quoted_key.size());
        times += behind_blanks(line).starts_with(':') ? 1 : 0;
    }
    return times;
}

// The daemon knows no comments; people do.
class Comments {
  public:
    // Of each line in turn: whether it looks like one.
    bool next(std::string_view line) {
        const std::string_view text = behind_blanks(line);
        is_in_block_ = is_in_block_ || text.starts_with("/*");
        const bool is_comment = is_in_block_ || text.starts_with("//") || text.starts_with('#') ||
                                text.starts_with(';') || text.starts_with("--");
        if (line.find("*/") != line.npos) is_in_block_ = false;
        return is_comment;
    }

  private:
    bool is_in_block_ = false;
};

class Check {
  public:
    Check(const Versions& versions, Findings& findings)
        : versions_(versions), findings_(findings) {}

    void check_key(const Key& key, std::string_view text) {
        int values = 0;
        int number = 0;
        Comments comments;
        while (!text.empty()) {
            const std::string_view line = text.substr(0, text.find('\n'));
            text.remove_prefix(std::min(line.size() + 1, text.size()));
            ++number;
            const bool is_comment = comments.next(line);
            if (line.find(key.name) == line.npos) continue;
            const std::optional<std::string_view> read = version_value(line);
            if (read) values += std::max(1, times_written(line, key.name));
            if (read && is_comment) {
                add("version-line-commented", ":" + std::to_string(number), in_quotes(line),
                    "the daemon knows no comments: it takes " + in_quotes(*read) + " as " +
                        key.name);
            }
            check_line(key, line, number, read);
        }
        check_value(key, values);
    }

  private:
    void check_line(const Key& key, std::string_view line, int number,
                    std::optional<std::string_view> read) {
        const std::optional<std::string_view> written = written_value(line, key.name);
        const bool is_escaped = written && written->find('\\') != written->npos;
        if (read && read == written && !is_escaped) return;
        const std::string consequence =
            !read ? std::string("the daemon finds no value of ") + key.name + " there"
                  : std::string("the daemon takes ") + in_quotes(*read) + " as " + key.name +
                        (written ? ", not " + in_quotes(*written) : "");
        add("version-line-misread", ":" + std::to_string(number), in_quotes(line), consequence);
    }

    void check_value(const Key& key, int values) {
        const std::string& value = versions_.shipped.*key.value;
        const std::string name = key.name;
        const std::string running = std::string("running ") + key.running + " version";
        if (values == 0) {
            add("version-missing", "", "no value of " + name, "every " + running + " passes");
            return;
        }
        if (values > 1) {
            add("version-repeated", "", std::to_string(values) + " values of " + name,
                "the daemon takes the last, " + in_quotes(value));
        }
        if (value.empty()) {
            add("version-empty", "", name + " is empty", "every " + running + " passes");
        } else if (value.size() > kLongestVersion || value.find('\0') != value.npos) {
            add("version-never-matches", "",
                name + " " + in_quotes(value) + " of " + count_of(value.size(), "byte"),
                "no " + running + " can hold it, of at most " + std::to_string(kLongestVersion) +
                    " bytes without NUL: the daemon updates at every boot");
        }
    }

    void add(const char* code, const std::string& place, const std::string& value,
             const std::string& consequence) {
        findings_.add(
            {Area::kVersions, code, printable(versions_.file) + place, value, consequence, {}});
    }

    const Versions& versions_;
    Findings& findings_;
};

// The path behind "aon build from ", with a full stop and a newline behind it.
std::string file_in(const std::vector<LogLine>& log) {
    constexpr std::string_view kBefore = "aon build from ";
    for (const LogLine& line : log) {
        if (line.text.starts_with(kBefore)) {
            return line.text.substr(kBefore.size(), line.text.rfind('.') - kBefore.size());
        }
    }
    return {};
}

}  // namespace

Versions check_versions(DaemonRun& run, Findings& findings) {
    Versions versions;
    take_daemon_log();
    marlo_deamon_log::set_level(marlo_deamon_log::log_level::verbose);
    versions.shipped = run.updater().readMarloMetaBuildInfo();
    const std::vector<LogLine> log = take_daemon_log();
    const std::string path = file_in(log);
    if (path != std::string(kImageDirectory) + kVersionFile) {
        findings.add({Area::kVersions,
                      "version-file-missing",
                      kVersionFile,
                      "cannot be opened",
                      path.empty() ? "the daemon knows no shipped version: it never updates by them"
                                   : "the daemon reads " + printable(name_of(path)) + " instead",
                      {}});
    }
    if (path.empty()) return versions;
    versions.file = name_of(path);
    if (path.starts_with(kImageDirectory)) {
        check_links(name_of(std::string(kImageDirectory)), kVersionFile, Area::kVersions,
                    printable(versions.file), findings);
    }
    if (const std::vector<std::string> errors = complaints(log); !errors.empty()) {
        findings.add({Area::kVersions, "version-file-odd", printable(versions.file),
                      "not as it should be", "the daemon complains", errors});
    }
    const std::optional<FileBytes> bytes = read_regular_file(path, kLargestText);
    take_daemon_log();
    const std::string text = bytes ? std::string(bytes->begin(), bytes->end()) : "";
    Check check(versions, findings);
    for (const Key& key : kKeys) check.check_key(key, text);
    return versions;
}

}  // namespace marlo_fw
