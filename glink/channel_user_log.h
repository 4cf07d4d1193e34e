// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

// What the users of a channel, download and RMA service, log alike: each line in the name of the
// user's own operation. Any thread.
namespace channel_user_log {

// Before the callbacks are registered: the transport that is to take them.
void registering(const char* operation, const void* transport);
// The same as an error: the transport that the one to come replaces, null for none.
void replacing(const char* operation, const void* transport);

void received(const char* operation);
void invalid_command(const char* operation);
void sending(const char* operation, uint32_t crc);
void no_transport(const char* operation);
void channel_error(const char* operation, int error);  // a glink_interface_error

}  // namespace channel_user_log
