// SPDX-License-Identifier: Apache-2.0
// The hardware clock of the box, asked the way a program asks the real one.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/rtc.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>

#include "support/Files.h"

namespace {

const char* const kDevice = "/dev/rtc0";
const char* const kFile = "/run/zel-platform/rtc";

std::time_t secondsOf(const rtc_time& record) {
    std::tm date{};
    date.tm_sec = record.tm_sec;
    date.tm_min = record.tm_min;
    date.tm_hour = record.tm_hour;
    date.tm_mday = record.tm_mday;
    date.tm_mon = record.tm_mon;
    date.tm_year = record.tm_year;
    return timegm(&date);
}

std::time_t now() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return time.tv_sec;
}

class RtcTest : public testing::Test {
protected:
    RtcTest() { std::filesystem::create_directories("/run/zel-platform"); }
    ~RtcTest() override {
        std::filesystem::remove(kFile);
        if (m_device >= 0) {
            close(m_device);
        }
    }

    // The time that the clock shows; nothing when it does not open or can't be read.
    std::optional<std::time_t> shown() {
        m_device = open(kDevice, O_RDONLY | O_CLOEXEC);
        rtc_time record{};
        if (m_device < 0 || ioctl(m_device, RTC_RD_TIME, &record) != 0) {
            return std::nullopt;
        }
        return secondsOf(record);
    }

    // What is shown, compared with the system's time before and after.
    void expectOffset(std::time_t offset) {
        const std::time_t before = now();
        const std::optional<std::time_t> time = shown();
        const std::time_t after = now();

        ASSERT_TRUE(time.has_value());
        EXPECT_GE(*time, before + offset);
        EXPECT_LE(*time, after + offset);
    }

    int m_device = -1;
};

TEST_F(RtcTest, WithoutAFileItShowsTheSystemsTime) {
    expectOffset(0);
}

TEST_F(RtcTest, ItIsAheadOfTheSystemByAnOffset) {
    writeFile(kFile, "offset 4\n");

    expectOffset(4);
}

TEST_F(RtcTest, ItIsBehindTheSystemByANegativeOffset) {
    writeFile(kFile, "offset -86400");

    expectOffset(-86400);
}

TEST_F(RtcTest, ATimeStandsStill) {
    writeFile(kFile, "time 1709210096\n");
    m_device = open(kDevice, O_RDONLY);
    rtc_time record{};

    ASSERT_EQ(ioctl(m_device, RTC_RD_TIME, &record), 0);

    // 2024-02-29 12:34:56, a Thursday, the 60th day.
    EXPECT_EQ(record.tm_year, 124);
    EXPECT_EQ(record.tm_mon, 1);
    EXPECT_EQ(record.tm_mday, 29);
    EXPECT_EQ(record.tm_hour, 12);
    EXPECT_EQ(record.tm_min, 34);
    EXPECT_EQ(record.tm_sec, 56);
    EXPECT_EQ(record.tm_wday, 4);
    EXPECT_EQ(record.tm_yday, 59);
    EXPECT_EQ(record.tm_isdst, 0);
}

// Where time_t has 32 bits, it has no such time, and the clock can't be read.
TEST_F(RtcTest, ATimeBeyondTheRangeOfRealClocksIsShownOrUnreadable) {
    constexpr auto kTime = static_cast<std::time_t>(4102444800);
    constexpr bool kHasRoom = kTime == 4102444800;
    writeFile(kFile, "time 4102444800");

    EXPECT_EQ(shown(), kHasRoom ? std::optional(kTime) : std::nullopt);
}

TEST_F(RtcTest, AnOpenClockShowsWhatItIsToldLater) {
    m_device = open(kDevice, O_RDONLY);
    writeFile(kFile, "time 1000");
    rtc_time record{};

    ASSERT_EQ(ioctl(m_device, RTC_RD_TIME, &record), 0);

    EXPECT_EQ(secondsOf(record), 1000);
}

