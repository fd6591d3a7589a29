// A process whose application domain or log manager is missing: the first
// log call of a class fails with the framework's message and the channel
// stays uncreated, so it works once the domain is complete.
#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/Exception.hpp>
#include <Zel/System/Commons/Logging/LogManager.hpp>
#include <Zel/System/Commons/Logging/LogSink.hpp>
#include <Zel/System/Commons/Logging/Loggable.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace Zel::Test::DomainSubjects {
class WithoutDomain {};
class WithoutLogManager {};
} // namespace Zel::Test::DomainSubjects

namespace {

using namespace Zel::Test::DomainSubjects;
using Zel::System::Commons::AppDomain;
using Zel::System::Commons::InvalidOperationException;
using Zel::System::Commons::Logging::ILogSink;
using Zel::System::Commons::Logging::Loggable;
using Zel::System::Commons::Logging::LogManager;
using ::testing::ElementsAre;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

class Collect : public ILogSink {
public:
    void Write(int, std::string_view, std::string_view text) override { texts.emplace_back(text); }
    std::vector<std::string> texts;
};

TEST(AppDomain, WithoutADomainTheFirstLogCallFailsNamingTheDomainType)
{
    ASSERT_FALSE(AppDomain::HasInstance());
    const auto message = StrEq("Singleton instance of type 'Zel::System::Commons::AppDomain' was not created yet!");

    EXPECT_THAT([] { (void)AppDomain::GetInstance(); }, ThrowsMessage<InvalidOperationException>(message));
    EXPECT_THAT([] { Loggable<WithoutDomain>::log(3, "never {0}", 1); },
                ThrowsMessage<InvalidOperationException>(message));
}

TEST(AppDomain, WithoutALogManagerTheFirstLogCallFailsNamingTheManagerType)
{
    AppDomain domain;

    EXPECT_THAT([] { Loggable<WithoutLogManager>::log(3, "never"); },
                ThrowsMessage<InvalidOperationException>(StrEq(
                    "AppDomain Singleton instance of type 'Zel::System::Commons::Logging::LogManager' was not "
                    "created yet!")));

    // The failed attempt created nothing; the channel comes into being once
    // the manager is there.
    auto manager = std::make_shared<LogManager>(8);
    auto sink = std::make_shared<Collect>();
    manager->SetSink(sink);
    domain.AddSingleton(manager);
    Loggable<WithoutLogManager>::log(3, "now {0}", "written");
    EXPECT_THAT(sink->texts, ElementsAre("now written"));
}

} // namespace
