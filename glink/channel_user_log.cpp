// SPDX-License-Identifier: Apache-2.0
#include "glink/channel_user_log.h"

#include "daemon/marlo_deamon_log.h"

namespace channel_user_log {
namespace {

constexpr const char* kRegistering = "About to register callbacks with glinkInterface";

}  // namespace

void registering(const char* operation, const void* transport) {
    MARLO_LOG_FOR(operation, debug, "%s %p", kRegistering, transport);
}

void replacing(const char* operation, const void* transport) {
    MARLO_LOG_FOR(operation, error, "%s %p", kRegistering, transport);
}

void received(const char* operation) {
    MARLO_LOG_FOR(operation, debug, "received res or event");
}

void invalid_command(const char* operation) {
    MARLO_LOG_FOR(operation, error, "GLINK_int invalid cmd id");
}

void sending(const char* operation, uint32_t crc) {
    MARLO_LOG_FOR(operation, debug, "send_aon_request %x", crc);
}

void no_transport(const char* operation) {
    MARLO_LOG_FOR(operation, error, "glinkInterface != nullptr");
}

void channel_error(const char* operation, int error) {
    MARLO_LOG_FOR(operation, error, "conn_error_cb =%d", error);
}

}  // namespace channel_user_log
