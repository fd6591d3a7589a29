// Exceptions, type names, bounded string copies and the text forms of the Nim
// enumerations as the plug-in's messages and files depend on them: the assign
// modes are ifupdown method words (the interfaces file is written with them),
// and a value without a name fails the stream instead of writing something
// unreadable.
#include "CaseFile.hpp"

#include <Zel/Hardware/Nim/NimTypes.hpp>
#include <Zel/System/Commons/Diagnostics/RuntimeTypeInfo.hpp>
#include <Zel/System/Commons/Exception.hpp>
#include <Zel/System/Commons/SecureStrcpy.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <sstream>
#include <string>
#include <typeinfo>

namespace Zel::Test::Names {
struct Plain {};
template <typename T>
struct Wrapper {
};
} // namespace Zel::Test::Names

namespace {

using namespace Zel::System::Commons;
using namespace Zel::Hardware::Nim;
using namespace ::testing;
using Zel::System::Commons::Diagnostics::RuntimeTypeInfo;

TEST(Exceptions, CarryMessageAndStackAndArgumentExceptionsNameArgumentAndValue)
{
    EXPECT_STREQ(ArgumentException::Create("device", 7U, "Device number out of range").what(),
                 "Invalid argument 'device' = '7': Device number out of range");
    EXPECT_STREQ(ArgumentException::Create("name", BasicString("eth0"), "Unknown interface").what(),
                 "Invalid argument 'name' = 'eth0': Unknown interface");
    EXPECT_STREQ(ArgumentException::Create("mode", IpAssignMode::Manual, "Bad mode").what(),
                 "Invalid argument 'mode' = '2': Bad mode");
    EXPECT_STREQ(ArgumentException::Create("pointer", static_cast<int*>(nullptr), "Null").what(),
                 "Invalid argument 'pointer' = '0x0': Null");

    const Exception exceptions[] = {Exception("plain"), ArgumentException("argument"), InvalidConfigException("config"),
                                    InvalidOperationException("operation"), NotSupportedException("unsupported")};
    for (const Exception& e : exceptions) {
        EXPECT_STREQ(e.what(), e.GetMessage().c_str());
        EXPECT_FALSE(e.GetStackTrace().GetFrames().empty()) << e.what();
    }
    EXPECT_THAT([] { throw NotSupportedException("no"); }, ThrowsMessage<Exception>(StrEq("no")));
}

TEST(RuntimeTypeInfo, DemanglesSymbolsAndDotsTypeNames)
{
    using Zel::Test::Names::Plain;
    EXPECT_EQ(RuntimeTypeInfo::DemangleSymbol(typeid(Plain).name()), "Zel::Test::Names::Plain");
    EXPECT_EQ(RuntimeTypeInfo::DemangleSymbol("_ZN3Zel4Test3RunEv"), "Zel::Test::Run()");
    EXPECT_EQ(RuntimeTypeInfo::DemangleSymbol("not a mangled name!"), "");
    EXPECT_EQ(RuntimeTypeInfo::DemangleSymbol(nullptr), "");
    EXPECT_EQ(RuntimeTypeInfo::GetDottedTypeName(typeid(Zel::Test::Names::Wrapper<Plain>)),
              "Zel.Test.Names.Wrapper<Zel.Test.Names.Plain>");
}

TEST(SecureStrcpy, CopiesWhatFitsSaysWhetherItWasCutAndRefusesNulls)
{
    char buffer[32];
    const struct {
        const char* source;
        std::size_t size;
        int result;
        const char* copied; // nullptr: buffer untouched
    } cases[] = {
        {"eth0", 16, 0, "eth0"},    {"eth0", 5, 0, "eth0"}, // exactly fits with its terminator
        {"eth0", 4, ERANGE, "eth"}, {"eth0", 1, ERANGE, ""},       {"", 1, 0, ""},
        {"a", 0, EINVAL, nullptr},  {nullptr, 4, EINVAL, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << "'" << (c.source ? c.source : "(null)") << "' into " << c.size);
        std::memset(buffer, 'X', sizeof buffer);
        EXPECT_EQ(SecureStrcpy(buffer, c.size, c.source), c.result);
        if (c.copied != nullptr) {
            EXPECT_STREQ(buffer, c.copied);
        }
        EXPECT_EQ(buffer[c.copied != nullptr ? c.size : 0], 'X') << "wrote past the buffer";
    }
    EXPECT_EQ(SecureStrcpy(nullptr, 4, "a"), EINVAL);
}

template <typename E>
std::string Write(E value, bool& failed)
{
    std::ostringstream out;
    out << value;
    failed = out.fail();
    return out.str();
}

template <typename E>
void ExpectTextForms(const Zel::Test::Case& c)
{
    std::istringstream unnamed(c["unnamed"]);
    int absent = 0;
    for (int number; unnamed >> number;) {
        absent = number;
        bool failed = false;
        EXPECT_EQ(Write(static_cast<E>(number), failed), "") << number;
        EXPECT_TRUE(failed) << number;
    }
    std::istringstream names(c["names"]);
    for (std::string number, text; names >> number >> text;) {
        SCOPED_TRACE(text);
        const auto value = static_cast<E>(std::stoi(number));
        bool failed = true;
        EXPECT_EQ(Write(value, failed), text);
        EXPECT_FALSE(failed);
        std::istringstream in(" " + text + " rest");
        auto read = static_cast<E>(absent);
        in >> read;
        EXPECT_FALSE(in.fail());
        EXPECT_EQ(read, value);
    }
}

TEST(NimTypes, NamedValuesAreWrittenAndReadAsTheirWordsAndUnnamedOnesFailTheStream)
{
    for (const auto& c : Zel::Test::Cases("nimtypes.cases")) {
        SCOPED_TRACE(c.name);
        if (c.name == "IpAssignMode") {
            ExpectTextForms<IpAssignMode>(c);
        } else if (c.name == "NetworkInterfaceType") {
            ExpectTextForms<NetworkInterfaceType>(c);
        } else {
            ExpectTextForms<AccessErrorCode>(c);
        }
    }
    // Link codes are numbers at heart; an unnamed one is written as such.
    bool failed = true;
    EXPECT_EQ(Write(static_cast<LinkState>(7), failed), "7");
    EXPECT_FALSE(failed);

    for (const char* word : {"DHCP", "Static", "dhcp4", "1", ""}) {
        SCOPED_TRACE(word);
        std::istringstream in(word);
        IpAssignMode mode = IpAssignMode::Manual;
        in >> mode;
        EXPECT_TRUE(in.fail());
        EXPECT_EQ(mode, IpAssignMode::Manual);
    }
}

} // namespace
