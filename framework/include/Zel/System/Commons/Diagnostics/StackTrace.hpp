#pragma once

#include <Zel/Export.hpp>
#include <Zel/System/Commons/BasicString.hpp>

#include <vector>

namespace Zel::System::Commons::Diagnostics {

// The return addresses of the calling thread's stack, taken at construction.
// Symbols are resolved only when ToString() is called.
class ZEL_API StackTrace {
public:
    StackTrace();
    explicit StackTrace(bool capture);

    const std::vector<void*>& GetFrames() const { return frames; }
    BasicString ToString() const;

private:
    std::vector<void*> frames;
};

} // namespace Zel::System::Commons::Diagnostics
