// SPDX-License-Identifier: Apache-2.0
#include "daemon/DFUCallback.h"
#include "tests/daemon/daemon_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Status = marlo_fw_updater::Callback::Status;

class Reports : public DaemonTest {
  protected:
    Reports() : callback_(MarloComHandler::getInstance(), daemon_.get()) {
        g_marlo_daemon = daemon_.get();
        daemon_->getMarloPILDevice();
        beginning_ = course().size();
    }

    std::vector<std::string> since() {
        std::vector<std::string> lines = course();
        lines.erase(lines.begin(), lines.begin() + static_cast<ptrdiff_t>(beginning_));
        beginning_ += lines.size();
        return lines;
    }

    DFUCallback callback_;

  private:
    size_t beginning_ = 0;
};

TEST_F(Reports, OfADownloadAreLoggedUnlessTheyAreMereProgress) {
    callback_.handleDFUResponse("text", Status::STATUS_INFO);
    callback_.handleDFUResponse("text", static_cast<Status>(7));
    EXPECT_THAT(since(), IsEmpty());
    for (const Status status : {Status::STATUS_STARTED, Status::STATUS_ERASE_DONE,
                                Status::STATUS_ERROR, Status::STATUS_ENDED}) {
        callback_.handleDFUResponse("100% %s", status);
        EXPECT_THAT(since(), ElementsAre("D handleDFUResponse: 100% %s"));
    }
    callback_.handleDFUResponse("text", Status::STATUS_CHANNEL_ERROR);
    EXPECT_THAT(since(), ElementsAre("D handleDFUResponse: text", "boot status 1"));
}

TEST_F(Reports, OfMiscDataSetBootStatusAndProperty) {
    callback_.handleSHMResponse("text", Status::STATUS_INFO);
    EXPECT_THAT(since(), IsEmpty());
    for (const Status status : {Status::STATUS_ERASE_DONE, Status::STATUS_ERROR,
                                Status::STATUS_ENDED, Status::STATUS_CHANNEL_ERROR}) {
        callback_.handleSHMResponse("text", status);
        EXPECT_THAT(since(), ElementsAre("D handleSHMResponse: text"));
    }
    callback_.handleSHMResponse("text", Status::STATUS_STARTED);
    EXPECT_THAT(since(), ElementsAre("D handleSHMResponse: text", "boot status 2",
                                     "set vendor.zt_aon.misc_update=0"));
    callback_.handleSHMResponse("text", Status::STATUS_SUCCESS);
    EXPECT_THAT(since(), ElementsAre("D handleSHMResponse: text", "boot status 3",
                                     "set vendor.zt_aon.misc_update=1"));
}

TEST_F(Reports, OfTheDfuStateAreFixedTexts) {
    callback_.onDFUStateRecived(DFUState::INIT);
    EXPECT_THAT(since(), ElementsAre("D Marlo DFU in init state. We can perform firmware update."));
    callback_.onDFUStateRecived(DFUState::CANCEL_UPDATE_REQ);
    EXPECT_THAT(since(), ElementsAre("D Firmware update in progress."));
    callback_.onDFUStateRecived(static_cast<DFUState>(5));
    EXPECT_THAT(since(), IsEmpty());
}

}  // namespace
