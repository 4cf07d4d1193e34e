// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "comhandler/wear_firmware_info.h"
#include "fwupdater/dfu_messages.h"
#include "fwupdater/file_bytes.h"
#include "fwupdater/message_buffer.h"
#include "fwupdater/misc_data_loading.h"
#include "fwupdater/misc_data_messages.h"
#include "fwupdater/partition_table.h"
#include "fwupdater/platform_info.h"
#include "fwupdater/report_text.h"
#include "fwupdater/resource_list.h"
#include "fwupdater/version_line.h"
#include "glink/glink_interface.h"

// Where the images and the table that lists them are.
inline constexpr const char* fw_image_dir = "/vendor/firmware_mnt/image/";
inline constexpr const char* partition_table_file = "./partition_table.xml";

// Updates the co-processor's firmware: compares versions, loads the images, and answers the
// download protocol (fwupdater/dfu_messages.h) on the channel "glink_pkt_marlo_dfu". To a
// co-processor without flash it pushes misc data instead (fwupdater/misc_data_messages.h).
//
// A session: startMarloDownloaderWithCallback, then eraseAllRAWPartitionAndContinueDownload, both
// on the daemon's thread. From then on each message of the co-processor is answered on the
// transport's reader thread, where the callback is told of every step.
//
// A misc-data transfer: startMarloSHMUpdater, marloMiscDataUpdateReq, endMarloSHMUpdater, all on
// one thread. There is one transport: a transfer, another transfer and a download must not overlap.
class marlo_fw_updater {
  public:
    // Told of every step, on the thread that takes it: the daemon's or the reader thread. Not
    // owned; must live as long as the updater may report. No lock is held during a call.
    class Callback {
      public:
        enum Status : uint32_t {
            STATUS_STARTED = 0,
            STATUS_INFO = 1,
            STATUS_ERASE_DONE = 2,  // all partitions erased, no download follows; transfer closed
            STATUS_ERROR = 3,
            STATUS_SUCCESS = 4,
            STATUS_ENDED = 5,
            STATUS_CHANNEL_ERROR = 6,  // the channel could not be opened
        };
        virtual void handleDFUResponse(std::string message, Status status) = 0;
        virtual void handleSHMResponse(std::string message, Status status) = 0;
        // The co-processor's state, when it was asked for without continuing a download.
        virtual void onDFUStateRecived(DFUState state) = 0;
        virtual ~Callback() = default;
    };

    // Sets the process-wide log tag and level: to be constructed before other threads exist.
    marlo_fw_updater();
    explicit marlo_fw_updater(TransportFactory make_transport);
    ~marlo_fw_updater();
    marlo_fw_updater(const marlo_fw_updater&) = delete;
    marlo_fw_updater& operator=(const marlo_fw_updater&) = delete;

    // --- Version check (any thread; fw_info may be null) ---

    // 0: the running firmware is the shipped one; -1: it is not, or nothing is known of it.
    int32_t fw_version_check(wear_firmware_info_t* fw_info);
    // 0: the variant without flash, which runs from PSRAM; -1: any other, or nothing is known.
    int32_t is_psram_noflash(wear_firmware_info_t* fw_info);
    // The shipped versions; empty texts where there is no version file.
    marlo_meta_info readMarloMetaBuildInfo();

    // --- Images (the thread that starts a session) ---

    // Appends an image per partition and the two fixed images. 1, or 0 with nothing loaded when
    // the table cannot be read or describes no bank.
    uint32_t parsePartitionAndSaveFw(const std::string& path);
    // The file below the image directory; empty when it cannot be read.
    FileBytes readFile(const std::string& path);
    // What the host's kernel says of the platform; defaults where it says nothing.
    platform_info getPlatformInfo();
    // Fills the block of the boot loader inside a flash image; leaves an image without one alone.
    void updatePlatformInfo(std::span<uint8_t> image, platform_info info);
    bool checkForFlashbin();  // whether image 1 is loaded and not empty
    int truncateFwResources();

    // --- Session (the daemon's thread) ---

    // Opens the channel, unless it was opened before, and loads the images. Sends nothing. When
    // the channel cannot be opened the callback hears STATUS_CHANNEL_ERROR, STATUS_ENDED.
    void startMarloDownloaderWithCallback(Callback* cb);
    void eraseAllRAWPartitionAndContinueDownload();
    void getCurrentDFUStateAndContinueDownload();
    // Empties the images and deletes the transport. Not on the reader thread of a running one.
    void endMarloDownloader();

    // --- Called by the transport (its reader thread; errors also on a sender's thread) ---

    // One message, at most DFU_RX_BUFFER_SIZE bytes: a longer one ends the process.
    void conn_res_event_cb(const uint8_t* data, uint32_t length);
    void conn_error_cb(glink_interface_error error);

    // --- Steps of the protocol (either thread) ---

