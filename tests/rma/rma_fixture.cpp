// SPDX-License-Identifier: Apache-2.0
#include "tests/rma/rma_fixture.h"

#include <zlib.h>

#include <regex>

#include "daemon/marlo_deamon_log.h"

using scripted::platform;

namespace {

class RecordingTransport : public glink_interface {
  public:
    RecordingTransport(glink_conn_config config, const TransportScript& script) : script_(script) {
        platform().remark(std::string("make ") + config.channel_name + " " +
                          std::to_string(config.read_size));
    }
    ~RecordingTransport() override { platform().remark("delete"); }

    int register_cb(glink_data_callback, glink_error_callback err_cb) override {
        error_cb_ = std::move(err_cb);
        return 0;
    }
    int send_request(unsigned char* buf, unsigned int len) override {
        platform().remark("send " + answer_text(Bytes(buf, buf + len)));
        return script_.send_result.value_or(static_cast<int>(len));
    }
    int read_response(unsigned char*, unsigned int) override { return -1; }
    int connect_interface(bool start_reader) override {
        platform().remark(start_reader ? "connect with reader" : "connect");
        if (script_.opens) {
            return 0;
        }
        const glink_error_callback error_cb = error_cb_;
        error_cb(GLINK_OPEN_FAILED);  // may delete this object
        return -1;
    }
    void disconnect_interface() override { platform().remark("disconnect"); }

  private:
    const TransportScript& script_;
    glink_error_callback error_cb_;
};

}  // namespace

Bytes message(uint32_t command, const std::vector<uint32_t>& words, const Bytes& block) {
    Bytes bytes;
    append_word(bytes, 0);
    append_word(bytes, static_cast<uint32_t>(12 + 4 * words.size() + block.size()));
    append_word(bytes, command);
    for (const uint32_t value : words) {
        append_word(bytes, value);
    }
    bytes.insert(bytes.end(), block.begin(), block.end());
    return bytes;
}

std::string answer_text(const Bytes& answer) {
    EXPECT_EQ(word(answer, 0), crc32(0, answer.data() + 4, static_cast<uInt>(answer.size() - 4)));
    EXPECT_EQ(word(answer, 4), answer.size());
    const std::string text = std::to_string(word(answer, 8)) + ":";
    const size_t block_offset = word(answer, 8) == rma::DATA_READ_RESPONSE ? 32 : answer.size();
    return text + words_text(answer, 12, block_offset) + hex_text(answer, block_offset);
}

Lines log_lines() {
    Lines lines;
    for (std::string line : platform().log()) {
        line = std::regex_replace(line, std::regex("^(. \\w+):\\d+, "), "$1: ");
        line = std::regex_replace(line, std::regex("^(. )rma_conn_res_event_cb:"), "$1event:");
        lines.push_back(line);
    }
    return lines;
}

RmaTest::RmaTest()
    : rma_([this](glink_conn_config config) {
          return std::make_unique<RecordingTransport>(config, script_);
      }) {
    scripted::reset_platform();
    marlo_deamon_log::set_level(marlo_deamon_log::log_level::verbose);
    platform().directory(kDirectory, {});
    rma_.startMarloRmaConnection();
}

void RmaTest::connect(uint32_t memory_id, uint32_t second_id, uint32_t partition_size,
                      uint32_t client_private) {
    EXPECT_EQ(answer_to(message(rma::CONNECT,
                                {99, memory_id, second_id, partition_size, 0, 0, client_private})),
              "1: " + std::to_string(client_private) + " 0 " + std::to_string(memory_id) +
                  " 3 4096 4096");
}

void RmaTest::begin_anew() {
    scripted::reset_platform();
    platform().directory(kDirectory, {});
}

std::string RmaTest::answer_to(const Bytes& request) {
    const size_t before = platform().transcript({"send "}).size();
    // Exactly as large as the message, so that a read past it shows.
    const std::unique_ptr<uint8_t[]> exact(new uint8_t[request.size()]);
    std::copy(request.begin(), request.end(), exact.get());
    rma_.rma_conn_res_event_cb(exact.get(), static_cast<uint32_t>(request.size()));
    EXPECT_EQ(platform().open_descriptors(), 0);
    const Lines sent = platform().transcript({"send "});
    EXPECT_LE(sent.size(), before + 1);
    return sent.size() > before ? sent.back().substr(5) : "";
}

std::string RmaTest::write(uint32_t request_word, uint32_t offset, const Bytes& block) {
    return answer_to(message(rma::DATA_WRITE,
                             {request_word, 77, offset, static_cast<uint32_t>(block.size()), 0},
                             block));
}

std::string RmaTest::read(uint32_t offset, uint32_t size) {
    return answer_to(message(rma::DATA_READ, {5, 77, offset, size}));
}

std::string RmaTest::contents(const std::string& name) {
    const auto bytes = platform().contents(kDirectory + name);
    return bytes ? std::string(bytes->begin(), bytes->end()) : "none";
}
