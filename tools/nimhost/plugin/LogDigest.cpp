#include "plugin/LogDigest.hpp"

#include <Zel/System/Commons/Logging/LogAdapter.hpp>

#include <fmt/format.h>

#include <algorithm>

namespace Zel::Tools::Nimhost {

using Zel::System::Commons::Logging::LogLevel;

namespace {

// Enough for a failed set-up or setter to be explained; older texts go.
constexpr std::size_t keptTexts = 256;

} // namespace

LogDigest::LogDigest(int printLevel, std::FILE* out) : printLevel(printLevel), out(out)
{
}

void LogDigest::Print(const Key& key, const std::string& suffix)
{
    const auto& [level, channel, text] = key;
    const std::string line = fmt::format("[{}] {}: {}{}\n", level, channel, text, suffix);
    std::fwrite(line.data(), 1, line.size(), out);
    std::fflush(out);
}

void LogDigest::Write(int level, std::string_view channel, std::string_view text)
{
    const std::lock_guard<std::mutex> guard(lock);
    ++written;
    recent.emplace_back(level, std::string(text));
    if (recent.size() > keptTexts) {
        recent.erase(recent.begin());
    }
    if (level > printLevel) {
        return;
    }
    Key key{level, std::string(channel), std::string(text)};
    if (holding) {
        held.push_back(std::move(key));
        return;
    }
    Handle(std::move(key));
}

void LogDigest::Handle(Key key)
{
    if (std::get<0>(key) >= LogLevel::Debug) {
        Print(key, "");
        return;
    }
    if (std::find(silenced.begin(), silenced.end(), std::get<2>(key)) != silenced.end()) {
        return;
    }
    auto [entry, isNew] = seen.try_emplace(std::move(key));
    if (++entry->second.count == 1U) {
        entry->second.order = written;
        Print(entry->first, "");
    }
}

void LogDigest::Finish()
{
    const std::lock_guard<std::mutex> guard(lock);
    std::vector<std::pair<const Key*, const Seen*>> repeated;
    for (const auto& [key, entry] : seen) {
        if (entry.count > 1U) {
            repeated.emplace_back(&key, &entry);
        }
    }
    std::sort(repeated.begin(), repeated.end(),
              [](const auto& a, const auto& b) { return a.second->order < b.second->order; });
    for (const auto& [key, entry] : repeated) {
        Print(*key, fmt::format(" ({} times)", entry->count));
    }
    seen.clear();
}

std::size_t LogDigest::Mark() const
{
    const std::lock_guard<std::mutex> guard(lock);
    return written;
}

std::vector<std::string> LogDigest::TextsSince(std::size_t mark, int maxLevel) const
{
    const std::lock_guard<std::mutex> guard(lock);
    std::vector<std::string> texts;
    const std::size_t newer = std::min(written - std::min(mark, written), recent.size());
    for (auto it = recent.end() - static_cast<std::ptrdiff_t>(newer); it != recent.end(); ++it) {
        if (it->first <= maxLevel) {
            texts.push_back(it->second);
        }
    }
    return texts;
}

void LogDigest::Silence(const std::string& text)
{
    const std::lock_guard<std::mutex> guard(lock);
    silenced.push_back(text);
}

} // namespace Zel::Tools::Nimhost

namespace Zel::Tools::Nimhost {

void LogDigest::Hold()
{
    const std::lock_guard<std::mutex> guard(lock);
    holding = true;
}

std::vector<std::string> LogDigest::Release(bool print)
{
    const std::lock_guard<std::mutex> guard(lock);
    holding = false;
    std::vector<std::string> texts;
    for (auto& key : held) {
        texts.push_back(std::get<2>(key));
        if (print) {
            Handle(std::move(key));
        }
    }
    held.clear();
    return texts;
}

} // namespace Zel::Tools::Nimhost
