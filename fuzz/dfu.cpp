// SPDX-License-Identifier: Apache-2.0
// The receive path of the firmware download: packets, hang-ups, failed opens and sends, sessions
// begun and ended, in any order. Packets have at most the 44 bytes of the longest message; a longer
// one ends the process, as it must.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>

#include "fuzz/harness.h"
#include "fwupdater/marlo_fw_updater.h"

using fuzz::Bytes;
using fuzz::must;
using fuzz::platform;
using fuzz::word_at;

namespace {

constexpr const char* kTable = R"(<config>
  <mbr><Partition_1_SBL_Offset>16</Partition_1_SBL_Offset></mbr>
  <Bank_1><Partition_table>
    <Partition><img_id>3</img_id><Offset>4096</Offset><size>512</size>
      <Image_Path>apps.mbn</Image_Path>
      <HostSpecificInfo><PartType>1</PartType></HostSpecificInfo></Partition>
    <Partition><img_id>4</img_id><Offset>8192</Offset><size>1024</size><Image_Path></Image_Path>
      <HostSpecificInfo><PartType>2</PartType></HostSpecificInfo></Partition>
    <Partition><img_id>5</img_id><Image_Path>missing.mbn</Image_Path></Partition>
  </Partition_table></Bank_1>
</config>)";

constexpr const char* kDoneProperty = "persist.vendor.zt_aon.dfu_update";

struct ImageFile {
    uint32_t id;
    const char* name;
    size_t size;
};
constexpr ImageFile kImages[] = {
    {1, "flash.bin", 300}, {2, "partition_1.bin", 5}, {3, "apps.mbn", 100}};

constexpr uint32_t kKnownIds[] = {0, 1, 2, 3, 3, 3, 4, 5, 5, 5, 7, 8, 9, 11, 13, 14, 14, 14, 15};

Bytes image(uint32_t id) {
    for (const ImageFile& file : kImages) {
        if (file.id == id) {
            return fuzz::pattern(file.size);
        }
    }
    return {};
}

class Channel;

// What the harness knows of the session.
struct Session {
    Channel* channel = nullptr;
    bool opens = true;
    std::deque<int> results;    // of the next sends
    std::string done_property;  // as what was sent leaves it
    int sends = 0;              // of this step
};

void check_fragment(std::span<const uint8_t> message) {
    const uint32_t offset = word_at(message, 20);
    const uint32_t length = word_at(message, 24);
    const std::span<const uint8_t> fragment = message.subspan(28);
    if (fragment.empty()) {
        return;  // without its image, or without a byte of it
    }
    must(fragment.size() == length, "a fragment of %u bytes has %zu", length, fragment.size());
    must(length <= 16U * 1024 * 1024, "a fragment of %u bytes is sent", length);
    const Bytes whole = image(word_at(message, 16));
    must(offset < whole.size(), "a fragment from %u of %zu bytes", offset, whole.size());
    const size_t inside = std::min(fragment.size(), whole.size() - offset);
    must(std::memcmp(fragment.data(), whole.data() + offset, inside) == 0,
         "%zu bytes at %u of image %u are sent wrong", inside, offset, word_at(message, 16));
    must(fuzz::all_zero(fragment.subspan(inside)), "what is behind the image is not zero");
}

void check_image_info(std::span<const uint8_t> message) {
    const uint32_t size = word_at(message, 20);
    must(size == 0 || size == image(word_at(message, 16)).size(), "image %u has not %u bytes",
         word_at(message, 16), size);
}

void check_special_operation(std::span<const uint8_t> message) {
    const uint32_t offset = word_at(message, 20);
    const uint32_t length = word_at(message, 24);
    if (word_at(message, 16) == dfu::SPCL_OP_GET_DFU_STATE) {
        must(offset == 0 && length == 0, "the state is asked for with %u %u", offset, length);
        return;
    }
    must((offset == 4096 && length == 512) || (offset == 8192 && length == 1024),
         "no partition has %u bytes at %u to erase", length, offset);
}

void check_message(std::span<const uint8_t> message) {
    must(message.size() >= 28, "a message of %zu bytes", message.size());
    const uint32_t id = word_at(message, 0);
    must(word_at(message, 4) == 0x0A0B0C0D, "wrong magic in message %u", id);
    must(word_at(message, 8) == message.size(), "message %u of %zu bytes says %u", id,
         message.size(), word_at(message, 8));
    const uint8_t no_crc[4] = {};
    const uint32_t crc = fuzz::crc_of({message.first(12), no_crc, message.subspan(16)});
    must(word_at(message, 12) == crc, "wrong CRC in message %u", id);
    const size_t expected_size = id == dfu::MG_UPDT_REQ ? 36 : 28;
    must(id == dfu::IMG_OFFSET_RESP || message.size() == expected_size, "message %u has %zu bytes",
         id, message.size());
    switch (id) {
        case dfu::MG_UPDT_REQ:
        case dfu::SESSION_END_RESP:
            return;
        case dfu::IMG_INFO_RESP:
            return check_image_info(message);
        case dfu::IMG_OFFSET_RESP:
            return check_fragment(message);
        case dfu::DFU_SPCL_OPERATION_REQ:
            return check_special_operation(message);
        default:
            must(false, "message %u is sent", id);
    }
}

