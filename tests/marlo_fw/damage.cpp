// SPDX-License-Identifier: Apache-2.0
#include "tests/marlo_fw/damage.h"

#include <algorithm>
#include <iterator>
#include <regex>
#include <sstream>

namespace marlo_fw::test {
namespace {

const std::string kOddNumbers[] = {
    "",           "-1",      "0x10",  "12abc",  "4294967295", "1e5",        "99999999999",
    " 1048576 ",  "+5",      "007",   "0",      "2147483647", "2147483648", "1 2",
    "10<!-- -->", "1114112", "65536", "&#49;0", "1",          "2",          "3"};
const std::string kOddPieces[] = {"<",
                                  "&amp;",
                                  "&bogus;",
                                  "<!-- x -->",
                                  std::string(1, '\0'),
                                  "]]>",
                                  "<!X>",
                                  "<?x?>",
                                  "<x/>",
                                  ">",
                                  "\"",
                                  "<Partition/>",
                                  "<mbr/>",
                                  "&#0;",
                                  "<![CDATA[1]]>",
                                  "</Partition>",
                                  "<size>1</size>",
                                  "<x y='<!-- &bogus;'/>",
                                  "\r\n",
                                  "../",
                                  "/"};
const std::string kOddVersionLines[] = {"\"apps_cochip\": \"\",",
                                        "\"apps_cochip\":\"no blank\"",
                                        "apps_cochip: bare",
                                        "\"apps_cochip_old\": \"1.0\"",
                                        "\"dsp_cochip\": \"a\", \"x\": \"b\"",
                                        "\"btfw_cochip\": \"1&2\"",
                                        "\"btfw_cochip\": \"1&\"",
                                        "\"dsp_cochip\" = \"1\"",
                                        "\"note\": \"see dsp_cochip\"",
                                        "\"dsp_cochip\": \"a\\\"b\"",
                                        "{",
                                        "\"x=\": \"apps_cochip\": \"y\""};

class Damage {
  public:
    explicit Damage(uint32_t seed) : numbers_(seed), result_{intact_files(), {}, {}, {}} {
        for (uint32_t count = 1 + below(2); count > 0; --count) one();
    }

    Damaged take() { return std::move(result_); }

  private:
    uint32_t below(size_t limit) { return static_cast<uint32_t>(numbers_() % limit); }
    template <size_t kCount>
    const std::string& any(const std::string (&of)[kCount]) {
        return of[below(kCount)];
    }
    std::string& file(const std::string& name) { return result_.files[name]; }
    std::string any_file() {
        return std::next(intact_files().begin(), below(intact_files().size()))->first;
    }
    void tell(const std::string& what) { result_.story += what + "; "; }

    void one() {
        switch (below(16)) {
            case 0:
            case 1:
                return flip(kTable, 0, file(kTable).size());
            case 2:
                return flip(kVersionText, 0, file(kVersionText).size());
            case 3:
                return flip("flash.bin", kBootLoaderAt, 52 + 5 * 32);
            case 4:
                return flip(any_file(), 0, SIZE_MAX);
            case 5:
            case 6:
                return change_line(kTable);
            case 7:
                return change_line(kVersionText);
            case 8:
            case 9:
                return change_number();
            case 10:
                return insert(kTable, any(kOddPieces));
            case 11:
                return insert_version_line();
            case 12:
                return set_elf_field();
            case 13:
            case 14:
                return change_element();
            default:
                return change_file();
        }
    }

    void flip(const std::string& name, size_t begin, size_t length) {
        std::string& bytes = file(name);
        if (begin >= bytes.size()) return;
        const size_t at = begin + below(std::min(length, bytes.size() - begin));
        bytes[at] = static_cast<char>(bytes[at] ^ (1 << below(8)));
        tell("bit of byte " + std::to_string(at) + " of " + name);
    }

    void change_line(const std::string& name) {
        std::vector<std::string> lines;
        std::istringstream text(file(name));
        for (std::string line; std::getline(text, line);) lines.push_back(line);
        if (lines.empty()) return;
        const size_t at = below(lines.size());
        const auto place = lines.begin() + static_cast<std::ptrdiff_t>(at);
        const uint32_t how = below(5);
        if (how == 0) lines.erase(place);
        if (how == 1) lines.insert(lines.begin() + below(lines.size()), std::string(lines[at]));
        if (how == 2) std::swap(lines[at], lines[below(lines.size())]);
        if (how == 3) lines[at] += lines[at];
        if (how == 4) lines[at].insert(0, below(2) == 0 ? "//" : "#");
        std::string changed;
        for (const std::string& line : lines) changed += line + "\n";
        file(name) = changed;
        tell("line " + std::to_string(at) + " of " + name +
             (how == 0   ? " dropped"
              : how == 1 ? " repeated"
              : how == 2 ? " swapped"
              : how == 3 ? " twice"
                         : " a comment"));
    }

