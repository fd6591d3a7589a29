#include "GpioSimChip.hpp"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Zel::Test {
namespace {

const std::string ConfigRoot = "/sys/kernel/config/gpio-sim";

[[noreturn]] void Refused(const std::string& what, const std::string& path, int error)
{
    throw std::runtime_error("gpio-sim: " + what + " " + path + ": " + std::strerror(error));
}

// sysfs and configfs take an attribute in one write and may refuse it at the
// write or only at the close, so both are checked.
void WriteAttribute(const std::string& path, const std::string& text)
{
    const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0) {
        Refused("cannot open", path, errno);
    }
    const ssize_t written = ::write(fd, text.data(), text.size());
    const int writeError = errno;
    if (::close(fd) != 0 && written >= 0) {
        Refused("writing '" + text + "' to", path, errno);
    }
    if (written != static_cast<ssize_t>(text.size())) {
        Refused("writing '" + text + "' to", path, written < 0 ? writeError : EIO);
    }
}

std::string ReadAttribute(const std::string& path)
{
    std::ifstream in(path);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!in.good() && !in.eof()) {
        Refused("cannot read", path, errno);
    }
    if (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text;
}

void MakeDirectory(const std::string& path)
{
    if (::mkdir(path.c_str(), 0755) != 0) {
        Refused("cannot create", path, errno);
    }
}

} // namespace

GpioSimChip::GpioSimChip(GpioSimChip&& other) noexcept
    : lineCount(other.lineCount), names(std::move(other.names)),
      directory(std::exchange(other.directory, std::string())), device(std::move(other.device)),
      chipName(std::move(other.chipName)), base(other.base), exported(std::move(other.exported))
{
}

GpioSimChip::~GpioSimChip()
{
    Remove();
}

GpioSimChip& GpioSimChip::Lines(unsigned int count)
{
    lineCount = count;
    return *this;
}

GpioSimChip& GpioSimChip::Name(unsigned int offset, const std::string& name)
{
    names[offset] = name;
    return *this;
}

GpioSimChip GpioSimChip::Build()
{
    if (!std::filesystem::is_directory(ConfigRoot)) {
        throw std::runtime_error("gpio-sim: " + ConfigRoot +
                                 " is missing: this kernel has no gpio-sim or configfs "
                                 "is not mounted; GPIO tests run in the armhf VM (ctest --preset armhf-vm)");
    }
    static unsigned int serial = 0;
    directory = ConfigRoot + "/zel-" + std::to_string(::getpid()) + "-" + std::to_string(serial++);
    MakeDirectory(directory);
    MakeDirectory(directory + "/bank0");
    WriteAttribute(directory + "/bank0/num_lines", std::to_string(lineCount));
    for (const auto& [offset, name] : names) {
        MakeDirectory(directory + "/bank0/line" + std::to_string(offset));
        WriteAttribute(directory + "/bank0/line" + std::to_string(offset) + "/name", name);
    }
    SetLive(true);
    return std::move(*this);
}

void GpioSimChip::SetLive(bool live)
{
    if (!live) {
        exported.clear(); // the exports go with the chip
    }
    WriteAttribute(directory + "/live", live ? "1" : "0");
    if (!live) {
        return;
    }
    device = ReadAttribute(directory + "/dev_name");
    chipName = ReadAttribute(directory + "/bank0/chip_name");
    // The sysfs class entry "gpiochip<base>" hangs off the platform device.
    const std::string classDirectory = "/sys/devices/platform/" + device + "/gpio";
    for (const auto& entry : std::filesystem::directory_iterator(classDirectory)) {
        if (entry.path().filename().string().rfind("gpiochip", 0) == 0) {
            base = static_cast<unsigned int>(std::stoul(ReadAttribute(entry.path().string() + "/base")));
            return;
        }
    }
    throw std::runtime_error("gpio-sim: " + chipName + " has no entry in " + classDirectory);
}

std::string GpioSimChip::Export(unsigned int offset)
{
    WriteAttribute("/sys/class/gpio/export", std::to_string(base + offset));
    exported.insert(offset);
    return "/sys/class/gpio/gpio" + std::to_string(base + offset) + "/value";
}

void GpioSimChip::Unexport(unsigned int offset)
{
    WriteAttribute("/sys/class/gpio/unexport", std::to_string(base + offset));
    exported.erase(offset);
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

// Best effort: a destructor cannot fail the test, and the guest is thrown
// away after the test anyway.
void GpioSimChip::Remove() noexcept
{
    if (directory.empty()) {
        return;
    }
    try {
        for (const unsigned int offset : std::set<unsigned int>(exported)) {
            Unexport(offset);
        }
        SetLive(false);
    } catch (const std::exception&) {
    }
    for (const auto& [offset, name] : names) {
        ::rmdir((directory + "/bank0/line" + std::to_string(offset)).c_str());
    }
    ::rmdir((directory + "/bank0").c_str());
    ::rmdir(directory.c_str());
    directory.clear();
}

} // namespace Zel::Test