// The transport, as far as the updater can tell.
class Channel : public glink_interface {
  public:
    explicit Channel(Session& session) : session_(session) { session_.channel = this; }
    ~Channel() override { session_.channel = nullptr; }

    int register_cb(glink_data_callback, glink_error_callback err_cb) override {
        error_cb_ = std::move(err_cb);
        return 0;
    }
    int send_request(unsigned char* buf, unsigned int len) override {
        check_message({buf, len});
        ++session_.sends;
        int result = static_cast<int>(len);
        if (!session_.results.empty()) {
            result = session_.results.front();
            session_.results.pop_front();
        }
        const uint32_t id = word_at({buf, len}, 0);
        if (result >= 1 && (id == dfu::MG_UPDT_REQ || id == dfu::SESSION_END_RESP)) {
            session_.done_property = id == dfu::MG_UPDT_REQ ? "0" : "1";
        }
        report(result);
        return result;
    }
    int read_response(unsigned char*, unsigned int) override { return -1; }
    int connect_interface(bool) override {
        if (session_.opens) {
            return 0;
        }
        const glink_error_callback error_cb = error_cb_;
        error_cb(GLINK_OPEN_FAILED);  // deletes this object
        return -1;
    }
    void disconnect_interface() override {}

  private:
    // A failed send inside the error callback is not reported again.
    void report(int result) {
        if (result < 0 && !reporting_) {
            reporting_ = true;
            error_cb_(GLINK_IO_ERROR);
            reporting_ = false;
        }
    }

    Session& session_;
    glink_error_callback error_cb_;
    bool reporting_ = false;
};

class Listener : public marlo_fw_updater::Callback {
  public:
    void handleDFUResponse(std::string message, Status status) override {
        must(!message.empty() && status <= STATUS_CHANNEL_ERROR, "a report with status %u", status);
    }
    void handleSHMResponse(std::string message, Status) override {
        must(false, "a report of misc data: %s", message.c_str());
    }
    void onDFUStateRecived(DFUState) override {}
};

void make_files(fuzz::Input& input) {
    const std::string directory = fw_image_dir;
    if (!input.flip()) {
        platform().file(directory + partition_table_file, kTable);
    }
    for (const ImageFile& file : kImages) {
        const bool is_fixed = file.id < 3;
        platform().file(directory + (is_fixed ? "./" : "") + file.name,
                        fuzz::text_of(fuzz::pattern(file.size)));
    }
}

class Download {
  public:
    explicit Download(fuzz::Input& input) : input_(input) { make_files(input); }

    void run() {
        begin_session();
        for (steps_ = 1; !input_.empty(); ++steps_) {
            session_.sends = 0;
            step();
            must(session_.sends <= 2, "%d messages are sent in one step", session_.sends);
            must(platform().property(kDoneProperty) == session_.done_property, "the property is %s",
                 platform().property(kDoneProperty).c_str());
        }
        must(fuzz::log_lines() <= 64 * steps_, "%zu log lines", fuzz::log_lines());
        must(platform().open_descriptors() == 0, "a file is left open");
    }

  private:
    void step() {
        switch (input_.below(16)) {
            case 0:
                session_.results.push_back(
                    input_.pick({0, 1, 27, -EIO, -EBUSY, -ENODEV, -ENOMEM, -1}));
                break;
            case 1:
                session_.opens = !input_.flip();
                begin_session();
                break;
            case 2:
                updater_.eraseAllRAWPartitionAndContinueDownload();
                break;
            case 3:
                updater_.getCurrentDFUStateAndContinueDownload();
                break;
            case 4:
                updater_.conn_error_cb(input_.pick({GLINK_IO_ERROR, GLINK_SSR, GLINK_OPEN_FAILED}));
                break;
            case 5:
                updater_.endMarloDownloader();
                must(session_.channel == nullptr, "the transport outlives the session");
                break;
            case 6:
            case 7:
            case 8:
                receive(input_.take(input_.below(dfu::DFU_RX_BUFFER_SIZE + 1)));
                break;
            default:
                receive_request();
        }
    }

    void begin_session() { updater_.startMarloDownloaderWithCallback(&listener_); }

    void receive_request() {
        Bytes message(16);
        message[0] = static_cast<uint8_t>(input_.pick(kKnownIds));
        const uint32_t words = input_.below(8);
        const bool are_small = input_.flip();
        for (uint32_t index = 0; index < words; ++index) {
            fuzz::append_word(message, are_small ? input_.below(256) : input_.word());
        }
        receive(message);
    }

    void receive(std::span<const uint8_t> packet) {
        fuzz::ExactCopy copy(packet);
        updater_.conn_res_event_cb(copy.data(), copy.size());
    }

    fuzz::Input& input_;
    Session session_;
    Listener listener_;
    size_t steps_ = 0;
    marlo_fw_updater updater_{
        [this](glink_conn_config) { return std::make_unique<Channel>(session_); }};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::begin();
    fuzz::Input input(data, size);
    Download(input).run();
    return 0;
}
