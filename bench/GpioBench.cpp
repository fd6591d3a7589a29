// A KSZ8863 port's link line read both ways the board can name it: through
// the GPIO character device (request, read, release on every read, so the
// controller and nimhost can share the line) and through the sysfs value file
// (one pread on the file kept open), each next to its bare system calls.
//
// Needs a kernel with GPIO lines to read, which the build machine may lack:
// the rows run only when ZEL_BENCH_GPIO_CHIP (a chip's node or label),
// ZEL_BENCH_GPIO_LINE (an offset or line name on it) and ZEL_BENCH_GPIO_VALUE
// (the value file of another line, exported through sysfs) are set, as
// bench/gpio-vm.sh sets them on gpio-sim lines in the armhf VM.
#include "BenchSupport.hpp"
#include "RatioTable.hpp"

#include "Modules/Commons/Linux/GpioAccess.hpp"
#include "Modules/Commons/Linux/GpioLineReader.hpp"

#include <fcntl.h>
#include <linux/gpio.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <string>

namespace Zel::Bench {

namespace {

using Zel::Hardware::Modules::Commons::Linux::GpioAccess;
using Zel::Hardware::Modules::Commons::Linux::GpioLineReader;

std::string Environment(const char* name)
{
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

std::optional<GpioLineReader> OpenLine(benchmark::State& state)
{
    try {
        return std::optional<GpioLineReader>(std::in_place, Environment("ZEL_BENCH_GPIO_CHIP"),
                                             Environment("ZEL_BENCH_GPIO_LINE"));
    } catch (const std::exception& error) {
        state.SkipWithError(error.what());
        return std::nullopt;
    }
}

void CharacterDeviceLibrary(benchmark::State& state)
{
    const auto line = OpenLine(state);
    if (!line) {
        return;
    }
    Measure(state, [&] {
        bool value = false;
        benchmark::DoNotOptimize(line->Read(value));
        benchmark::DoNotOptimize(value);
    });
}

void CharacterDeviceBare(benchmark::State& state)
{
    const auto line = OpenLine(state);
    if (!line) {
        return;
    }
    const int chip = line->Chip().Descriptor();
    const unsigned int offset = line->Offset();
    Measure(state, [&] {
        gpio_v2_line_request request;
        std::memset(&request, 0, sizeof request);
        request.offsets[0] = offset;
        request.num_lines = 1;
        request.config.flags = GPIO_V2_LINE_FLAG_INPUT;
        std::strcpy(request.consumer, GpioLineReader::Consumer);
        if (ioctl(chip, GPIO_V2_GET_LINE_IOCTL, &request) == 0) {
            gpio_v2_line_values values;
            std::memset(&values, 0, sizeof values);
            values.mask = 1;
            benchmark::DoNotOptimize(ioctl(request.fd, GPIO_V2_LINE_GET_VALUES_IOCTL, &values));
            benchmark::DoNotOptimize(values.bits & 1U);
            close(request.fd);
        }
    });
}

void ValueFileLibrary(benchmark::State& state)
{
    const GpioAccess gpio;
    // The port keeps its path as the framework's string: no copy per read.
    const Zel::System::Commons::BasicString path(Environment("ZEL_BENCH_GPIO_VALUE"));
    int fd = -1;
    try {
        fd = gpio.Open(path, O_RDONLY);
    } catch (const std::exception& error) {
        state.SkipWithError(error.what());
        return;
    }
    Measure(state, [&] {
        bool value = false;
        benchmark::DoNotOptimize(gpio.Read(fd, path, value));
        benchmark::DoNotOptimize(value);
    });
    gpio.Close(fd, path);
}

void ValueFileBare(benchmark::State& state)
{
    MeasureBarePread<2>(state, Environment("ZEL_BENCH_GPIO_VALUE"), '1', "cannot open the value file");
}

// Without lines to read the rows stay out of the run ("not run" in the table).
void RegisterWhenGiven()
{
    if (Environment("ZEL_BENCH_GPIO_CHIP").empty() && Environment("ZEL_BENCH_GPIO_LINE").empty()) {
        return;
    }
    Register("gpio/cdev/lib", CharacterDeviceLibrary);
    Register("gpio/cdev/bare", CharacterDeviceBare);
    Register("gpio/value_file/lib", ValueFileLibrary);
    Register("gpio/value_file/bare", ValueFileBare);
}

} // namespace

ZEL_BENCH_AT_START(RegisterWhenGiven())

ZEL_BENCH_AT_START(AddPair({"GetPortLinkState link line, GPIO character device (request, read, release)",
                            "gpio/cdev/lib", "gpio/cdev/bare", 1.10, std::nullopt, 0.0, "≤ 1.10"}))
ZEL_BENCH_AT_START(AddPair({"GetPortLinkState link line, sysfs GPIO value file (pread 2 B)", "gpio/value_file/lib",
                            "gpio/value_file/bare", 1.10, std::nullopt, 0.0, "≤ 1.10"}))
ZEL_BENCH_AT_START(AddPair({"Link line read: character device against value file (both library)", "gpio/cdev/lib",
                            "gpio/value_file/lib", std::nullopt, std::nullopt, 0.0, "report"}))

} // namespace Zel::Bench
