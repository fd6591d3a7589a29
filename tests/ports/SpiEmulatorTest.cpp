// The emulated node must really be served by the interposer in this
// executable (natively, under ASan and under qemu-arm); everything else must
// still reach the C library.
#include "spi/SpiEmulator.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

namespace {

using Zel::Test::SpiEmulator;

TEST(SpiEmulator, ServesItsNodeAndPassesEverythingElseOn)
{
    const auto device = SpiEmulator::Ksz8863().Register(0x1F, 0x5A).Build("/dev/zel-emulated/spidev0.0");

    const int fd = open(device.Path().c_str(), O_RDWR);
    ASSERT_GE(fd, 0) << "open of the emulated node did not reach the interposer";
    std::uint8_t tx[3] = {0x03, 0x1F, 0x00};
    std::uint8_t rx[3] = {};
    spi_ioc_transfer transfer{};
    transfer.tx_buf = reinterpret_cast<std::uintptr_t>(tx);
    transfer.rx_buf = reinterpret_cast<std::uintptr_t>(rx);
    transfer.len = 3;
    EXPECT_EQ(ioctl(fd, SPI_IOC_MESSAGE(1), &transfer), 3);
    EXPECT_EQ(rx[2], 0x5A);
    std::uint8_t mode = 0;
    EXPECT_EQ(ioctl(fd, SPI_IOC_RD_MODE, &mode), -1);
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(device.ForeignRequests(), 1);
    EXPECT_EQ(device.OpenDescriptors(), 1);
    EXPECT_EQ(close(fd), 0);
    EXPECT_EQ(device.OpenDescriptors(), 0);

    // Other paths and descriptors reach the C library.
    const int null = open("/dev/null", O_RDONLY);
    ASSERT_GE(null, 0);
    EXPECT_EQ(ioctl(null, SPI_IOC_MESSAGE(1), &transfer), -1);
    EXPECT_EQ(close(null), 0);
    EXPECT_EQ(open("/dev/zel-emulated/spidev9.9", O_RDWR), -1);
    EXPECT_EQ(errno, ENOENT);
    ASSERT_EQ(device.Transfers().size(), 1U);
}

TEST(SpiEmulator, NodeDisappearsWithItsHandle)
{
    {
        const auto device = SpiEmulator::Ksz8794().Build("/dev/zel-emulated/spidev1.0");
    }
    EXPECT_EQ(open("/dev/zel-emulated/spidev1.0", O_RDWR), -1);
    EXPECT_THROW(SpiEmulator::Ksz8794().Build("/dev/null"), std::runtime_error) << "a real file is never emulated";
}

} // namespace
