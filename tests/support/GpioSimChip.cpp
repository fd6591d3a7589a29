#include "GpioSimChip.hpp"

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace Zel::Test {
namespace {

const std::string ConfigRoot = "/sys/kernel/config/gpio-sim";

[[noreturn]] void Refused(const std::string& what, const std::string& path, int error)
{
    throw std::runtime_error("gpio-sim: " + what + " " + path + ": " + std::strerror(error));
}

// sysfs and configfs take an attribute in one write and may refuse it at the
// write or only at the close; the stream fails on either.
void WriteAttribute(const std::string& path, const std::string& text)
{
    std::ofstream out(path);
    out << text << std::flush;
    out.close();
    if (!out) {
        Refused("writing '" + text + "' to", path, errno);
    }
}

std::string ReadAttribute(const std::string& path)
{
    std::ifstream in(path);
    std::string text;
    if (!std::getline(in, text)) {
        Refused("cannot read", path, errno);
    }
    return text;
}

} // namespace

GpioSimChip::GpioSimChip(unsigned int lineCount, const std::map<unsigned int, std::string>& names)
    : lineCount(lineCount), names(names)
{
    if (!std::filesystem::is_directory(ConfigRoot)) {
        throw std::runtime_error("gpio-sim: " + ConfigRoot +
                                 " is missing: this kernel has no gpio-sim or configfs "
                                 "is not mounted; GPIO tests run in the armhf VM (ctest --preset armhf-vm)");
    }
    static unsigned int serial = 0;
    const std::string path = ConfigRoot + "/zel-" + std::to_string(::getpid()) + "-" + std::to_string(serial++);
    std::filesystem::create_directory(path);
    directory = path;
    std::filesystem::create_directory(directory + "/bank0");
    WriteAttribute(directory + "/bank0/num_lines", std::to_string(lineCount));
    for (const auto& [offset, name] : names) {
        std::filesystem::create_directory(directory + "/bank0/line" + std::to_string(offset));
        WriteAttribute(directory + "/bank0/line" + std::to_string(offset) + "/name", name);
    }
    SetLive(true);
}

// Best effort, and the lines' exports go with the chip. A chip whose build
// failed stays as far as it got: the guest is thrown away after the test.
GpioSimChip::~GpioSimChip()
{
    if (directory.empty()) {
        return;
    }
    try {
        SetLive(false);
    } catch (const std::exception&) {
    }
    for (const auto& [offset, name] : names) {
        ::rmdir((directory + "/bank0/line" + std::to_string(offset)).c_str());
    }
    ::rmdir((directory + "/bank0").c_str());
    ::rmdir(directory.c_str());
}

void GpioSimChip::SetLive(bool live)
{
    WriteAttribute(directory + "/live", live ? "1" : "0");
    if (live) {
        device = ReadAttribute(directory + "/dev_name");
        chipName = ReadAttribute(directory + "/bank0/chip_name");
        // The sysfs class entry "gpiochip<base>" hangs off the platform device.
        for (const auto& entry : std::filesystem::directory_iterator("/sys/devices/platform/" + device + "/gpio")) {
            base = static_cast<unsigned int>(std::stoul(ReadAttribute(entry.path().string() + "/base")));
        }
    }
}

std::string GpioSimChip::Export(unsigned int offset)
{
    WriteAttribute("/sys/class/gpio/export", std::to_string(base + offset));
    return "/sys/class/gpio/gpio" + std::to_string(base + offset) + "/value";
}

void GpioSimChip::Unexport(unsigned int offset)
{
    WriteAttribute("/sys/class/gpio/unexport", std::to_string(base + offset));
}

void GpioSimChip::SetPull(unsigned int offset, Pull pull)
{
    WriteAttribute(Line(offset) + "/pull", pull == Pull::Up ? "pull-up" : "pull-down");
}

int GpioSimChip::Value(unsigned int offset) const
{
    return std::stoi(ReadAttribute(Line(offset) + "/value"));
}

std::string GpioSimChip::Line(unsigned int offset) const
{
    return "/sys/devices/platform/" + device + "/" + chipName + "/sim_gpio" + std::to_string(offset);
}

} // namespace Zel::Test
