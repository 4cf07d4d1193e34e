// SPDX-License-Identifier: Apache-2.0
#include "tools/marlo_fw/daemon_run.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "daemon/marlo_deamon_log.h"
#include "fwupdater/dfu_messages.h"
#include "wire/little_endian.h"

namespace marlo_fw {
namespace {

constexpr uint32_t kPiece = 64 * 1024;  // stays in the processor's cache on its way
constexpr size_t kFields = 12;          // of a fragment's answer, behind the header

using Receiver = std::function<void(std::span<const uint8_t>)>;

class Channel : public glink_interface {
  public:
    explicit Channel(Receiver receiver) : receiver_(std::move(receiver)) {}

    int register_cb(glink_data_callback, glink_error_callback) override { return 0; }
    int send_request(unsigned char* buf, unsigned int len) override {
        receiver_({buf, len});
        return static_cast<int>(len);
    }
    int read_response(unsigned char*, unsigned int) override { return -1; }
    int connect_interface(bool) override { return 0; }
    void disconnect_interface() override {}

  private:
    Receiver receiver_;
};

}  // namespace

DaemonRun::DaemonRun()
    : updater_([this](glink_conn_config) {
          return std::make_unique<Channel>([this](auto message) { take(message); });
      }) {}

void DaemonRun::start_update() {
    take_daemon_log();
    updater_.startMarloDownloaderWithCallback(nullptr);
    loading_log_ = take_daemon_log();
    updater_.eraseAllRAWPartitionAndContinueDownload();
    dfu_spcl_cmd_response success = {};
    success.operation = dfu::SPCL_OP_RAW_FLASH_ERASE;
    while (std::exchange(is_erasing_, false)) updater_.handleDFUSplCmdResposnse(&success);
    success.operation = dfu::SPCL_OP_GET_DFU_STATE;
    success.dfu_state = static_cast<uint32_t>(DFUState::INIT);
    updater_.handleDFUSplCmdResposnse(&success);
    // From here on thousands of fragments are asked for; what they log is no news.
    marlo_deamon_log::set_level(marlo_deamon_log::log_level::error);
}

uint32_t DaemonRun::image_size(uint32_t id) {
    image_size_ = 0;
    updater_.sendmarloImageInfoRes(id);
    return image_size_;
}

void DaemonRun::read_image(uint32_t id, const Receiver& piece) {
    const uint32_t size = image_size(id);
    piece_ = piece;
    for (uint64_t offset = 0; offset < size; offset += kPiece) {
        const auto length = static_cast<uint32_t>(std::min<uint64_t>(kPiece, size - offset));
        updater_.sendmarloImageOffsetRes(id, static_cast<uint32_t>(offset), length);
    }
    piece_ = nullptr;
}

void DaemonRun::take(std::span<const uint8_t> message) {
    const std::span<const uint8_t> payload = message.subspan(dfu::kHeaderSize);
    switch (wire::word_at(message, 0)) {
        case dfu::DFU_SPCL_OPERATION_REQ:
            is_erasing_ = wire::word_at(payload, 0) == dfu::SPCL_OP_RAW_FLASH_ERASE;
            if (is_erasing_) {
                erase_requests_.push_back({wire::word_at(payload, 4), wire::word_at(payload, 8)});
            }
            break;
        case dfu::MG_UPDT_REQ:
            has_begun_ = true;
            break;
        case dfu::IMG_INFO_RESP:
            image_size_ = wire::word_at(payload, 4);
            break;
        case dfu::IMG_OFFSET_RESP:
            if (piece_) piece_(payload.subspan(kFields));
            break;
        default:
            break;
    }
}

}  // namespace marlo_fw
