#pragma once

#include "Modules/Commons/Linux/ScopedDescriptor.hpp"

#include <Zel/System/Commons/BasicString.hpp>

#include <optional>
#include <string>

namespace Zel::Hardware::Modules::Commons::Linux {

using Zel::System::Commons::BasicString;

// One chip of the kernel's GPIO character device (/dev/gpiochipN), open
// read-only for the object's life, and the lines on it. Finding a chip or a
// line throws InvalidOperationException with a text that names what was asked
// for; nothing else throws. The const calls are single ioctls on the one
// descriptor and may run on any thread.
class GpioChip {
public:
    // `chip` is either a chip's device node (any text starting with '/', such
    // as "/dev/gpiochip2") or a chip's label ("gpio-sim.0-node0"), looked up
    // on every chip under /dev.
    explicit GpioChip(const BasicString& chip);

    // The first chip, in the kernel's numbering, with a line named `name`;
    // `offset` gets that line's offset.
    static GpioChip WithLineNamed(const BasicString& name, unsigned int& offset);

    // The offset of `line` on this chip: a decimal offset below the chip's
    // line count, or the name of one of its lines.
    unsigned int FindLine(const BasicString& line) const;

    // The consumer label of whoever holds the line (the kernel's own users
    // included; may be empty), or nothing while the line is free or its
    // state cannot be read.
    std::optional<std::string> Holder(unsigned int offset) const;

    int Descriptor() const { return fd.Get(); }
    // The device node, as given or as found.
    const BasicString& Path() const { return path; }
    // The chip as it was asked for: node or label.
    const BasicString& Name() const { return name; }
    const BasicString& Label() const { return label; }

private:
    // The name the kernel gives the line at `offset`; empty when it has none
    // or its state cannot be read.
    std::string LineName(unsigned int offset) const;

    BasicString name;
    BasicString path;
    ScopedDescriptor fd;
    BasicString label;
    unsigned int lines;
};

} // namespace Zel::Hardware::Modules::Commons::Linux