    void marloFirmwareUpdateReq();
    void sendmarloImageInfoRes(uint32_t image_id);
    void sendmarloImageOffsetRes(uint32_t image_id, uint32_t offset, uint32_t fragment_len);
    void sendSessionEndRes();
    void eraseAllRAWPartition();
    void sendRAWFlashEraseReq(uint32_t offset, uint32_t length);
    void sendGetDFUStateReq();
    void handleDFUSplCmdResposnse(dfu_spcl_cmd_response* response);

    // Frames and sends one message. The transport's result: 1 or more when it was sent; 0 without
    // a transport or without memory for the message.
    int send_aon_request(uint32_t command_id, const uint8_t* payload, uint32_t payload_length);

    // --- Misc data (one thread for all of a transfer) ---

    // Appends a resource per file that can be read. Always 1.
    uint32_t loadAndSaveMiscFw();
    int truncateMiscFwResources();

    // Opens the channel, unless there is a transport already, which is then used as it is, and
    // loads the resources. Where it cannot be opened the callback hears STATUS_CHANNEL_ERROR; the
    // transfer then fails.
    void startMarloSHMUpdater(Callback* cb);
    // Sends every resource, each up to three times, and the finish packet; waits up to 2 s for each
    // answer. STATUS_ERROR when the last resource has failed. STATUS_SUCCESS only when sending the
    // finish packet gives 0, where a transport gives the packet's size: a transfer that went well
    // ends with endMarloSHMUpdater's STATUS_ERASE_DONE.
    void marloMiscDataUpdateReq();
    // Empties the resources and deletes the transport.
    void endMarloSHMUpdater();

    // One resource with all its packets. 1 or more when the co-processor has confirmed the
    // checksum; 0 when it has, but nothing was counted as sent; -1 on failure.
    int prepare_send_data_buffer(uint16_t type, std::span<const uint8_t> data,
                                 glink__shm_packet_response* resp);
    int send_start_data_buffer(uint16_t type, std::span<const uint8_t> data,
                               glink__shm_packet_response* resp);
    int send_crc_data_buffer(uint16_t type, std::span<const uint8_t> data,
                             glink__shm_packet_response* resp);
    int send_finish_data_buffer(glink__shm_packet_response* resp);
    // One packet and its answer, which stays in `resp`; null: the answer is not waited for. The
    // transport's result of sending; -1 without a transport, without an answer, or when the answer
    // is an error.
    int send_data_to_aon(std::span<uint8_t> packet, glink__shm_packet_response* resp);

    double timeTaken();  // whole seconds of wall clock since the session or its update began

  private:
    // The transport. Null, and a log line of `function`, where there is none.
    glink_interface* transport_for(const char* function);
    void delete_transport();
    // The report that ends `function`: a runtime error of the callback stays here.
    static void last_report(const char* function, const std::function<void()>& report_it);

    int send_aon_request(uint32_t command_id, const dfu::Payload& payload);
    uint32_t load_images(const std::string& path);
    void load_partitions(const PartitionTable& table);
    void append_fixed_image(int32_t img_id, const char* name, const char* file, FileBytes data);
    void report_message(const dfu::ReceivedMessage& message, const char* name);
    void handle_image_info_request(uint32_t image_id);
    bool begin_to_continue(const char* function);
    void handle_state(const dfu_spcl_cmd_response& response);
    void continue_from(const dfu_spcl_cmd_response& response);
    MiscResources misc_resources_now();
    int send_misc_resource(const marlo_misc_resource& resource,
                           glink__shm_packet_response& response);
    bool send_data_packets(uint16_t type, std::span<const uint8_t> data,
                           misc_data::DataCutter& cutter, glink__shm_packet_response* resp);

    // The text is built only if somebody is told.
    template <typename... Pieces>
    void report(Callback::Status status, const Pieces&... pieces) {
        report_to(&Callback::handleDFUResponse, status, pieces...);
    }
    template <typename... Pieces>
    void report_misc_data(Callback::Status status, const Pieces&... pieces) {
        report_to(&Callback::handleSHMResponse, status, pieces...);
    }
    template <typename... Pieces>
    void report_to(void (Callback::*handler)(std::string, Callback::Status),
                   Callback::Status status, const Pieces&... pieces) {
        if (Callback* sink = callback.load()) {
            (sink->*handler)(report_text::join(pieces...), status);
        }
    }

    int32_t log_level = 4;
    ResourceList fw_resources;
    MiscResources misc_resources;  // in load order; guarded by misc_resources_lock_
    int32_t tbx_elf_offset = 0;    // where the boot loader's ELF image begins in flash.bin
    marlo_meta_info meta_info;
    std::atomic<time_t> start_time = 0;
    std::atomic<bool> continue_download = false;  // a reported state is acted upon; never cleared
    std::atomic<bool> update_finished = false;    // the session's end has been answered
    std::atomic<Callback*> callback = nullptr;
    std::atomic<glink_interface*> glinkInterface = nullptr;  // owned

    std::mutex misc_resources_lock_;
    MessageBuffer message_buffer_;
    TransportFactory make_transport_;
};