    void change_number() {
        std::string& table = file(kTable);
        static const std::regex form(">[0-9]+<");
        const auto begin = std::sregex_iterator(table.begin(), table.end(), form);
        const auto count = std::distance(begin, std::sregex_iterator());
        if (count == 0) return;
        const std::smatch match = *std::next(begin, below(static_cast<size_t>(count)));
        const auto at = static_cast<size_t>(match.position()) + 1;
        const auto length = static_cast<size_t>(match.length()) - 2;
        const std::string number = any(kOddNumbers);
        tell(table.substr(at, length) + " at " + std::to_string(at) + " becomes " + number);
        table.replace(at, length, number);
    }

    // An element stands inside another, or its value in an attribute.
    void change_element() {
        std::string& table = file(kTable);
        static const std::regex form("<([A-Za-z_]+)>([^<]*|<PartType>[^<]*</PartType>)</\\1>");
        const auto begin = std::sregex_iterator(table.begin(), table.end(), form);
        const auto count = std::distance(begin, std::sregex_iterator());
        if (count == 0) return;
        const std::smatch match = *std::next(begin, below(static_cast<size_t>(count)));
        const auto length = static_cast<size_t>(match.length());
        const std::string changed =
            below(2) == 0 ? "<x>" + match.str() + "</x>"
                          : "<" + match.str(1) + " value='" + std::to_string(below(9)) + "'/>";
        tell(match.str() + " becomes " + changed);
        table.replace(static_cast<size_t>(match.position()), length, changed);
    }

    void insert(const std::string& name, const std::string& piece) {
        const size_t at = below(file(name).size() + 1);
        file(name).insert(at, piece);
        tell(piece + " at " + std::to_string(at) + " of " + name);
    }

    void insert_version_line() {
        std::string& text = file(kVersionText);
        const size_t at = std::min(text.find('\n', below(text.size() + 1)), text.size());
        const std::string line = below(20) == 0 ? std::string(5000, 'x') : any(kOddVersionLines);
        text.insert(at, "\n" + line);
        tell("line " + line.substr(0, 40) + " in the version file");
    }

    void set_elf_field() {
        constexpr size_t kFields[] = {4,       5,       28,      42,      44,      52 + 96,
                                      56 + 96, 60 + 96, 68 + 96, 60 + 32, 68 + 32, 60};
        const uint32_t values[] = {0, 1, 2, 3, 20, 52, 0xFFFF, 0x20147FA4, 0x5FF0, ~0U};
        std::string& flash = file("flash.bin");
        const size_t at = kBootLoaderAt + kFields[below(std::size(kFields))];
        const uint32_t value = values[below(std::size(values))];
        if (flash.size() < at + 4) return;
        flash.replace(
            at, at < kBootLoaderAt + 52 && at != kBootLoaderAt + 28 ? 1 : 4,
            word(value).substr(0, at < kBootLoaderAt + 52 && at != kBootLoaderAt + 28 ? 1 : 4));
        tell("field at " + std::to_string(at) + " becomes " + std::to_string(value));
    }

    void change_file() {
        const std::string name = any_file();
        std::string& bytes = file(name);
        switch (below(5)) {
            case 4:
                result_.links[name] = below(2) == 0 ? kOutside : "dsp.mbn";
                result_.files.erase(name);
                return tell(name + " a link");
            case 0:
                bytes.resize(below(bytes.size() + 1));
                return tell(name + " cut to " + std::to_string(bytes.size()));
            case 1:
                bytes.append(below(70000), 'x');
                return tell(name + " longer");
            case 2:
                result_.directories.push_back(name);
                [[fallthrough]];
            default:
                result_.files.erase(name);
                return tell(name + " gone");
        }
    }

    std::mt19937 numbers_;
    Damaged result_;
};

}  // namespace

Damaged damaged_bundle(uint32_t seed) {
    return Damage(seed).take();
}

}  // namespace marlo_fw::test
