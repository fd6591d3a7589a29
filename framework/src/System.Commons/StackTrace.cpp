#include <Zel/System/Commons/Diagnostics/StackTrace.hpp>

#include <execinfo.h>

#include <cstdlib>
#include <memory>

namespace Zel::System::Commons::Diagnostics {

namespace {
constexpr int maxFrames = 64;
}

StackTrace::StackTrace() : StackTrace(true)
{
}

StackTrace::StackTrace(bool capture)
{
    if (!capture) {
        return;
    }
    void* buffer[maxFrames];
    const int count = ::backtrace(buffer, maxFrames);
    // Frame 0 is this constructor; the caller's frames follow.
    if (count > 1) {
        frames.assign(buffer + 1, buffer + count);
    }
}

BasicString StackTrace::ToString() const
{
    BasicString text;
    if (frames.empty()) {
        return text;
    }
    std::unique_ptr<char*, decltype(&std::free)> symbols(::backtrace_symbols(frames.data(),
                                                                             static_cast<int>(frames.size())),
                                                         &std::free);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        text += fmt::format("  #{} {}\n", i, symbols ? symbols.get()[i] : fmt::format("{}", frames[i]));
    }
    return text;
}

} // namespace Zel::System::Commons::Diagnostics
