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
#include <map>
#include <sstream>
#include <string>
#include <typeinfo>
#include <utility>

namespace {

using namespace Zel::System::Commons;
using namespace Zel::Hardware::Nim;
using namespace ::testing;
using Zel::System::Commons::Diagnostics::RuntimeTypeInfo;

TEST(Exceptions, CarryMessageAndStackAndArgumentExceptionsNameArgumentAndValue)
{
    // A number, a text and a null pointer are pinned where the registry, the
    // Ethernet set-up and the factory table refuse them; an enumeration is
    // written as its number.
    EXPECT_STREQ(ArgumentException::Create("mode", IpAssignMode::Manual, "Bad mode").what(),
                 "Invalid argument 'mode' = '2': Bad mode");

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
    EXPECT_EQ(RuntimeTypeInfo::DemangleSymbol("_ZN3Zel4Test3RunEv"), "Zel::Test::Run()");
    EXPECT_EQ(RuntimeTypeInfo::DemangleSymbol("not a mangled name!"), "");
    EXPECT_EQ(RuntimeTypeInfo::DemangleSymbol(nullptr), "");
    EXPECT_EQ(RuntimeTypeInfo::GetDottedTypeName(typeid(std::pair<IpAssignMode, Exception>)),
              "std.pair<Zel.Hardware.Nim.IpAssignMode, Zel.System.Commons.Exception>");
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

// The text written for a value and whether writing it failed the stream.
template <typename E>
std::pair<std::string, bool> Write(E value)
{
    std::ostringstream out;
    out << value;
    return {out.str(), out.fail()};
}

// The value after reading text into one that held `before`, and whether the
// read failed the stream.
template <typename E>
std::pair<E, bool> Read(const std::string& text, E before)
{
    std::istringstream in(text);
    in >> before;
    return {before, in.fail()};
}

template <typename E>
void ExpectTextForms(const Zel::Test::Case& c)
{
    // A failed read must leave the value as it was; an unnamed one shows it.
    E absent{};
    for (const std::string& number : c.Lines("unnamed")) {
        absent = static_cast<E>(std::stoi(number));
        EXPECT_EQ(Write(absent), std::make_pair(std::string(), true)) << number;
    }
    std::istringstream names(c["names"]);
    for (std::string number, text; names >> number >> text;) {
        const auto value = static_cast<E>(std::stoi(number));
        EXPECT_EQ(Write(value), std::make_pair(text, false));
        EXPECT_EQ(Read(" " + text + " rest", absent), std::make_pair(value, false)) << text;
    }
    std::istringstream numbers(c.Has("numbers") ? c["numbers"] : "");
    for (std::string text, number; numbers >> text >> number;) {
        EXPECT_EQ(Read(text, absent), std::make_pair(static_cast<E>(std::stoi(number)), false)) << text;
    }
    for (const std::string& text : c.Lines("rejected")) {
        EXPECT_EQ(Read(text, absent), std::make_pair(absent, true)) << "'" << text << "'";
    }
}

TEST(NimTypes, NamedValuesAreWrittenAndReadAsTheirWordsAndUnnamedOnesFailTheStream)
{
    const std::map<std::string, void (*)(const Zel::Test::Case&)> forms = {
        {"IpAssignMode", ExpectTextForms<IpAssignMode>},
        {"NetworkInterfaceType", ExpectTextForms<NetworkInterfaceType>},
        {"AccessErrorCode", ExpectTextForms<AccessErrorCode>},
    };
    for (const auto& c : Zel::Test::Cases("nimtypes.cases")) {
        SCOPED_TRACE(c.name);
        forms.at(c.name)(c);
    }
    // Link codes are numbers at heart; an unnamed one is written as such.
    EXPECT_EQ(Write(static_cast<LinkState>(7)), std::make_pair(std::string("7"), false));
}

} // namespace
