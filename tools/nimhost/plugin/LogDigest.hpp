#pragma once

#include <Zel/System/Commons/Logging/LogSink.hpp>

#include <cstddef>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

namespace Zel::Tools::Nimhost {

// The log sink nimhost gives the framework: it prints the library's messages
// on standard error only when they are news, and keeps the recent ones so a
// command can explain a failure with them.
//
// A message up to level 6 (notice) is printed the first time it arrives;
// identical repeats are counted, not printed, and Finish prints each counted
// message once more with its count. Debug and trace messages (7, 8) are
// printed every time: at those levels the reader wants the sequence.
//
// A long-running command keeps one digest for its whole run: `watch` prints
// a port's error when it first comes and when its text changes, never again
// on later reads of the port (which do not come at a fixed pace: other ports'
// notifications and the periodic re-read decide when a port is read). Write
// may be called from any thread.
class LogDigest : public Zel::System::Commons::Logging::ILogSink {
public:
    // Messages above `printLevel` are kept but not printed.
    LogDigest(int printLevel, std::FILE* out);

    void Write(int level, std::string_view channel, std::string_view text) override;

    // Prints "(N times)" lines for the messages that were repeated.
    void Finish();

    // A mark to pass to TextsSince.
    std::size_t Mark() const;
    // The texts of the messages up to level `maxLevel` written since `mark`.
    std::vector<std::string> TextsSince(std::size_t mark, int maxLevel) const;

    // Messages with this exact text are not printed: nimhost has said the
    // same in its own words.
    void Silence(const std::string& text);

    // Keeps back the messages that come until Release: they are neither
    // printed nor counted (TextsSince still has them).
    void Hold();
    // Ends Hold and returns the texts kept back; when `print`, they are first
    // handled as if they had just come. Used where a message only explains
    // a value the command already shows as unknown.
    std::vector<std::string> Release(bool print);

private:
    using Key = std::tuple<int, std::string, std::string>;
    struct Seen {
        unsigned long count = 0;
        std::size_t order = 0;
    };

    void Print(const Key& key, const std::string& suffix);
    // Prints a message as news, or counts it as a repeat.
    void Handle(Key key);

    const int printLevel;
    std::FILE* const out;
    mutable std::mutex lock;
    std::map<Key, Seen> seen;
    std::vector<std::pair<int, std::string>> recent;
    std::size_t written = 0;
    std::vector<std::string> silenced;
    bool holding = false;
    std::vector<Key> held;
};

} // namespace Zel::Tools::Nimhost
