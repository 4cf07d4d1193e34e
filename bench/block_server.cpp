// SPDX-License-Identifier: Apache-2.0
#include "bench/block_server.h"

#include <fcntl.h>
#include <libdeflate.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/block_coprocessor.h"
#include "bench/channel_open.h"
#include "bench/child_process.h"
#include "rma/backing_file.h"
#include "rma/marlo_rma.h"
#include "rma/rma_messages.h"
#include "wire/little_endian.h"

namespace bench {
namespace {

using wire::put_word_at;
using wire::word_at;

std::string partition_path(const std::filesystem::path& directory) {
    return directory / backing_file_name(kPartitionId, 0, kPartitionId);
}

class DaemonServer : public BlockServer {
  public:
    DaemonServer(int channel, const std::filesystem::path& directory) {
        open_instead(backing_file_directory, directory.string() + "/");
        offer_channel(kRmaChannel, channel);
        service_.startMarloRmaConnection();
        offer_channel(kRmaChannel, -1);
    }

  private:
    marlo_rma service_;
};

class BareServer : public BlockServer {
  public:
    BareServer(int channel, const std::filesystem::path& directory)
        : channel_(channel), file_(::open(partition_path(directory).c_str(), O_RDWR | O_CLOEXEC)) {
        if (file_.get() < 0) {
            throw std::runtime_error(partition_path(directory) + ": " + std::strerror(errno));
        }
        thread_ = std::thread([this] { serve(); });
    }
    ~BareServer() override {
        ::shutdown(channel_, SHUT_RDWR);
        thread_.join();
    }

  private:
    void serve() {
        while (serve_one()) {
        }
    }

    bool serve_one() {
        pollfd entry = {channel_, POLLIN, 0};
        ::poll(&entry, 1, -1);
        if (::read(channel_, request_.data(), kFirstPacketBytes) <= 0) {
            return false;
        }
        const uint32_t command = word_at(request_, 8);
        if (command == rma::CONNECT) {
            return answer(rma::CONNECT_RESPONSE, 36);
        }
        std::memcpy(answer_.data() + 12, request_.data() + 12, 16);
        const uint32_t offset = word_at(request_, 20);
        return command == rma::DATA_READ ? read_block(offset) : write_block(offset);
    }

    bool read_block(uint32_t offset) {
        return ::pread(file_.get(), answer_.data() + kBlockHeadBytes, kBlockBytes, offset) > 0 &&
               answer(rma::DATA_READ_RESPONSE, answer_.size());
    }

    bool write_block(uint32_t offset) {
        return ::read(channel_, request_.data() + kFirstPacketBytes,
                      request_.size() - kFirstPacketBytes) > 0 &&
               ::pwrite(file_.get(), request_.data() + kBlockHeadBytes, kBlockBytes, offset) > 0 &&
               ::fdatasync(file_.get()) == 0 && answer(rma::DATA_WRITE_RESPONSE, kBlockHeadBytes);
    }

    bool answer(uint32_t command, size_t size) {
        put_word_at(answer_, 4, static_cast<uint32_t>(size));
        put_word_at(answer_, 8, command);
        put_word_at(answer_, 28, rma::DONE);
        put_word_at(answer_, 0, libdeflate_crc32(0, answer_.data() + 4, size - 4));
        return ::write(channel_, answer_.data(), size) > 0;
    }

    int channel_;
    Descriptor file_;
    std::array<uint8_t, kBlockHeadBytes + kBlockBytes> request_{};
    std::array<uint8_t, kBlockHeadBytes + kBlockBytes> answer_{};
    std::thread thread_;
};

}  // namespace

void make_partition(const std::filesystem::path& directory) {
    const std::string path = partition_path(directory);
    const Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    const std::vector<uint8_t> block(kBlockBytes);
    bool is_whole = file.get() >= 0;
    for (uint32_t number = 0; is_whole && number < kPartitionBlocks; ++number) {
        is_whole = ::write(file.get(), block.data(), block.size()) == kBlockBytes;
    }
    if (!is_whole || ::fsync(file.get()) != 0) {
        throw std::runtime_error(path + ": " + std::strerror(errno));
    }
}

std::unique_ptr<BlockServer> serve_by_daemon(int channel, const std::filesystem::path& directory) {
    return std::make_unique<DaemonServer>(channel, directory);
}

std::unique_ptr<BlockServer> serve_barely(int channel, const std::filesystem::path& directory) {
    return std::make_unique<BareServer>(channel, directory);
}

}  // namespace bench
