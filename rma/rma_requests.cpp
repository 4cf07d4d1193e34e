// SPDX-License-Identifier: Apache-2.0
// What each request of the co-processor does, and the reading and writing of its files.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "daemon/marlo_deamon_log.h"
#include "glink/channel_user_log.h"
#include "platform/os.h"
#include "rma/backing_file.h"
#include "rma/marlo_rma.h"
#include "rma/rma_messages.h"

namespace {

// The operation in whose name the requests log.
constexpr const char* kEventName = "rma_conn_res_event_cb";

// How the log shows a word.
int shown(uint32_t word) {
    return static_cast<int>(word);
}

}  // namespace

void marlo_rma::rma_conn_res_event_cb(const uint8_t* data, uint32_t size) {
    channel_user_log::received(__func__);
    const Bytes message(data, size);
    const std::optional<uint32_t> command = rma::command_id(message);
    if (command == rma::CONNECT) {
        handle_connect(message);
    } else if (command == rma::DISCONNECT) {
        handle_disconnect(message);
    } else if (command == rma::DATA_READ) {
        handle_data_read(message);
    } else if (command == rma::DATA_WRITE) {
        handle_data_write(message);
    } else {
        channel_user_log::invalid_command(__func__);
    }
}

void marlo_rma::handle_connect(Bytes message) {
    MARLO_LOG_FOR(kEventName, debug, "GLINK_int received CONNECT ");
    MARLO_LOG_FOR(kEventName, debug, "GLINK_int received CRC %d and CRC calculated %d size %d ",
                  shown(rma::received_crc(message)), shown(rma::connect_crc(message)),
                  static_cast<int>(message.size()));
    const rma::ConnectRequest request = rma::connect_request(message);
    memory_id_ = request.memory_id;
    client_private_ = request.client_private;
    file_memory_id_ = request.memory_id;
    second_id_ = request.second_id;
    MARLO_LOG_FOR(kEventName, debug,
                  "memory_id received CONNECT %d,partition_sz_bytes %d, client_priv %d ",
                  shown(memory_id_), shown(request.partition_size), shown(client_private_));
    if (message.size() < rma::kConnectSize) {
        MARLO_LOG_FOR(kEventName, error, "no partition is made for a CONNECT of %zu bytes",
                      message.size());
    } else {
        prepare_partition(request.partition_size);
    }
    // Answered in any case: without its file the partition reads as empty and takes no writes.
    send_aon_request(rma::CONNECT_RESPONSE, rma::connect_response(client_private_, memory_id_), {});
}

void marlo_rma::prepare_partition(uint32_t size) {
    const std::string path =
        backing_file_directory + backing_file_name(file_memory_id_, second_id_, memory_id_);
    switch (create_backing_file(path, size)) {
        case Creation::exists:
            MARLO_LOG_FOR(kEventName, error, "file exists %s  ", path.c_str());
            names_are_on_disk_ = false;  // who gave it its name is not known
            brings_name_to_disk(path);
            break;
        case Creation::created:
            names_are_on_disk_ = true;
            MARLO_LOG_FOR(kEventName, debug, "size of file %d ", shown(size));
            break;
        case Creation::not_opened:
            MARLO_LOG_FOR(kEventName, error, "File opening failed");
            break;
        case Creation::no_memory:
            MARLO_LOG_FOR(kEventName, debug, "memory allocation failed for dummy_data");
            break;
        case Creation::not_written:
            names_are_on_disk_ = false;
            MARLO_LOG_FOR(kEventName, error, "%s is not made: %s", path.c_str(), strerror(errno));
            break;
    }
}

// No block of a file is confirmed before: a sync that has failed is tried again with each of them.
bool marlo_rma::brings_name_to_disk(const std::string& path) {
    if (!names_are_on_disk_ && !sync_backing_directory()) {
        MARLO_LOG_FOR(kEventName, error, "a power cut may take %s: %s", path.c_str(),
                      strerror(errno));
        return false;
    }
    names_are_on_disk_ = true;
    return true;
}

