// SPDX-License-Identifier: Apache-2.0
// The connection: its start, its errors, and how a message is sent.
#include "rma/marlo_rma.h"

#include <new>
#include <utility>

#include "daemon/marlo_deamon_log.h"
#include "glink/channel_user_log.h"
#include "glink/marlo_glink.h"
#include "rma/rma_messages.h"

namespace {

constexpr const char* kChannelName = "glink_pkt_marlo_rma";

}  // namespace

marlo_rma::marlo_rma() : marlo_rma(make_marlo_glink) {}

marlo_rma::marlo_rma(TransportFactory make_transport)
    : make_transport_(std::move(make_transport)) {}

marlo_rma::~marlo_rma() {
    // Before any other member goes: until its reader thread has ended it may answer a request.
    delete glinkInterface.load();
}

void marlo_rma::startMarloRmaConnection() {
    MARLO_LOG(debug, "%s: called\n", __func__);
    const glink_conn_config config = {kChannelName, rma::kConnectSize};
    glink_interface* const previous = glinkInterface;
    channel_user_log::replacing(__func__, previous);
    if (previous != nullptr) {
        // Two readers on one channel would take each other's packets, and would serve requests on
        // two threads at once. With its reader gone, nobody is left who could send through it.
        previous->disconnect_interface();
        delete glinkInterface.exchange(nullptr);
    }
    glink_interface* const transport = make_transport_(config).release();
    glinkInterface = transport;
    channel_user_log::registering(__func__, transport);
    transport->register_cb(
        [this](uint8_t* data, uint32_t length) { rma_conn_res_event_cb(data, length); },
        [this](glink_interface_error error) { rma_conn_error_cb(error); });
    // A failed open deletes the transport from inside this call, through rma_conn_error_cb:
    // nothing may touch it afterwards.
    transport->connect_interface(true);
}

void marlo_rma::rma_conn_error_cb(glink_interface_error error) {
    channel_user_log::channel_error(__func__, error);
    if (error == GLINK_OPEN_FAILED) {
        // Unset first, so that nobody finds a transport that is being destroyed.
        delete glinkInterface.exchange(nullptr);
    }
}

int marlo_rma::send_aon_request(uint32_t command, const uint8_t* payload, uint32_t length) {
    return send_aon_request(command, payload == nullptr ? Bytes() : Bytes(payload, length), {});
}

int marlo_rma::send_aon_request(uint32_t command, Bytes fields, Bytes block) {
    std::vector<uint8_t> message;
    try {
        message = rma::build_message(command, fields, block);
    } catch (const std::bad_alloc&) {
        MARLO_LOG(error, "no memory for message %u with %zu bytes", command,
                  fields.size() + block.size());
        return 0;
    }
    channel_user_log::sending(__func__, rma::received_crc(message));
    glink_interface* const transport = glinkInterface;
    if (transport == nullptr) {
        channel_user_log::no_transport(__func__);
        return 0;
    }
    return transport->send_request(message.data(), static_cast<uint32_t>(message.size()));
}
