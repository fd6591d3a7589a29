#pragma once

#include <Zel/Export.hpp>

#include <string_view>

namespace Zel::System::Commons::Logging {

// Where formatted messages end up. Write may be called from any thread at
// once; an implementation serialises itself.
class ZEL_API ILogSink {
public:
    virtual ~ILogSink();
    virtual void Write(int level, std::string_view channel, std::string_view text) = 0;
};

// One line per message on standard error: time, level, channel, text.
class ZEL_API StderrLogSink : public ILogSink {
public:
    void Write(int level, std::string_view channel, std::string_view text) override;
};

} // namespace Zel::System::Commons::Logging
