// Shared by every fuzz target: logging that formats every message (level 8)
// and drops it, private temporary directories removed at exit, property
// checks that abort, and the input cut into fields.
#pragma once

#include "Modules/Commons/Linux/IpConfigFileAccess.hpp"
#include "tests/support/ScratchDirectory.hpp"

#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/Logging/LogManager.hpp>
#include <Zel/System/Commons/Logging/LogSink.hpp>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <unistd.h>

namespace Zel::Fuzz {

[[noreturn]] inline void Fail(const std::string& what)
{
    std::fprintf(stderr, "fuzz property violated: %s\n", what.c_str());
    std::abort();
}

inline void Check(bool condition, const char* what, const std::string& detail = std::string())
{
    if (!condition) {
        Fail(std::string(what) + " " + detail);
    }
}

// The host's domain with every channel at trace level, so that every message
// is formatted with the fuzzed texts. Lives until the process ends: module
// statics still log while the process exits.
inline void SetUpLogging()
{
    struct DiscardSink : Zel::System::Commons::Logging::ILogSink {
        void Write(int, std::string_view, std::string_view) override {}
    };
    static auto* const appDomain = new Zel::System::Commons::AppDomain;
    auto logManager = std::make_shared<Zel::System::Commons::Logging::LogManager>(8);
    logManager->SetSink(std::make_shared<DiscardSink>());
    appDomain->AddSingleton(logManager);
}

// A new directory named after `name`, removed at exit; on tmpfs where there is
// one, since writes sync their file.
inline const Zel::Test::ScratchDirectory& TemporaryDirectory(const char* name)
{
    static std::list<Zel::Test::ScratchDirectory> directories;
    return directories.emplace_back(std::string(::access("/dev/shm", W_OK) == 0 ? "/dev/shm/" : "") + name);
}

// Logging set up and the path of `fileName` in a new temporary directory.
inline std::string SetUp(const char* fileName)
{
    SetUpLogging();
    return TemporaryDirectory("zel-ip-fuzz").Path(fileName);
}

// The IP configuration's file access on `file`, with the four keys the
// module reads and writes.
inline std::unique_ptr<Zel::Hardware::Modules::Commons::Linux::IpConfigFileAccess>
InterfacesFileAccess(const std::string& file)
{
    using Zel::System::Commons::BasicString;
    return std::make_unique<Zel::Hardware::Modules::Commons::Linux::IpConfigFileAccess>(
        std::vector<BasicString>{"address", "netmask", "gateway", "dns-nameservers"}, BasicString(file));
}

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : data(data), size(size) {}

    std::uint8_t Byte() { return position < size ? data[position++] : 0; }
    // A length byte and that many bytes (fewer at the end of the input).
    std::string Counted() { return Take(std::min<std::size_t>(Byte(), size - position)); }
    std::string Rest() { return Take(size - position); }

private:
    std::string Take(std::size_t length)
    {
        std::string text(reinterpret_cast<const char*>(data + position), length);
        position += length;
        return text;
    }

    const std::uint8_t* data;
    std::size_t size;
    std::size_t position = 0;
};

} // namespace Zel::Fuzz
