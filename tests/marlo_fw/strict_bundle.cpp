// SPDX-License-Identifier: Apache-2.0
#include "tests/marlo_fw/strict_bundle.h"

#include <charconv>
#include <optional>
#include <regex>
#include <sstream>

#include "tests/marlo_fw/test_bundle.h"

namespace fs = std::filesystem;

namespace marlo_fw::test {
namespace {

void require(bool is_so, const std::string& what) {
    if (!is_so) throw NotStrict(what);
}

const Element& child(const Element& parent, std::string_view name) {
    const Element* found = parent.only(name);
    require(found != nullptr, "no " + std::string(name));
    return *found;
}

std::string text_of(const Element& element) {
    require(element.children.empty(), "children in " + element.name);
    return element.text;
}

int64_t number_of(const Element& element, int64_t least) {
    std::istringstream words(text_of(element));
    std::string word;
    std::string another;
    int64_t number = 0;
    require(static_cast<bool>(words >> word) && !(words >> another), "no number");
    const char* end = word.data() + word.size();
    const bool is_number = std::from_chars(word.data(), end, number).ptr == end;
    require(is_number && number >= least && number <= INT32_MAX, "no number: " + word);
    return number;
}

uint32_t number_of(const Element& element) {
    return static_cast<uint32_t>(number_of(element, 0));
}

// A link inside the directory comes along with it.
void require_inside(const fs::path& directory, const fs::path& file) {
    const fs::path relative = fs::canonical(file).lexically_relative(fs::canonical(directory));
    require(*relative.begin() != "..", "outside: " + file.string());
}

std::string image_of(const fs::path& directory, const std::string& name) {
    require(name.front() != '/' && name.find("..") == name.npos, "odd path");
    require(fs::is_regular_file(directory / name), "no file: " + name);
    require_inside(directory, directory / name);
    std::string bytes = contents(directory / name);
    require(!bytes.empty(), "empty: " + name);
    return bytes;
}

std::string text_file(const fs::path& file) {
    require(fs::is_regular_file(file), "no file: " + file.string());
    require_inside(file.parent_path(), file);
    return contents(file);
}

uint64_t number_at(const std::string& bytes, uint64_t at, size_t width) {
    require(at <= bytes.size() && width <= bytes.size() - at, "outside");
    uint64_t number = 0;
    for (size_t index = width; index-- > 0;) {
        number = number << 8 | static_cast<unsigned char>(bytes[at + index]);
    }
    return number;
}

// Only the 32-bit layout: the test's boot loader has it.
void fill_in_block(std::string& flash, uint32_t loader) {
    const auto at = [&](uint64_t offset, size_t width) {
        return number_at(flash, loader + offset, width);
    };
    require(at(0, 4) == 0x464C457F && at(4, 1) == 1 && at(5, 1) == 1 && at(42, 2) == 32, "no ELF");
    const uint64_t table = at(28, 4);
    const uint64_t table_end = table + at(44, 2) * 32;
    std::optional<uint64_t> block;
    for (uint64_t entry = table; entry < table_end; entry += 32) {
        const uint64_t size = at(entry + 16, 4);
        const bool is_used = at(entry, 4) != 0 && size != 0;
        require(!is_used || loader + at(entry + 4, 4) + size <= flash.size(), "segment outside");
        at(entry + 28, 4);
        if (at(entry + 8, 4) == 0x20147FA4) {
            require(!block, "two blocks");
            require(at(entry, 4) == 1, "not loaded");
            block = at(entry + 4, 4);
            require(size >= 20, "small segment");
        }
    }
    require(block.has_value(), "no block");
    require(*block >= 52 && (*block >= table_end || *block + 20 <= table), "over the headers");
    at(*block + 16, 4);
    flash.replace(loader + *block, 20, word(0) + word(0x22) + word(~0U) + word(~0U) + word(0));
}

const std::map<std::string, std::regex>& version_forms() {
    static const auto forms = [] {
        std::map<std::string, std::regex> made;
        for (const std::string key : {"apps_cochip", "dsp_cochip", "btfw_cochip"}) {
            made.emplace(key, "\"" + key + "\"\\s*:\\s*\"([^\"\\\\]*)\"");
        }
        return made;
    }();
    return forms;
}

class Reader {
  public:
    explicit Reader(fs::path directory) : directory_(std::move(directory)) {}

