// Shared by the IP configuration and IP status fuzz targets: logging that
// formats every message (level 8) and drops it, a private temporary directory
// removed at exit, property checks that abort, and the input cut into fields.
#pragma once

#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/Logging/LogManager.hpp>
#include <Zel/System/Commons/Logging/LogSink.hpp>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>

#include <stdlib.h>
#include <unistd.h>

namespace Zel::Fuzz {

inline void Check(bool condition, const char* what, const std::string& detail = std::string())
{
    if (!condition) {
        std::fprintf(stderr, "fuzz property violated: %s %s\n", what, detail.c_str());
        std::abort();
    }
}

// Sets up the logging once and returns the path of `fileName` in a new
// temporary directory (on tmpfs where there is one: writes sync the file).
inline std::string SetUp(const char* fileName)
{
    struct DiscardSink : Zel::System::Commons::Logging::ILogSink {
        void Write(int, std::string_view, std::string_view) override {}
    };
    static Zel::System::Commons::AppDomain appDomain;
    auto logManager = std::make_shared<Zel::System::Commons::Logging::LogManager>(8);
    logManager->SetSink(std::make_shared<DiscardSink>());
    appDomain.AddSingleton(logManager);

    static std::string directory = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    directory += "/zel-ip-fuzz-XXXXXX";
    Check(::mkdtemp(directory.data()) != nullptr, "mkdtemp");
    std::atexit([] {
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
    });
    return directory + "/" + fileName;
}

inline void WriteAll(const std::string& path, const std::string& content)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    Check(static_cast<bool>((out << content).flush()), "could not write", path);
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
