#include "Modules/Commons/Linux/GpioChip.hpp"

#include "Modules/Commons/Linux/ErrorString.hpp"

#include <Zel/System/Commons/Exception.hpp>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <linux/gpio.h>
#include <sys/ioctl.h>
#include <utility>
#include <vector>

namespace Zel::Hardware::Modules::Commons::Linux {

using Zel::System::Commons::InvalidOperationException;

namespace {

constexpr const char* CouldNotOpen = "Could not open GPIO chip '{0}': {1}";
constexpr const char* NotAChip = "'{0}' is not a GPIO chip: {1}";
constexpr const char* NoChipLabelled = "No GPIO chip is labelled '{0}'";
constexpr const char* NoChipLabelledUnopened = "No GPIO chip is labelled '{0}'; '{1}' could not be opened: {2}";
constexpr const char* NoLineNumbered = "GPIO chip '{0}' has no line {1}: its lines are 0 to {2}";
constexpr const char* NoLineNamedOnChip = "GPIO chip '{0}' has no line named '{1}'";
constexpr const char* NoLineNamed = "No GPIO chip has a line named '{0}'";
constexpr const char* NoLineNamedUnopened = "No GPIO chip has a line named '{0}'; '{1}' could not be opened: {2}";

// The kernel ends its texts with a NUL, but a full field is taken no further.
template <std::size_t Size>
std::string KernelText(const char (&text)[Size])
{
    return std::string(text, strnlen(text, Size));
}

std::string LineNameOf(int chipFd, unsigned int offset)
{
    gpio_v2_line_info info{};
    info.offset = offset;
    if (ioctl(chipFd, GPIO_V2_GET_LINEINFO_IOCTL, &info) != 0) {
        return std::string();
    }
    return KernelText(info.name);
}

// Every /dev/gpiochipN in the order of N, which is the order the kernel
// registered the chips in.
std::vector<BasicString> ChipNodes()
{
    std::vector<std::pair<unsigned int, BasicString>> nodes;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/dev", error)) {
        const std::string file = entry.path().filename().string();
        constexpr std::string_view prefix = "gpiochip";
        unsigned int number = 0;
        const char* digits = file.data() + prefix.size();
        const char* end = file.data() + file.size();
        if (file.rfind(prefix, 0) != 0 || digits == end || std::from_chars(digits, end, number).ptr != end) {
            continue;
        }
        nodes.emplace_back(number, BasicString(entry.path().string()));
    }
    std::sort(nodes.begin(), nodes.end());
    std::vector<BasicString> paths;
    for (auto& node : nodes) {
        paths.push_back(std::move(node.second));
    }
    return paths;
}

// One chip node opened for a look: its descriptor and what the kernel says
// about the chip, or why not.
struct Probe {
    explicit Probe(const BasicString& path) : fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC))
    {
        if (fd.Get() < 0) {
            openError = errno;
        } else if (ioctl(fd.Get(), GPIO_GET_CHIPINFO_IOCTL, &info) != 0) {
            infoError = errno;
        }
    }
    bool Usable() const { return openError == 0 && infoError == 0; }

    ScopedDescriptor fd;
    gpiochip_info info{};
    int openError = 0;
    int infoError = 0;
};

// A search over every chip that found nothing: the plain text, or, when a
// chip could not be opened (and so might have been the one), the text that
// names the first such node with its error.
[[noreturn]] void ThrowNotFound(const char* plain, const char* withUnopened, const BasicString& wanted,
                                const BasicString& unopened, int openError)
{
    if (unopened.empty()) {
        throw InvalidOperationException(BasicString::Format(plain, wanted));
    }
    throw InvalidOperationException(
        BasicString::Format(withUnopened, wanted, unopened, ErrorString().GetString(openError)));
}

BasicString NodeLabelled(const BasicString& label)
{
    BasicString unopened;
    int openError = 0;
    for (const auto& path : ChipNodes()) {
        const Probe probe(path);
        if (probe.Usable() && KernelText(probe.info.label) == label) {
            return path;
        }
        if (probe.openError != 0 && unopened.empty()) {
            unopened = path;
            openError = probe.openError;
        }
    }
    ThrowNotFound(NoChipLabelled, NoChipLabelledUnopened, label, unopened, openError);
}

} // namespace

GpioChip::GpioChip(const BasicString& chip)
    : name(chip), path(chip.rfind('/', 0) == 0 ? chip : NodeLabelled(chip)),
      fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC)), lines(0)
{
    if (fd.Get() < 0) {
        const int error = errno;
        throw InvalidOperationException(BasicString::Format(CouldNotOpen, path, ErrorString().GetString(error)));
    }
    gpiochip_info info{};
    if (ioctl(fd.Get(), GPIO_GET_CHIPINFO_IOCTL, &info) != 0) {
        const int error = errno;
        throw InvalidOperationException(BasicString::Format(NotAChip, path, ErrorString().GetString(error)));
    }
    label = KernelText(info.label);
    lines = info.lines;
}

GpioChip GpioChip::WithLineNamed(const BasicString& name, unsigned int& offset)
{
    BasicString unopened;
    int openError = 0;
    // Unnamed lines have an empty name; an empty name finds none of them.
    for (const auto& path : name.empty() ? std::vector<BasicString>() : ChipNodes()) {
        const Probe probe(path);
        if (probe.openError != 0 && unopened.empty()) {
            unopened = path;
            openError = probe.openError;
        }
        for (unsigned int line = 0; probe.Usable() && line < probe.info.lines; ++line) {
            if (LineNameOf(probe.fd.Get(), line) == name) {
                offset = line;
                return GpioChip(path);
            }
        }
    }
    ThrowNotFound(NoLineNamed, NoLineNamedUnopened, name, unopened, openError);
}

unsigned int GpioChip::FindLine(const BasicString& line) const
{
    const bool digits =
        !line.empty() && std::all_of(line.begin(), line.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (digits) {
        unsigned int offset = 0;
        const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), offset);
        if (error == std::errc() && offset < lines) {
            return offset;
        }
        throw InvalidOperationException(BasicString::Format(NoLineNumbered, name, line, lines - 1));
    }
    for (unsigned int offset = 0; !line.empty() && offset < lines; ++offset) {
        if (LineName(offset) == line) {
            return offset;
        }
    }
    throw InvalidOperationException(BasicString::Format(NoLineNamedOnChip, name, line));
}

std::optional<std::string> GpioChip::Holder(unsigned int offset) const
{
    gpio_v2_line_info info{};
    info.offset = offset;
    if (ioctl(fd.Get(), GPIO_V2_GET_LINEINFO_IOCTL, &info) != 0 || (info.flags & GPIO_V2_LINE_FLAG_USED) == 0) {
        return std::nullopt;
    }
    return KernelText(info.consumer);
}

std::string GpioChip::LineName(unsigned int offset) const
{
    return LineNameOf(fd.Get(), offset);
}

} // namespace Zel::Hardware::Modules::Commons::Linux
