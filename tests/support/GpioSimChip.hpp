// A simulated GPIO chip of the kernel's gpio-sim, made through configfs: the
// board's GPIO lines for tests in the armhf VM (ctest --preset armhf-vm; the
// development machine's kernel has no gpio-sim). Built as the board's chip
// is described, then driven like the hardware behind its lines:
//
//   GpioSimChip chip = GpioSimChip().Lines(4).Name(1, "link2").Build();
//   const std::string value = chip.Export(0);  // "/sys/class/gpio/gpioN/value"
//   chip.SetPull(0, GpioSimChip::Pull::Up);     // the input line now reads 1
//
// What Build() returns owns the chip: destroying it removes the chip and
// with it the lines' exports. Every step the kernel refuses throws
// std::runtime_error (std::filesystem::filesystem_error for a directory)
// naming the file and the kernel's error; on a kernel without gpio-sim,
// Build() says so. One test thread owns a chip.
#pragma once

#include <map>
#include <string>

namespace Zel::Test {

class GpioSimChip {
public:
    // What an input line reads when nothing drives it.
    enum class Pull { Down, Up };

    GpioSimChip() = default;
    GpioSimChip(const GpioSimChip&) = delete;
    GpioSimChip& operator=(const GpioSimChip&) = delete;
    ~GpioSimChip();

    // Before Build(): the number of lines (one bank) and names of some.
    GpioSimChip& Lines(unsigned int count)
    {
        lineCount = count;
        return *this;
    }
    GpioSimChip& Name(unsigned int offset, const std::string& name)
    {
        names[offset] = name;
        return *this;
    }
    // Makes the chip and brings it live.
    GpioSimChip Build() const { return GpioSimChip(lineCount, names); }

    // The chip's name ("gpiochipN") and character device ("/dev/gpiochipN").
    const std::string& ChipName() const { return chipName; }
    std::string DevicePath() const { return "/dev/" + chipName; }
    // The number of line 0 in /sys/class/gpio.
    unsigned int Base() const { return base; }

    // Exports the line through /sys/class/gpio and returns its value file.
    std::string Export(unsigned int offset);
    // Takes the export back: the value file goes, and descriptors still open
    // on it fail their reads with ENODEV, as for a line whose chip is gone.
    void Unexport(unsigned int offset);
    void SetPull(unsigned int offset, Pull pull);
    // The line's level as the chip sees it: an output's driven value.
    int Value(unsigned int offset) const;
    // Offline, the chip and all its lines are gone from the system.
    void SetLive(bool live);

private:
    GpioSimChip(unsigned int lineCount, const std::map<unsigned int, std::string>& names);
    std::string Line(unsigned int offset) const;

    unsigned int lineCount = 0;
    std::map<unsigned int, std::string> names;
    std::string directory; // in configfs; empty in a builder
    std::string device; // the platform device, "gpio-sim.N"
    std::string chipName;
    unsigned int base = 0;
};

} // namespace Zel::Test
