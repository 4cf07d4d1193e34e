// SPDX-License-Identifier: Apache-2.0
// The receive path of the firmware download: packets, hang-ups, failed opens and sends, sessions
// begun and ended, in any order. What each must lead to is worked out a second time, in
// DownloadModel. Packets have at most the 44 bytes of the longest message; a longer one ends the
// process, as it must.
#include <cerrno>
#include <deque>

#include "fuzz/dfu_model.h"
#include "fuzz/harness.h"
#include "fwupdater/marlo_fw_updater.h"

using fuzz::Bytes;
using fuzz::must;
using fuzz::platform;

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

constexpr uint32_t kKnownIds[] = {0, 1, 2, 3, 3, 3, 4, 5, 5, 5, 7, 8, 9, 11, 13, 14, 14, 14, 15};

// What the harness knows of the session.
struct Session {
    DownloadModel model;
    bool opens = true;
    std::deque<int> results;  // of the next sends
};

// The transport, as far as the updater can tell.
class Channel : public glink_interface {
  public:
    explicit Channel(Session& session) : session_(session) { session_.model.has_channel = true; }
    ~Channel() override { session_.model.has_channel = false; }

    int register_cb(glink_data_callback, glink_error_callback err_cb) override {
        error_cb_ = std::move(err_cb);
        return 0;
    }
    int send_request(unsigned char* buf, unsigned int len) override {
        const std::span<const uint8_t> message(buf, len);
        session_.model.take(message);
        int result = static_cast<int>(len);
        if (!session_.results.empty()) {
            result = session_.results.front();
            session_.results.pop_front();
        }
        if (result >= 1) {
            session_.model.was_sent(message);
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
            session_.model.channel_fails();
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

// Whether with the partition table.
bool make_files(fuzz::Input& input) {
    const std::string directory = fw_image_dir;
    const bool has_table = !input.flip();
    if (has_table) {
        platform().file(directory + partition_table_file, kTable);
    }
    for (const DownloadModel::ImageFile& file : DownloadModel::kImages) {
        const bool is_fixed = file.id < 3;
        platform().file(directory + (is_fixed ? "./" : "") + file.name,
                        fuzz::text_of(fuzz::pattern(file.size)));
    }
    return has_table;
}

class Download {
  public:
    explicit Download(fuzz::Input& input) : input_(input), has_table_(make_files(input)) {}

    void run() {
        begin_session();
        for (steps_ = 1; !input_.empty(); ++steps_) {
            step();
            session_.model.finish_step();
            must(platform().property(kDoneProperty) == session_.model.done_property,
                 "the property is %s", platform().property(kDoneProperty).c_str());
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
                session_.model.erase();
                updater_.eraseAllRAWPartitionAndContinueDownload();
                break;
            case 3:
                session_.model.ask_state();
                updater_.getCurrentDFUStateAndContinueDownload();
                break;
            case 4:
                fail_channel(input_.pick({GLINK_IO_ERROR, GLINK_SSR, GLINK_OPEN_FAILED}));
                break;
            case 5:
                session_.model.drop_images();
                updater_.endMarloDownloader();
                must(!session_.model.has_channel, "the transport outlives the session");
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

    void begin_session() {
        session_.model.load_images(has_table_);
        updater_.startMarloDownloaderWithCallback(&listener_);
    }

    void fail_channel(glink_interface_error error) {
        if (error == GLINK_OPEN_FAILED) {
            session_.model.drop_images();
        } else {
            session_.model.channel_fails();
        }
        updater_.conn_error_cb(error);
    }

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
        session_.model.receive(packet);
        fuzz::ExactCopy copy(packet);
        updater_.conn_res_event_cb(copy.data(), copy.size());
    }

    fuzz::Input& input_;
    const bool has_table_;
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
