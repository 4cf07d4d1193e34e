// SPDX-License-Identifier: Apache-2.0
// The files of the partitions: how they come to be, what may be read and written, and what is on
// the disk when an answer leaves.
#include <sys/stat.h>

#include <regex>

#include "platform/os.h"
#include "tests/allocation_limit.h"
#include "tests/rma/rma_fixture.h"

using scripted::platform;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

const std::string kPartition = "/data/vendor/aon/7177";

// The calls but for the first `from`, and the answers among them; DIR/ is the directory.
Lines calls(size_t from = 0) {
    const Lines all = platform().transcript(
        {"open ", "close ", "pwrite ", "fsync ", "fdatasync ", "rename ", "unlink ", "send "});
    Lines calls;
    for (size_t index = from; index < all.size(); ++index) {
        calls.push_back(std::regex_replace(all[index], std::regex(kDirectory), "DIR/"));
    }
    return calls;
}

// A write takes `accepted` bytes, and the one after it fails.
void write_stops(const std::string& path, size_t accepted, int error = 0) {
    platform().script_write(path, {.data = {}, .accepted = accepted});
    if (error != 0) {
        platform().script_write(path, scripted::failure(error));
    }
}

TEST_F(RmaTest, APartitionGetsItsNameOnceItIsOnTheDisk) {
    write_stops(kUnfinished, 10, EINTR);
    platform().fail_call(std::string("fsync ") + kUnfinished, EINTR);
    connect(7, 17, 16, 4);
    EXPECT_THAT(calls(),
                ElementsAre("open DIR/7177 = -1 2", "open DIR/unfinished = 3",
                            "pwrite DIR/unfinished 10 at 0", "pwrite DIR/unfinished = -1 4",
                            "pwrite DIR/unfinished 6 at 10", "fsync DIR/unfinished = -1 4",
                            "fsync DIR/unfinished", "close DIR/unfinished",
                            "rename DIR/unfinished DIR/7177", "open DIR/ = 3", "fsync DIR/",
                            "close DIR/", "send 1: 4 0 7 3 4096 4096"));
    EXPECT_THAT(files(), ElementsAre(kPartition));
    EXPECT_EQ(contents("7177"), std::string(16, '\0'));
    struct stat status = {};
    const int fd = os::open(kPartition.c_str(), O_RDONLY | O_CLOEXEC);
    os::fstat(fd, &status);
    os::close(fd);
    EXPECT_EQ(status.st_mode, mode_t{S_IFREG | 0600});
}

TEST_F(RmaTest, WhatWasThereStays) {
    file("7177", "kept");
    connect(7, 17, 16);
    EXPECT_EQ(contents("7177"), "kept");
    EXPECT_EQ(logged("file exists /data/vendor/aon/7177  "), 1u);
    platform().fail_call(std::string("fsync ") + kDirectory, EIO);
    connect(7, 17, 16);
    EXPECT_EQ(log_lines().end()[-2],
              "E event: a power cut may take /data/vendor/aon/7177: Input/output error");
    // Nor is it replaced when it is not found at first.
    platform().fail_opens(kPartition, {ENOENT});
    connect(7, 17, 16);
    EXPECT_EQ(contents("7177"), "kept");
    EXPECT_EQ(logged("file exists /data/vendor/aon/7177  "), 3u);
    // What a power cut left of another partition, and one of no size.
    file("unfinished", "longer than the partition that comes");
    connect(8, 0, 4);
    EXPECT_EQ(contents("808"), std::string(4, '\0'));
    connect(9, 0, 0);
    EXPECT_EQ(contents("909"), "");
    EXPECT_EQ(logged("size of file 0 "), 1u);
}

