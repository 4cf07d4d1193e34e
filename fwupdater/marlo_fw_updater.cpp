// SPDX-License-Identifier: Apache-2.0
// The session's frame: construction, transport, end, time.
#include "fwupdater/marlo_fw_updater.h"

#include <stdexcept>
#include <utility>

#include "daemon/marlo_deamon_log.h"
#include "glink/channel_user_log.h"
#include "glink/marlo_glink.h"
#include "platform/os.h"

namespace {

constexpr const char* kChannelName = "glink_pkt_marlo_dfu";

}  // namespace

marlo_fw_updater::marlo_fw_updater() : marlo_fw_updater(make_marlo_glink) {}

marlo_fw_updater::marlo_fw_updater(TransportFactory make_transport)
    : make_transport_(std::move(make_transport)) {
    marlo_deamon_log::set_tag("marlo_fw_updater");
    marlo_deamon_log::set_level(static_cast<marlo_deamon_log::log_level>(log_level));
    MARLO_LOG(debug, "Set log level: %d\n", log_level);
}

marlo_fw_updater::~marlo_fw_updater() {
    delete_transport();
}

void marlo_fw_updater::startMarloDownloaderWithCallback(Callback* cb) {
    callback = cb;
    if (glinkInterface == nullptr) {
        const glink_conn_config config = {kChannelName, dfu::DFU_RX_BUFFER_SIZE};
        glink_interface* transport = make_transport_(config).release();
        glinkInterface = transport;
        channel_user_log::registering(__func__, transport);
        transport->register_cb(
            [this](uint8_t* data, uint32_t length) { conn_res_event_cb(data, length); },
            [this](glink_interface_error error) { conn_error_cb(error); });
        // A failed open deletes the transport from inside this call, through conn_error_cb:
        // nothing may touch it afterwards.
        transport->connect_interface(true);
    }
    truncateFwResources();
    parsePartitionAndSaveFw(std::string(fw_image_dir) + partition_table_file);
}

void marlo_fw_updater::endMarloDownloader() {
    MARLO_LOG(debug, "endMarloDownloader");
    truncateFwResources();
    delete_transport();
    last_report(__func__, [this] { report(Callback::STATUS_ENDED, "MarloDownloader END"); });
}

glink_interface* marlo_fw_updater::transport_for(const char* function) {
    glink_interface* transport = glinkInterface;
    if (transport == nullptr) {
        channel_user_log::no_transport(function);
    }
    return transport;
}

// Unset first, so that nobody finds a transport that is being destroyed.
void marlo_fw_updater::delete_transport() {
    delete glinkInterface.exchange(nullptr);
}

void marlo_fw_updater::last_report(const char* function, const std::function<void()>& report_it) {
    try {
        report_it();
    } catch (const std::runtime_error& error) {
        MARLO_LOG_FOR(function, error, "FATAL: failed : %s", error.what());
    }
}

void marlo_fw_updater::conn_error_cb(glink_interface_error error) {
    channel_user_log::channel_error(__func__, error);
    if (error == GLINK_OPEN_FAILED) {
        report(Callback::STATUS_CHANNEL_ERROR, "Marlo dfu channel open failed");
        endMarloDownloader();
    } else if (!update_finished) {
        getCurrentDFUStateAndContinueDownload();
    }
}

double marlo_fw_updater::timeTaken() {
    const double seconds = std::difftime(os::time(), start_time);
    MARLO_LOG(debug, "Time taken is %.5f seconds.", seconds);
    return seconds;
}
