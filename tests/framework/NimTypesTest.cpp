// Text forms of the Nim enumerations: the assign modes are ifupdown method
// words (the interfaces file is written with them), and a value without a
// name fails the stream instead of writing something unreadable.
#include <Zel/Hardware/Nim/NimTypes.hpp>

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

using Zel::Hardware::Nim::AccessErrorCode;
using Zel::Hardware::Nim::IpAssignMode;
using Zel::Hardware::Nim::LinkState;
using Zel::Hardware::Nim::NetworkInterfaceType;

template <typename E>
struct Named {
    E value;
    const char* text;
};

template <typename E>
std::string Write(E value, bool& failed)
{
    std::ostringstream out;
    out << value;
    failed = out.fail();
    return out.str();
}

template <typename E>
void ExpectTextForms(const std::initializer_list<Named<E>>& table)
{
    for (const auto& entry : table) {
        SCOPED_TRACE(entry.text);
        bool failed = true;
        EXPECT_EQ(Write(entry.value, failed), entry.text);
        EXPECT_FALSE(failed);

        std::istringstream in(std::string(" ") + entry.text + " rest");
        E read{};
        in >> read;
        EXPECT_FALSE(in.fail());
        EXPECT_EQ(read, entry.value);
    }
}

TEST(NimTypes, AssignModesAreIfupdownMethodWords)
{
    ExpectTextForms<IpAssignMode>({{IpAssignMode::Static, "static"},
                                   {IpAssignMode::Dhcp, "dhcp"},
                                   {IpAssignMode::Manual, "manual"},
                                   {IpAssignMode::Loopback, "loopback"},
                                   {IpAssignMode::Ppp, "ppp"},
                                   {IpAssignMode::Bootp, "bootp"}});
    EXPECT_EQ(static_cast<int>(IpAssignMode::Static), 0);
}

TEST(NimTypes, InterfaceTypesAreTheirEnumeratorNames)
{
    ExpectTextForms<NetworkInterfaceType>({{NetworkInterfaceType::Unknown, "Unknown"},
                                           {NetworkInterfaceType::Ethernet, "Ethernet"},
                                           {NetworkInterfaceType::Fieldbus, "Fieldbus"},
                                           {NetworkInterfaceType::Service, "Service"},
                                           {NetworkInterfaceType::Internal, "Internal"},
                                           {NetworkInterfaceType::Wireless, "Wireless"}});
}

TEST(NimTypes, AValueWithoutANameFailsTheStreamAndWritesNothing)
{
    bool failed = false;
    EXPECT_EQ(Write(static_cast<IpAssignMode>(6), failed), "");
    EXPECT_TRUE(failed);
    EXPECT_EQ(Write(static_cast<IpAssignMode>(255), failed), "");
    EXPECT_TRUE(failed);
    EXPECT_EQ(Write(static_cast<NetworkInterfaceType>(6), failed), "");
    EXPECT_TRUE(failed);
    EXPECT_EQ(Write(static_cast<AccessErrorCode>(3), failed), "");
    EXPECT_TRUE(failed);
    // Link codes are numbers at heart; an unnamed one is written as such.
    EXPECT_EQ(Write(static_cast<LinkState>(7), failed), "7");
    EXPECT_FALSE(failed);
}

TEST(NimTypes, AnUnknownWordFailsTheStreamAndLeavesTheValue)
{
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