TEST_F(RmaTest, ACreationThatFailsLeavesNothing) {
    const std::string unfinished = kUnfinished;
    const std::string opening = "File opening failed";
    const std::string making = kPartition + " is not made: ";
    struct Case {
        std::string call;  // "open PATH", "pwrite", or as fail_call wants it
        int error;
        std::string text;
    };
    for (const Case& c : {
             // Whether it exists is not known: it must not be replaced.
             Case{"open " + kPartition, EMFILE, opening},
             {"open " + unfinished, ENOSPC, opening},
             {"pwrite", ENOSPC, making + "No space left on device"},
             {"pwrite", 0, making + "Input/output error"},
             {"fsync " + unfinished, EDQUOT, making + "Disk quota exceeded"},
             {"rename " + unfinished + " " + kPartition, EROFS, making + "Read-only file system"},
             {std::string("open ") + kDirectory, EMFILE, making + "Too many open files"},
             {std::string("fsync ") + kDirectory, EIO, making + "Input/output error"},
         }) {
        begin_anew();
        if (c.call == "pwrite") {
            write_stops(kUnfinished, c.error == 0 ? 0 : 15, c.error);
        } else if (c.call.starts_with("open ")) {
            platform().fail_opens(c.call.substr(5), {c.error});
        } else {
            platform().fail_call(c.call, c.error);
        }
        connect(7, 17, 16);
        EXPECT_EQ(log_lines()[4], "E event: " + c.text);
        EXPECT_THAT(files(), ElementsAre()) << c.text;
        EXPECT_EQ(read(0, 4), "257: 5 0 77 4 0") << c.text;
        EXPECT_EQ(write(7, 0, {1}), "513: 7 0 77 1 1") << c.text;
    }
}

TEST_F(RmaTest, OnlyRegularFilesArePartitions) {
    for (const mode_t kind : {mode_t{S_IFIFO}, mode_t{S_IFDIR}, mode_t{S_IFCHR}}) {
        for (const std::string name : {"717", "unfinished"}) {
            begin_anew();
            platform().file_mode(kDirectory + name, kind | 0600);
            connect(7, 1, 16);
            EXPECT_EQ(logged(name == "717" ? "file exists" : "File opening failed"), 1u) << kind;
            EXPECT_EQ(read(0, 4), "257: 5 0 77 4 0") << kind;
            EXPECT_EQ(write(7, 0, {1}), "513: 7 0 77 1 1") << kind;
            EXPECT_EQ(log_lines().end()[-2],
                      "E AppendToFile: Cannot open file /data/vendor/aon/717");
        }
    }
    EXPECT_EQ(logged("File open failed : /data/vendor/aon/717"), 1u);
}

TEST_F(RmaTest, ReadsAndWritesNameTheirFileDifferently) {
    connect(1, 23, 4);
    file("1231", "read");
    file("12345", "kept");
    EXPECT_EQ(write(45, 0, {'W'}), "513: 45 0 77 1 0");
    EXPECT_EQ(contents("12345"), "Wept");
    EXPECT_EQ(read(0, 4), "257: 5 0 77 4 0 72 65 61 64");
    connect(0xFFFFFFFF, 0, 1);
    EXPECT_EQ(write(0xFFFFFFFF, 0, {1}), "513: 4294967295 0 77 1 0");
    EXPECT_EQ(contents("429496729504294967295"), "\x01");
}

TEST_F(RmaTest, AWriteNeverReachesPastTheEnd) {
    connect(7, 0, 16);
    for (const uint32_t offset : {0u, 15u, 16u, 17u, 0x80000000u, 0xFFFFFFF8u, 0xFFFFFFFFu}) {
        for (const uint32_t size : {0u, 1u, 2u, 16u, 17u}) {
            file("707", std::string(16, '.'));
            const bool fits = uint64_t{offset} + size <= 16;
            const std::string answer = write(7, offset, Bytes(size, 'x'));
            EXPECT_EQ(answer.back(), fits ? '0' : '1') << offset << " " << size;
            std::string expected(16, '.');
            if (fits) {
                expected.replace(offset, size, size, 'x');
            }
            EXPECT_EQ(contents("707"), expected) << offset << " " << size;
        }
    }
}

TEST_F(RmaTest, ABlockThatDidNotComeIsNotWritten) {
    connect(7, 0, 1 << 20);
    const size_t before = calls().size();
    const AllocationLimit limit(1 << 16);
    for (const uint32_t size : {5u, 0x10000u, 0x1000001u, 0xFFFFFFFFu, 0xFFFFFFE0u, 0xFFFFFFDCu}) {
        EXPECT_EQ(answer_to(message(rma::DATA_WRITE, {7, 7, 0, size, 0}, {1, 2, 3, 4})),
                  "513: 7 0 7 " + std::to_string(size) + " 1");
    }
    EXPECT_EQ(answer_to(message(rma::DATA_WRITE, {7, 7, 0, 0})), "513: 7 0 7 0 1");
    EXPECT_EQ(logged("a block of 5 bytes is not inside its message of 36"), 1u);
    EXPECT_EQ(calls().size(), before + 7);  // the answers: no file was touched
}

