// The equipment on a serial port that is there: a pseudo-terminal, at whose master end the provider sits.
#include "equipment/loop.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace {

using namespace Equipment;
using testing::ElementsAre;
using testing::IsEmpty;

struct EquipmentDevice : testing::Test {
    std::string directory = testing::TempDir() + "zt_device_XXXXXX";
    std::string port;  // a name that stays, as that of a port does
    int provider = -1;
    Machine machine;
    Loop loop{machine};
    std::vector<bool> told;

    void SetUp() override {
        ASSERT_NE(mkdtemp(directory.data()), nullptr);
        port = directory + "/port";
        PlugIn();
        loop.reopenMs = 0;
        loop.onDevice = [this](bool there) { told.push_back(there); };
        ASSERT_EQ(loop.OpenDevice(port), "");
    }
    void TearDown() override {
        Unplug();
        std::filesystem::remove_all(directory);
    }
    void PlugIn() {
        provider = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        char path[64] = {};
        ASSERT_EQ(grantpt(provider) | unlockpt(provider) | ptsname_r(provider, path, sizeof path), 0);
        std::filesystem::remove(port);
        std::filesystem::create_symlink(path, port);
    }
    void Unplug() {
        if (provider >= 0)
            close(std::exchange(provider, -1));
    }
    // What the equipment answers to one item of link control, as hexadecimal digits.
    std::string Ask(const Bytes& item) {
        const Bytes frame = BuildFrame(item);
        EXPECT_EQ(write(provider, frame.data(), frame.size()), static_cast<ssize_t>(frame.size()));
        pollfd answered{provider, POLLIN, 0};
        const std::uint32_t began = Loop::Now();
        Cutter cutter;
        while (Loop::Now() - began < 5000) {
            EXPECT_TRUE(loop.Step(10));
            std::uint8_t byte = 0;
            while (poll(&answered, 1, 0) > 0 && read(provider, &byte, 1) == 1)
                if (cutter.Push(byte))
                    return Hex(cutter.frame);
        }
        return "nothing";
    }
};

constexpr const char* ConfigResponse = "06 60 11 03 06 00 00 80";

TEST_F(EquipmentDevice, IsSetUpAsTheCardsSide) {
    const int file = open(port.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings{};
    ASSERT_EQ(tcgetattr(file, &settings), 0);
    EXPECT_EQ(settings.c_cflag & (CSIZE | PARENB | CSTOPB | CRTSCTS), static_cast<tcflag_t>(CS8 | CSTOPB | CRTSCTS));
    EXPECT_EQ(cfgetospeed(&settings), static_cast<speed_t>(B9600));
    EXPECT_EQ(settings.c_lflag & (ICANON | ECHO | ISIG), 0u);
    EXPECT_EQ(settings.c_iflag & (IXON | IXOFF | ICRNL | ISTRIP), 0u);
    EXPECT_EQ(settings.c_oflag & OPOST, 0u);
    close(file);
    EXPECT_EQ(Ask({0x60, 0x11}), ConfigResponse);
}

TEST_F(EquipmentDevice, GoesOnWhenItIsPluggedInAgain) {
    EXPECT_EQ(Ask({0x60, 0x11}), ConfigResponse);
    machine.faults.ctsLow = true;  // not even read from
    EXPECT_TRUE(loop.Step(0));
    EXPECT_THAT(told, IsEmpty());
    Unplug();
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(loop.Step(0));
    EXPECT_THAT(told, ElementsAre(false)) << "said once, while it stays away";
    EXPECT_FALSE(machine.card.present);
    PlugIn();
    machine.faults.ctsLow = false;
    EXPECT_TRUE(loop.Step(0));
    EXPECT_EQ(Ask({0x60, 0x11}), ConfigResponse);
    EXPECT_THAT(told, ElementsAre(false, true));
    Unplug();
    EXPECT_TRUE(loop.Step(0));
    EXPECT_THAT(told, ElementsAre(false, true, false));
}

TEST_F(EquipmentDevice, ThatIsNoneIsRefusedAtOnce) {
    Loop other(machine);
    EXPECT_EQ(other.OpenDevice(directory + "/nothing"), directory + "/nothing: No such file or directory");
    EXPECT_NE(other.OpenDevice(directory), "");
    EXPECT_NE(other.OpenDevice("/dev/null"), "") << "no terminal";
}

}  // namespace
