#include "Modules/Commons/Linux/GpioLineReader.hpp"

#include "Modules/Commons/Linux/ErrorString.hpp"

#include <Zel/System/Commons/Logging/LogAdapter.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/gpio.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace Zel::Hardware::Modules::Commons::Linux {

using Zel::System::Commons::Logging::Debug;
using Zel::System::Commons::Logging::Error;
using Clock = std::chrono::steady_clock;

namespace {

// Another reader of ours holds the line for two ioctls and a close. Being
// preempted in between can keep it for a scheduler tick or a few, 10 ms each
// on a 100 Hz board kernel; 100 ms covers that under load, and is what a
// busy line costs a caller at most.
constexpr auto BusyWait = std::chrono::milliseconds(100);

constexpr const char* ReadFailed = "Could not read line {1} of GPIO chip '{0}': {2}";
constexpr const char* Busy = "Line {1} of GPIO chip '{0}' is busy: held by '{2}'";

std::pair<GpioChip, unsigned int> Find(const BasicString& chip, const BasicString& line)
{
    unsigned int offset = 0;
    if (chip.empty()) {
        GpioChip found = GpioChip::WithLineNamed(line, offset);
        return {std::move(found), offset};
    }
    GpioChip found(chip);
    offset = found.FindLine(line);
    return {std::move(found), offset};
}

} // namespace

GpioLineReader::GpioLineReader(const BasicString& chip, const BasicString& line)
    : GpioLineReader(Find(chip, line), line)
{
}

GpioLineReader::GpioLineReader(std::pair<GpioChip, unsigned int> found, const BasicString& line)
    : chip(std::move(found.first)), offset(found.second)
{
    log(Debug, "GPIO line '{0}' is line {2} of '{1}' (label '{3}')", line, chip.Path(), offset, chip.Label());
}

bool GpioLineReader::Read(bool& value) const
{
    const auto deadline = Clock::now() + BusyWait;
    // Once the line was found busy: a descriptor with a watch on the line.
    std::optional<ScopedDescriptor> watcher;
    for (;;) {
        // Input as it is: no bias flag, which would change what the line reads.
        gpio_v2_line_request request{};
        request.offsets[0] = offset;
        request.num_lines = 1;
        request.config.flags = GPIO_V2_LINE_FLAG_INPUT;
        std::strncpy(request.consumer, Consumer, sizeof(request.consumer) - 1);
        if (ioctl(chip.Descriptor(), GPIO_V2_GET_LINE_IOCTL, &request) == 0) {
            const ScopedDescriptor line(request.fd);
            gpio_v2_line_values values{};
            values.mask = 1;
            if (ioctl(line.Get(), GPIO_V2_LINE_GET_VALUES_IOCTL, &values) != 0) {
                const int error = errno;
                log(Error, ReadFailed, chip.Path(), offset, ErrorString().GetString(error));
                return false;
            }
            value = (values.bits & 1U) != 0;
            return true;
        }
        const int error = errno;
        if (error != EBUSY) {
            log(Error, ReadFailed, chip.Path(), offset, ErrorString().GetString(error));
            return false;
        }
        // Held by another reader of ours (or free again by now): ask again
        // when the kernel reports it released. A reader that only slept
        // would wake at any moment of the other's reads, likely while it
        // holds the line again. Every lasting holder has a label (the kernel
        // gives its own users "?" at least); a used line without one shows up
        // only while readers of ours take turns, and is waited for as theirs.
        const std::optional<std::string> holder = chip.Holder(offset);
        if ((holder && !holder->empty() && *holder != Consumer) || Clock::now() >= deadline) {
            log(Error, Busy, chip.Path(), offset, holder.value_or(std::string()));
            return false;
        }
        WaitForRelease(watcher, deadline);
    }
}

bool GpioLineReader::Watch(std::optional<ScopedDescriptor>& watcher) const
{
    if (!watcher) {
        watcher.emplace(::open(chip.Path().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
        gpio_v2_line_info info{};
        info.offset = offset;
        if (watcher->Get() >= 0 && ioctl(watcher->Get(), GPIO_V2_GET_LINEINFO_WATCH_IOCTL, &info) != 0) {
            watcher.emplace(-1);
        }
    }
    return watcher->Get() >= 0;
}

void GpioLineReader::WaitForRelease(std::optional<ScopedDescriptor>& watcher, Clock::time_point deadline) const
{
    // Changes from the watch on queue up on it, so a release between the
    // look at the line and the poll still ends the wait.
    if (!Watch(watcher) || !chip.Holder(offset)) {
        return;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd event{watcher->Get(), POLLIN, 0};
    if (poll(&event, 1, static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0))) > 0) {
        gpio_v2_line_info_changed changes[8];
        [[maybe_unused]] const ssize_t ignored = ::read(watcher->Get(), changes, sizeof(changes));
    }
}

} // namespace Zel::Hardware::Modules::Commons::Linux