TEST_F(RmaTest, AnAcceptedWriteIsOnTheDiskBeforeItsAnswer) {
    file("707", "........");
    connect(7, 0, 8);
    const size_t before = calls().size();
    write_stops("/data/vendor/aon/707", 1, EINTR);
    platform().fail_call("fdatasync /data/vendor/aon/707", EINTR);
    write(7, 2, {'a', 'b', 'c'});
    EXPECT_THAT(calls(before),
                ElementsAre("open DIR/707 = 3", "pwrite DIR/707 1 at 2", "pwrite DIR/707 = -1 4",
                            "pwrite DIR/707 2 at 3", "fdatasync DIR/707 = -1 4",
                            "fdatasync DIR/707", "close DIR/707", "send 513: 7 0 77 3 0"));
    EXPECT_EQ(contents("707"), "..abc...");
}

TEST_F(RmaTest, AWriteThatFailsIsReported) {
    const std::string path = "/data/vendor/aon/707";
    file("707", "........");
    connect(7, 0, 8);
    const std::function<void()> faults[] = {
        [&] { platform().fail_opens(path, {EACCES}); },
        [&] { write_stops(path, 1, ENOSPC); },
        [&] { write_stops(path, 0); },
        [&] { platform().fail_call("fdatasync " + path, EIO); },
    };
    for (const auto& fault : faults) {
        fault();
        EXPECT_EQ(write(7, 0, {1, 2}), "513: 7 0 77 2 1");
    }
    EXPECT_EQ(logged("707 is not written: No space left on device"), 1u);
    EXPECT_EQ(logged("707 is not written: Input/output error"), 2u);
    EXPECT_EQ(write(7, 0, {1, 2}), "513: 7 0 77 2 0");

    // By itself: without data only the range is judged.
    EXPECT_EQ(rma_.AppendToFile(path, 0, 8, nullptr), 0);
    EXPECT_EQ(rma_.AppendToFile(path, 1, 8, nullptr), -1);
    EXPECT_EQ(contents("707"), "\x01\x02......");
}

TEST_F(RmaTest, AReadHasItsSizeOrNothing) {
    file("707", "0123456789");
    connect(7, 0, 10);
    EXPECT_EQ(read(8, 2), "257: 5 0 77 2 0 38 39");
    EXPECT_EQ(read(8, 4), "257: 5 0 77 4 0 38 39 00 00");
    EXPECT_EQ(read(10, 2), "257: 5 0 77 2 0 00 00");
    EXPECT_EQ(read(0xFFFFFFFF, 2), "257: 5 0 77 2 0 00 00");
    for (const uint32_t size : {0u, 0x1000001u, 0xFFFFFFFFu}) {
        EXPECT_EQ(read(4, size), "257: 5 0 77 " + std::to_string(size) + " 0");
    }
    EXPECT_EQ(logged("File open failed : /data/vendor/aon/707"), 2u);
    EXPECT_EQ(rma_.readFile("707", 0, 0x1000000).size(), 0x1000000u);

    platform().script_read("/data/vendor/aon/707", scripted::failure(EINTR));
    EXPECT_EQ(read(0, 2), "257: 5 0 77 2 0 30 31");
    platform().script_read("/data/vendor/aon/707", scripted::failure(EIO));
    EXPECT_EQ(read(0, 2), "257: 5 0 77 2 0");
    EXPECT_EQ(logged("707 cannot be read: Input/output error"), 1u);
    // Where there is less than the file's size promises, zeros would pass for its contents.
    platform().script_read("/data/vendor/aon/707", {Bytes{'0'}});
    platform().script_read("/data/vendor/aon/707", {});
    EXPECT_EQ(read(0, 2), "257: 5 0 77 2 0");
    EXPECT_EQ(logged("707 cannot be read: Input/output error"), 2u);
    {
        const AllocationLimit limit(99999);
        EXPECT_EQ(read(0, 100000), "257: 5 0 77 100000 0");
    }
    EXPECT_EQ(logged("no memory for 100000 bytes of /data/vendor/aon/707"), 1u);
}

}  // namespace