    StrictBundle read() {
        const Element root = read_xml(text_file(directory_ / kTable));
        root.has_only({"mbr", "Bank_1"});
        child(root, "mbr").has_only({"Partition_1_SBL_Offset"});
        const uint32_t loader = number_of(child(child(root, "mbr"), "Partition_1_SBL_Offset"));
        child(root, "Bank_1").has_only({"Partition_table"});
        const Element& table = child(child(root, "Bank_1"), "Partition_table");
        table.has_only({"no_of_partitions", "Partition"});
        uint32_t count = 0;
        for (const Element& element : table.children) {
            if (element.name != "Partition") continue;
            read_partition(element);
            ++count;
        }
        require(count != 0, "no partitions");
        const Element* claimed = table.only("no_of_partitions");
        require(claimed == nullptr || number_of(*claimed) == count, "another count");
        add_image(1, image_of(directory_, "flash.bin"));
        fill_in_block(result_.images.at(1), loader);
        add_image(2, image_of(directory_, "partition_1.bin"));
        read_versions();
        return result_;
    }

  private:
    void add_image(uint32_t id, std::string bytes) {
        require(result_.images.emplace(id, std::move(bytes)).second, "an id used twice");
    }

    void read_partition(const Element& element) {
        element.has_only(
            {"img_id", "Offset", "size", "Partition_Name", "Image_Path", "HostSpecificInfo"});
        text_of(child(element, "Partition_Name"));
        const uint32_t id = number_of(child(element, "img_id"));
        const uint32_t offset = number_of(child(element, "Offset"));
        const uint32_t size = number_of(child(element, "size"));
        const Element* path = element.only("Image_Path");
        const std::string file = path == nullptr ? "" : text_of(*path);
        add_image(id, file.empty() ? "" : image_of(directory_, file));
        require(result_.images.at(id).size() <= size, "too large");
        for (const auto& [begin, end] : ranges_) {
            require(offset >= end || offset + size <= begin || size == 0, "ranges overlap");
        }
        if (size != 0) ranges_.emplace_back(offset, offset + size);
        const Element* host = element.only("HostSpecificInfo");
        if (host != nullptr) host->has_only({"PartType"});
        const Element* type = host == nullptr ? nullptr : host->only("PartType");
        require((host == nullptr) == (type == nullptr), "no type");
        if (type != nullptr && number_of(*type, INT32_MIN) != 0 && size != 0) {
            result_.erasures.emplace_back(offset, size);
        }
    }

    void read_versions() {
        std::istringstream text(text_file(directory_ / kVersionText));
        for (std::string line; std::getline(text, line);) {
            require(line.size() <= 4096, "a long line");
            for (const auto& [key, form] : version_forms()) {
                const size_t at = line.find(key);
                if (at == line.npos) continue;
                require(line.find(key, at + 1) == line.npos, "twice " + key);
                require(line.find_first_of("/#") > at, "a comment?");
                std::smatch match;
                require(std::regex_search(line, match, form), "no value of " + key);
                const std::string value = match[1];
                require(!value.empty() && value.size() < 100 && value.find('\0') == value.npos,
                        "odd value of " + key);
                require(result_.versions.emplace(key, value).second, "two of " + key);
            }
        }
        require(result_.versions.size() == 3, "not all versions");
    }

    fs::path directory_;
    StrictBundle result_;
    std::vector<std::pair<uint64_t, uint64_t>> ranges_;
};

}  // namespace

StrictBundle read_strictly(const fs::path& directory) {
    return Reader(directory).read();
}

}  // namespace marlo_fw::test
