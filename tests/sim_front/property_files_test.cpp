// SPDX-License-Identifier: Apache-2.0
#include "sim/property_files.h"

#include <gtest/gtest.h>

#include <fstream>

#include "tests/sim_front/temporary_directory.h"

namespace sim {
namespace {

TEST(PropertyFiles, ReportsWhatIsWrittenByWhomeverInOrder) {
    const TemporaryDirectory root;
    PropertyFiles properties(root.path());
    properties.set("vendor.marlo_reset", "1");
    properties.set("persist.vendor.flag", "0");
    // By hand, as `echo` does it: in place and with a newline.
    std::ofstream(root.path() / "run/marlo/properties/vendor.by_hand") << "yes\n";

    const std::vector<PropertyChange> changes = properties.take_changes();
    ASSERT_EQ(changes.size(), 3u);  // and none for the temporary files
    EXPECT_EQ(changes[0].name + "=" + changes[0].value, "vendor.marlo_reset=1");
    EXPECT_EQ(changes[1].name + "=" + changes[1].value, "persist.vendor.flag=0");
    EXPECT_EQ(changes[2].name + "=" + changes[2].value, "vendor.by_hand=yes");
    EXPECT_TRUE(properties.take_changes().empty());
    EXPECT_TRUE(
        std::filesystem::exists(root.path() / "var/lib/marlo/properties/persist.vendor.flag"));
}

}  // namespace
}  // namespace sim
