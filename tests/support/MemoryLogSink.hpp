#pragma once

#include <Zel/System/Commons/Logging/LogSink.hpp>

#include <mutex>
#include <string>
#include <vector>

namespace Zel::Test {

struct LogRecord {
    int level;
    std::string channel;
    std::string text;
};

// Keeps every message in memory so a test can read back level and text.
class MemoryLogSink : public Zel::System::Commons::Logging::ILogSink {
public:
    void Write(int level, std::string_view channel, std::string_view text) override;

    std::vector<LogRecord> Records() const;
    // Messages whose text equals text exactly.
    std::size_t Count(const std::string& text) const;
    std::size_t Count(int level, const std::string& text) const;
    bool Contains(int level, const std::string& text) const { return Count(level, text) > 0; }
    void Clear();

private:
    mutable std::mutex lock;
    std::vector<LogRecord> records;
};

// The sink that TestMain installs, and a scope that clears it and sets every
// channel to the given level for one test.
MemoryLogSink& TestLog();

class LogCapture {
public:
    explicit LogCapture(int level = 8);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    MemoryLogSink& Sink() const { return TestLog(); }
    std::vector<LogRecord> Records() const { return TestLog().Records(); }
    std::size_t Count(int level, const std::string& text) const { return TestLog().Count(level, text); }
    bool Contains(int level, const std::string& text) const { return TestLog().Contains(level, text); }
    // Every message as "<level> <text>", one per line.
    std::string Text() const;
};

} // namespace Zel::Test
