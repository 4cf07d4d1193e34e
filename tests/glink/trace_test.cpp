// SPDX-License-Identifier: Apache-2.0
// The transport built as for Android, where its trace sections reach the C library's tracer. That
// tracer is here.
#include <cutils/trace.h>

#include <cstdint>

#include "tests/glink/channel_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct Tracer {
    std::mutex mutex;
    std::vector<std::string> sections;  // begin and end, as they come
    uint64_t enabled = ATRACE_TAG_HAL;

    void add(const std::string& what) {
        const size_t taken = scripted::platform().count("acquiring wakelock");
        const bool is_awake = taken > scripted::platform().count("releasing wakelock");
        const std::lock_guard lock(mutex);
        sections.push_back(what + (is_awake ? " awake" : ""));
    }
    std::vector<std::string> take() {
        const std::lock_guard lock(mutex);
        return std::exchange(sections, {});
    }
};
Tracer tracer;

}  // namespace

uint64_t atrace_get_enabled_tags() {
    return tracer.enabled;
}
void atrace_begin_body(const char* name) {
    tracer.add(name);
}
void atrace_end_body() {
    tracer.add("end");
}

namespace {

class Trace : public ChannelTest {
  protected:
    Trace() { tracer.enabled = ATRACE_TAG_HAL; }
    ~Trace() override { tracer.take(); }
};

TEST_F(Trace, HasASectionAroundEachWriteFailedOnesToo) {
    EXPECT_EQ(send({1}), 0);  // on a closed channel: no write
    EXPECT_THAT(tracer.take(), IsEmpty());

    connect();
    EXPECT_EQ(send({1}), 1);
    EXPECT_THAT(tracer.take(), ElementsAre("glink_write", "end"));

    scripted::platform().script_write(device_, scripted::failure(EPIPE));
    EXPECT_EQ(send({1}), -EPIPE);
    EXPECT_THAT(tracer.take(), ElementsAre("glink_write", "end"));
}

TEST_F(Trace, HasASectionAroundEachDeliveryAndTheAnswerInside) {
    transport_->register_cb([this](uint8_t*, uint32_t) { send({1}); },
                            [](glink_interface_error) {});
    arrives(Bytes(16));
    connect();
    packets();
    EXPECT_THAT(tracer.take(),
                ElementsAre("glink_response_handler", "glink_write awake", "end awake", "end"));
}

TEST_F(Trace, IsSilentUnlessItsCategoryIsOn) {
    tracer.enabled = ~uint64_t{ATRACE_TAG_HAL};
    connect();
    EXPECT_EQ(send({1}), 1);
    EXPECT_THAT(tracer.take(), IsEmpty());
}

}  // namespace
