// Exceptions, type names and bounded string copies as the plug-in's messages
// depend on them.
#include <Zel/Hardware/Nim/NimTypes.hpp>
#include <Zel/System/Commons/Diagnostics/RuntimeTypeInfo.hpp>
#include <Zel/System/Commons/Exception.hpp>
#include <Zel/System/Commons/SecureStrcpy.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <typeinfo>

namespace Zel::Test::Names {
struct Plain {};
template <typename T>
struct Wrapper {};
} // namespace Zel::Test::Names

namespace {

using Zel::System::Commons::ArgumentException;
using Zel::System::Commons::BasicString;
using Zel::System::Commons::Exception;
using Zel::System::Commons::InvalidConfigException;
using Zel::System::Commons::InvalidOperationException;
using Zel::System::Commons::NotSupportedException;
using Zel::System::Commons::SecureStrcpy;
using Zel::System::Commons::Diagnostics::RuntimeTypeInfo;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

TEST(ArgumentException, NamesTheArgumentItsValueAndTheReason)
{
    EXPECT_STREQ(ArgumentException::Create("device", 7U, "Device number out of range").what(),
                 "Invalid argument 'device' = '7': Device number out of range");
    EXPECT_STREQ(ArgumentException::Create("name", BasicString("eth0"), "Unknown interface").what(),
                 "Invalid argument 'name' = 'eth0': Unknown interface");
    EXPECT_STREQ(ArgumentException::Create("mode", Zel::Hardware::Nim::IpAssignMode::Manual, "Bad mode").what(),
                 "Invalid argument 'mode' = '2': Bad mode");
    EXPECT_STREQ(ArgumentException::Create("pointer", static_cast<int*>(nullptr), "Null").what(),
                 "Invalid argument 'pointer' = '0x0': Null");
}

TEST(Exceptions, CarryTheirMessageAndTheStackWhereTheyWereCreated)
{
    const Exception exceptions[] = {Exception("plain"), ArgumentException("argument"),
                                    InvalidConfigException("config"), InvalidOperationException("operation"),
                                    NotSupportedException("unsupported")};
    for (const Exception& e : exceptions) {
        EXPECT_STREQ(e.what(), e.GetMessage().c_str());
        EXPECT_FALSE(e.GetStackTrace().GetFrames().empty()) << e.what();
    }
    // Each is caught as the framework's base exception.
    EXPECT_THAT([] { throw NotSupportedException("no"); }, ThrowsMessage<Exception>(StrEq("no")));
    EXPECT_THAT([] { throw InvalidConfigException("cfg"); }, ThrowsMessage<std::exception>(StrEq("cfg")));
}

TEST(RuntimeTypeInfo, DemanglesTypeAndSymbolNames)
{
    EXPECT_EQ(RuntimeTypeInfo::DemangleSymbol(typeid(Zel::Test::Names::Plain).name()), "Zel::Test::Names::Plain");
    EXPECT_EQ(RuntimeTypeInfo::DemangleSymbol("_ZN3Zel4Test3RunEv"), "Zel::Test::Run()");
    EXPECT_EQ(RuntimeTypeInfo::DemangleSymbol("not a mangled name!"), "");
    EXPECT_EQ(RuntimeTypeInfo::DemangleSymbol(nullptr), "");
}

TEST(RuntimeTypeInfo, DottedNamesReplaceEveryScopeSeparator)
{
    EXPECT_EQ(RuntimeTypeInfo::GetDottedTypeName(typeid(Zel::Test::Names::Plain)), "Zel.Test.Names.Plain");
    EXPECT_EQ(RuntimeTypeInfo::GetDottedTypeName(typeid(Zel::Test::Names::Wrapper<Zel::Test::Names::Plain>)),
              "Zel.Test.Names.Wrapper<Zel.Test.Names.Plain>");
}

// A type_info whose name no demangler accepts.
class UnreadableTypeInfo : public std::type_info {
public:
    explicit UnreadableTypeInfo(const char* name) : std::type_info(name) {}
};

TEST(RuntimeTypeInfo, AnUndemanglableTypeNameThrowsNamingIt)
{
    const UnreadableTypeInfo type("not a mangled name!");
    EXPECT_THAT([&] { (void)RuntimeTypeInfo::GetDottedTypeName(type); },
                ThrowsMessage<Exception>(StrEq("Demangling of type name 'not a mangled name!' failed.")));
}

TEST(SecureStrcpy, CopiesWhatFitsAndSaysWhetherItWasCut)
{
    const struct {
        const char* source;
        std::size_t size;
        int result;
        const char* copied;
    } cases[] = {
        {"eth0", 16, 0, "eth0"},
        {"eth0", 5, 0, "eth0"},      // exactly fits with its terminator
        {"eth0", 4, ERANGE, "eth"},  // one byte short
        {"eth0", 1, ERANGE, ""},
        {"", 1, 0, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << "'" << c.source << "' into " << c.size);
        char buffer[32];
        std::memset(buffer, 'X', sizeof buffer);
        EXPECT_EQ(SecureStrcpy(buffer, c.size, c.source), c.result);
        EXPECT_STREQ(buffer, c.copied);
        EXPECT_EQ(buffer[c.size], 'X') << "wrote past the buffer";
    }
}

TEST(SecureStrcpy, RefusesNullPointersAndAnEmptyBuffer)
{
    char buffer[4] = {'X', 'X', 'X', 'X'};
    EXPECT_EQ(SecureStrcpy(buffer, 0, "a"), EINVAL);
    EXPECT_EQ(SecureStrcpy(buffer, sizeof buffer, nullptr), EINVAL);
    EXPECT_EQ(SecureStrcpy(nullptr, sizeof buffer, "a"), EINVAL);
    EXPECT_EQ(buffer[0], 'X');
}

} // namespace