TEST_F(RtcTest, AnAbsentClockDoesNotOpen) {
    writeFile(kFile, "absent\n");

    m_device = open(kDevice, O_RDONLY);

    EXPECT_EQ(m_device, -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(RtcTest, AnUnreadableClockOpensAndTellsNoTime) {
    writeFile(kFile, "unreadable\n");
    m_device = open(kDevice, O_RDONLY);
    rtc_time record{};

    ASSERT_GE(m_device, 0);
    EXPECT_EQ(ioctl(m_device, RTC_RD_TIME, &record), -1);
    EXPECT_EQ(errno, EIO);
}

TEST_F(RtcTest, WhatMeansNothingMakesItUnreadableAndIsLogged) {
    for (const std::string text :
         {"", "offset", "offset ", "offset 1x", "offset 1 ", " offset 1", "offset 99999999999999999999",
          "time", "time 1000000000001", "time -1000000000001", "nonsense", "absent "}) {
        writeFile(kFile, text);
        testing::internal::CaptureStderr();

        EXPECT_EQ(shown(), std::nullopt) << text;

        EXPECT_THAT(testing::internal::GetCapturedStderr(),
                    testing::HasSubstr("/run/zel-platform/rtc says '" + text + "', which means nothing"));
        close(m_device);
    }
}

TEST_F(RtcTest, AFileOfSomebodyElseIsNotBelieved) {
    writeFile(kFile, "offset 0\n");
    ASSERT_EQ(chown(kFile, 65534, 65534), 0);

    EXPECT_EQ(shown(), std::nullopt);
}

TEST_F(RtcTest, EveryWayToOpenAFileOpensTheClock) {
    const int ways[] = {open(kDevice, O_RDONLY), open64(kDevice, O_RDONLY),
                        openat(AT_FDCWD, kDevice, O_RDONLY), openat64(AT_FDCWD, kDevice, O_RDONLY)};

    for (const int device : ways) {
        rtc_time record{};
        EXPECT_EQ(ioctl(device, RTC_RD_TIME, &record), 0);
        close(device);
    }
}

TEST_F(RtcTest, ItIsCloseOnExecWhenThatIsAskedFor) {
    for (const int flags : {0, O_CLOEXEC}) {
        const int device = open(kDevice, O_RDONLY | flags);

        EXPECT_EQ(fcntl(device, F_GETFD), flags == 0 ? 0 : FD_CLOEXEC);
        close(device);
    }
}

TEST_F(RtcTest, OtherRequestsGoToTheSystem) {
    m_device = open(kDevice, O_RDONLY);
    rtc_wkalrm alarm{};

    EXPECT_EQ(ioctl(m_device, RTC_WKALM_RD, &alarm), -1);
    EXPECT_EQ(errno, ENOTTY);
}

TEST_F(RtcTest, TheTimeOfAnotherDescriptorIsTheSystemsBusiness) {
    m_device = open("/dev/null", O_RDONLY);
    rtc_time record{};

    EXPECT_EQ(ioctl(m_device, RTC_RD_TIME, &record), -1);
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(ioctl(-1, RTC_RD_TIME, &record), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(RtcTest, OtherFilesOpenAsEver) {
    m_device = open("/tmp/rtc-test", O_RDWR | O_CREAT | O_EXCL, 0640);
    struct stat status {};

    ASSERT_GE(m_device, 0);
    ASSERT_EQ(fstat(m_device, &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U & ~022U);
    int pending = -1;
    EXPECT_EQ(ioctl(m_device, FIONREAD, &pending), 0);
    EXPECT_EQ(pending, 0);
    EXPECT_EQ(open("/dev/rtc0/none", O_RDONLY), -1);
    const int folder = open("/tmp", O_RDONLY | O_DIRECTORY);
    const int again = openat(folder, "rtc-test", O_RDONLY);
    EXPECT_GE(again, 0);
    close(again);
    close(folder);
    std::filesystem::remove("/tmp/rtc-test");
}

}  // namespace
