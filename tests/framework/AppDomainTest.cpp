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
class Channel {};
} // namespace Zel::Test::DomainSubjects

namespace {

using namespace Zel::System::Commons;
using namespace Zel::System::Commons::Logging;
using namespace ::testing;
using Log = Loggable<Zel::Test::DomainSubjects::Channel>;

class Collect : public ILogSink {
public:
    void Write(int, std::string_view, std::string_view text) override { texts.emplace_back(text); }
    std::vector<std::string> texts;
};

TEST(AppDomain, TheFirstLogCallFailsNamingTheMissingDomainOrManagerAndCreatesNothing)
{
    ASSERT_FALSE(AppDomain::HasInstance());
    const auto noDomain = StrEq("Singleton instance of type 'Zel::System::Commons::AppDomain' was not created yet!");
    EXPECT_THAT([] { (void)AppDomain::GetInstance(); }, ThrowsMessage<InvalidOperationException>(noDomain));
    EXPECT_THAT([] { Log::log(3, "never {0}", 1); }, ThrowsMessage<InvalidOperationException>(noDomain));

    AppDomain domain;
    EXPECT_THAT([] { Log::log(3, "never"); },
                ThrowsMessage<InvalidOperationException>(
                    StrEq("AppDomain Singleton instance of type 'Zel::System::Commons::Logging::LogManager' was not "
                          "created yet!")));

    auto manager = std::make_shared<LogManager>(8);
    auto sink = std::make_shared<Collect>();
    manager->SetSink(sink);
    domain.AddSingleton(manager);
    Log::log(3, "now {0}", "written");
    EXPECT_THAT(sink->texts, ElementsAre("now written"));
}

} // namespace
