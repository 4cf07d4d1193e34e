// SPDX-License-Identifier: Apache-2.0
// The images of a session read into memory, beside cat.
#include <chrono>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/child_process.h"
#include "bench/firmware.h"
#include "bench/groups.h"
#include "bench/temporary_directory.h"

namespace fs = std::filesystem;

namespace bench {
namespace {

constexpr int kPartitions = 8;
constexpr uint64_t kMiB = 1 << 20;

void write_image(const fs::path& path, uint64_t size) {
    const std::vector<uint8_t> bytes = made_up_image(size);
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(size));
    file.close();
    if (!file) {
        throw std::runtime_error(path.string() + " cannot be written");
    }
}

// What the device ships: a table, its images and the two fixed ones.
class LargeFirmware {
  public:
    LargeFirmware(const fs::path& root, uint64_t bytes) {
        const fs::path directory = root / "vendor/firmware_mnt/image";
        fs::create_directories(directory);
        const uint64_t size = bytes / (kPartitions + 2);
        std::ofstream table(directory / "partition_table.xml");
        table << "<config><Bank_1><Partition_table>";
        for (int partition = 0; partition < kPartitions; ++partition) {
            const std::string name = "partition" + std::to_string(partition) + ".mbn";
            table << "<Partition><img_id>" << partition + 3 << "</img_id><Image_Path>" << name
                  << "</Image_Path></Partition>";
            add(directory / name, size);
        }
        table << "</Partition_table></Bank_1></config>";
        add(directory / "flash.bin", size);
        add(directory / "partition_1.bin", bytes - bytes_);
    }
    const std::vector<std::string>& files() const { return files_; }
    uint64_t bytes() const { return bytes_; }

  private:
    void add(const fs::path& path, uint64_t size) {
        write_image(path, size);
        files_.push_back(path.string());
        bytes_ += size;
    }

    std::vector<std::string> files_;
    uint64_t bytes_ = 0;
};

struct Load {
    double seconds = 0;
    double before = 0;  // resident bytes
    double peak = 0;
};

Load load(const fs::path& root) {
    const Descriptor output = make_memory_file();
    ChildProcess loader({"env", "MARLO_ROOT=" + root.string(), MARLO_IMAGE_LOADER},
                        {.output = output.get()});
    loader.finish();
    constexpr double kKiB = 1024;
    Load load;
    std::istringstream text(contents_of(output));
    if (!(text >> load.seconds >> load.before >> load.peak)) {
        throw std::runtime_error(MARLO_IMAGE_LOADER " tells no figures");
    }
    load.before *= kKiB;
    load.peak *= kKiB;
    return load;
}

double seconds_of_cat(const std::vector<std::string>& files) {
    std::vector<std::string> words = {"cat"};
    words.insert(words.end(), files.begin(), files.end());
    const auto begin = std::chrono::steady_clock::now();
    ChildProcess(words, {}).finish();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

Figure memory_figure(const char* name, const std::vector<double>& bytes) {
    return {"loading", name, "MiB", median(bytes) / static_cast<double>(kMiB)};
}

}  // namespace

Figures loading(const Effort& effort) {
    const TemporaryDirectory root;
    const LargeFirmware firmware(root.path(), (effort.is_quick ? 8 : 256) * kMiB);
    std::vector<double> whole;
    std::vector<double> added;
    const auto ours = [&] {
        const Load found = load(root.path());
        whole.push_back(found.peak - static_cast<double>(firmware.bytes()));
        added.push_back(whole.back() - found.before);
        return found.seconds * 1000;
    };
    const Pair pair =
        pair_of(effort, ours, [&] { return seconds_of_cat(firmware.files()) * 1000; });
    const std::string size = std::to_string(firmware.bytes() / kMiB) + " MiB of images";
    Figures figures = {{"loading", size + ", page cache warm", "ms", pair.ours,
                        reference("cat FILES >/dev/null", pair), at_most(1.3)},
                       memory_figure("peak memory minus images, whole process", whole),
                       memory_figure("the same minus the memory before loading", added)};
    figures[1].goal = at_most(2);
    return figures;
}

}  // namespace bench
