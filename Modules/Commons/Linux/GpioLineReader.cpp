#include "Modules/Commons/Linux/GpioLineReader.hpp"

#include "Modules/Commons/Linux/ErrorString.hpp"
#include "Modules/Commons/Linux/ScopedDescriptor.hpp"

#include <Zel/System/Commons/Logging/LogAdapter.hpp>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <linux/gpio.h>
#include <sys/ioctl.h>
#include <thread>

namespace Zel::Hardware::Modules::Commons::Linux {

using Zel::System::Commons::Logging::Debug;
using Zel::System::Commons::Logging::Error;

namespace {

// Another reader of ours holds the line for two ioctls and a close; 20 ms
// covers it being preempted in between on a loaded board, so a busy line
// costs a caller at most that.
constexpr auto BusyWait = std::chrono::milliseconds(20);
constexpr auto RetryPause = std::chrono::microseconds(200);

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
    const auto deadline = std::chrono::steady_clock::now() + BusyWait;
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
        // Free again by now, or held by another of our readers: ask again.
        const std::optional<std::string> holder = chip.Holder(offset);
        if ((holder && *holder != Consumer) || std::chrono::steady_clock::now() >= deadline) {
            log(Error, Busy, chip.Path(), offset, holder.value_or(std::string()));
            return false;
        }
        std::this_thread::sleep_for(RetryPause);
    }
}

} // namespace Zel::Hardware::Modules::Commons::Linux