void marlo_rma::handle_disconnect(Bytes message) {
    MARLO_LOG_FOR(kEventName, debug, "GLINK_int received DISCONNECT ");
    const auto payload =
        rma::disconnect_response(memory_id_, client_private_, rma::memory_id(message));
    send_aon_request(rma::DISCONNECT_RESPONSE, payload, {});
}

void marlo_rma::handle_data_read(Bytes message) {
    MARLO_LOG_FOR(kEventName, debug, "GLINK_int received DATA_READ 1");
    const rma::BlockRequest request = rma::block_request(message);
    const std::vector<uint8_t> block = readFile(
        backing_file_name(file_memory_id_, second_id_, memory_id_), request.offset, request.size);
    MARLO_LOG_FOR(kEventName, debug, "prepare DATA_READ data:");
    const auto fields = rma::block_response(request, client_private_, rma::DONE);
    send_aon_request(rma::DATA_READ_RESPONSE, fields, block);
}

// The name of the file ends in the request word here, not in the memory id: the two are the same
// file for as long as the co-processor puts its memory id there.
void marlo_rma::handle_data_write(Bytes message) {
    MARLO_LOG_FOR(kEventName, debug, "GLINK_int received DATA_WRITE and len %d",
                  shown(rma::total_length(message)));
    const rma::BlockRequest request = rma::block_request(message);
    rma::BlockResult result = rma::NOT_WRITTEN;
    if (const auto block = rma::block_to_write(message, request.size)) {
        const std::unique_ptr<char[]> buffer(new (std::nothrow) char[block->size()]);
        if (buffer == nullptr) {
            MARLO_LOG_FOR(kEventName, debug, "memory allocation failed for buffer");
            return;
        }
        std::copy(block->begin(), block->end(), buffer.get());
        const std::string path =
            backing_file_directory +
            backing_file_name(file_memory_id_, second_id_, request.request_word);
        if (AppendToFile(path, request.offset, request.size, buffer.get()) == 0 &&
            brings_name_to_disk(path)) {
            result = rma::DONE;
        }
    } else {
        MARLO_LOG_FOR(kEventName, error, "a block of %u bytes is not inside its message of %zu",
                      request.size, message.size());
    }
    send_aon_request(rma::DATA_WRITE_RESPONSE,
                     rma::block_response(request, client_private_, result), {});
}

std::vector<uint8_t> marlo_rma::readFile(std::string name, uint32_t offset, uint32_t size) {
    const std::string path = backing_file_directory + std::move(name);
    MARLO_LOG(debug, "readFile Path : %s and size :%d ", path.c_str(), shown(size));
    const BackingFile file(path, O_RDONLY);
    if (!file.is_open() || size > rma::kMaximumBlock) {
        MARLO_LOG(error, "File open failed : %s", path.c_str());
        return {};
    }
    std::vector<uint8_t> bytes;
    try {
        bytes.resize(size);
    } catch (const std::bad_alloc&) {
        MARLO_LOG(error, "no memory for %u bytes of %s", size, path.c_str());
        return {};
    }
    if (!file.read(offset, bytes)) {
        MARLO_LOG(error, "%s cannot be read: %s", path.c_str(), strerror(errno));
        return {};
    }
    MARLO_LOG(debug, "read : %d", static_cast<int>(bytes.size()));
    return bytes;
}

int marlo_rma::AppendToFile(const std::string& path, uint32_t offset, uint32_t size,
                            const char* data) {
    const BackingFile file(path, O_RDWR);
    if (!file.is_open()) {
        MARLO_LOG(error, "Cannot open file %s", path.c_str());
        return -1;
    }
    if (!file.contains(offset, size)) {
        return -1;
    }
    MARLO_LOG(debug, "write to file : %d", shown(size));
    if (data != nullptr && !file.write(offset, data, size)) {
        MARLO_LOG(error, "%s is not written: %s", path.c_str(), strerror(errno));
        return -1;
    }
    return 0;
}
