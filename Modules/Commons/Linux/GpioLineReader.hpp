#pragma once

#include "Modules/Commons/Linux/GpioChip.hpp"
#include "Modules/Commons/Linux/ScopedDescriptor.hpp"

#include <Zel/System/Commons/BasicString.hpp>
#include <Zel/System/Commons/Logging/Loggable.hpp>

#include <chrono>
#include <optional>
#include <utility>

namespace Zel::Hardware::Modules::Commons::Linux {

// One GPIO line read through the kernel's GPIO character device as an input,
// active high.
//
// The kernel grants a line to one requester at a time, and the controller and
// nimhost read the same link lines from two processes. So the line is not
// held: every Read requests it, reads it and releases it again (the chip's
// node stays open for the object's life). A reader that finds the line held
// by another reader of ours asks again when the kernel reports it released,
// for up to 100 ms; a line that anyone else holds is busy and not read.
//
// Construction finds chip and line (see GpioChip) and throws
// InvalidOperationException when either is not there. Read is const, never
// throws and may run on any thread; each failed Read logs one error on this
// class's channel.
class GpioLineReader : private Zel::System::Commons::Logging::Loggable<GpioLineReader, false, false> {
public:
    // `chip`: a chip's device node or label, or empty for a line named
    // `line` on any chip; `line`: a decimal offset on `chip`, or a line name.
    GpioLineReader(const BasicString& chip, const BasicString& line);

    // True with the line's level in `value` (true: high); false, `value`
    // untouched, when the line could not be read or is busy.
    bool Read(bool& value) const;

    const GpioChip& Chip() const { return chip; }
    unsigned int Offset() const { return offset; }

    // The consumer label the line is requested with, which tells other
    // readers of ours from the line's other users.
    static constexpr const char* Consumer = "zel-nim-link";

private:
    explicit GpioLineReader(std::pair<GpioChip, unsigned int> found, const BasicString& line);
    // Opens `watcher` with a watch on the line unless it is open; false when
    // the line cannot be watched.
    bool Watch(std::optional<ScopedDescriptor>& watcher) const;
    // Returns when the line is released or changes otherwise, or at the
    // deadline; at once when it is free or cannot be watched.
    void WaitForRelease(std::optional<ScopedDescriptor>& watcher, std::chrono::steady_clock::time_point deadline) const;

    GpioChip chip;
    unsigned int offset;
};

} // namespace Zel::Hardware::Modules::Commons::Linux
