#include "Modules/Commons/Linux/ErrorString.hpp"

#include <gtest/gtest.h>

#include <cerrno>

namespace {

using Zel::Hardware::Modules::Commons::Linux::ErrorString;

TEST(ErrorString, GivesTheCLibraryText)
{
    EXPECT_EQ(ErrorString().GetString(ENOENT), "No such file or directory");
    EXPECT_EQ(ErrorString().GetString(EISDIR), "Is a directory");
    EXPECT_EQ(ErrorString().GetString(12345), "Unknown error 12345");
}

} // namespace
