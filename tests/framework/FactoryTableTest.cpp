// The factory table every module library registers its modules in: the three
// checks of AddFactoryFunction, their order, and a table that a failed
// registration leaves exactly as it was.
#include <Zel/Hardware/Commons/Modules/HardwareModuleLibraryBase.hpp>
#include <Zel/Hardware/Commons/Modules/IHardwareModule.hpp>
#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/Exception.hpp>
#include <Zel/System/Commons/Extensibility/ModuleFactory.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

using Zel::Hardware::Commons::Modules::HardwareModuleLibraryBase;
using Zel::Hardware::Commons::Modules::HardwareModuleProvider;
using Zel::Hardware::Commons::Modules::IHardwareModule;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::System::Commons::AppDomain;
using Zel::System::Commons::ArgumentException;
using Zel::System::Commons::BasicString;
using Zel::System::Commons::Extensibility::ModuleFactory;
using ::testing::ElementsAre;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

// A module that tells which factory made it.
class TaggedModule : public IHardwareModule {
public:
    explicit TaggedModule(int tag) : tag(tag) {}
    void SetupSettings(const ModuleSettings&, const HardwareModuleProvider&) override {}
    void Dispose() override {}
    const BasicString& GetModuleName() const override { return name; }
    BasicString GetLibraryFileName() const override { return {}; }
    bool IsEnabled() const override { return true; }

    const int tag;
    const BasicString name{"Tagged"};
};

std::unique_ptr<IHardwareModule> MakeFirst()
{
    return std::make_unique<TaggedModule>(1);
}

std::unique_ptr<IHardwareModule> MakeSecond()
{
    return std::make_unique<TaggedModule>(2);
}

int TagOf(const std::unique_ptr<IHardwareModule>& module)
{
    return dynamic_cast<const TaggedModule&>(*module).tag;
}

class FactoryTable : public ::testing::Test {
protected:
    std::vector<BasicString> Names() const { return factory.GetModuleNames(); }

    ModuleFactory<IHardwareModule> factory;
};

TEST_F(FactoryTable, AnEmptyNameIsReportedEvenWhenTheFunctionIsEmptyToo)
{
    EXPECT_THAT([&] { factory.AddFactoryFunction(BasicString(), nullptr); },
                ThrowsMessage<ArgumentException>(StrEq("Invalid argument 'moduleName' = '': Invalid module name")));
    EXPECT_THAT([&] { factory.AddFactoryFunction(BasicString(), MakeFirst); },
                ThrowsMessage<ArgumentException>(StrEq("Invalid argument 'moduleName' = '': Invalid module name")));
    EXPECT_TRUE(Names().empty());
}

TEST_F(FactoryTable, AnEmptyFunctionIsReportedWithItsNullTarget)
{
    EXPECT_THAT([&] { factory.AddFactoryFunction("A", nullptr); },
                ThrowsMessage<ArgumentException>(
                    StrEq("Invalid argument 'function' = '0x0': Invalid factory function.")));
    EXPECT_TRUE(Names().empty());
}

TEST_F(FactoryTable, AnEmptyFunctionIsReportedBeforeADuplicateName)
{
    factory.AddFactoryFunction("A", MakeFirst);
    EXPECT_THAT([&] { factory.AddFactoryFunction("A", nullptr); },
                ThrowsMessage<ArgumentException>(
                    StrEq("Invalid argument 'function' = '0x0': Invalid factory function.")));
}

TEST_F(FactoryTable, ADuplicateNameIsRejectedAndTheFirstFactoryStays)
{
    factory.AddFactoryFunction("A", MakeFirst);
    factory.AddFactoryFunction("B", MakeSecond);

    EXPECT_THAT([&] { factory.AddFactoryFunction("A", MakeSecond); },
                ThrowsMessage<ArgumentException>(StrEq("Invalid argument 'moduleName' = 'A': Duplicate module name")));
    EXPECT_THAT([&] { factory.AddFactoryFunction("B", MakeFirst); },
                ThrowsMessage<ArgumentException>(StrEq("Invalid argument 'moduleName' = 'B': Duplicate module name")));

    EXPECT_THAT(Names(), ElementsAre("A", "B"));
    EXPECT_EQ(TagOf(factory.CreateModule("A")), 1);
    EXPECT_EQ(TagOf(factory.CreateModule("B")), 2);
}

TEST_F(FactoryTable, EveryFailedRegistrationLeavesTheTableAsItWas)
{
    factory.AddFactoryFunction("First", MakeFirst);
    factory.AddFactoryFunction("Second", MakeSecond);
    const auto before = factory.GetFactoryTable().data();

    EXPECT_THROW(factory.AddFactoryFunction(BasicString(), MakeFirst), ArgumentException);
    EXPECT_THROW(factory.AddFactoryFunction("Third", nullptr), ArgumentException);
    EXPECT_THROW(factory.AddFactoryFunction("Second", MakeFirst), ArgumentException);

    EXPECT_THAT(Names(), ElementsAre("First", "Second"));
    EXPECT_EQ(factory.GetFactoryTable().data(), before);
    EXPECT_EQ(TagOf(factory.CreateModule("Second")), 2);

    // Still open for further names, appended at the end.
    factory.AddFactoryFunction("Third", MakeFirst);
    EXPECT_THAT(Names(), ElementsAre("First", "Second", "Third"));
}

TEST_F(FactoryTable, NamesAreComparedByteForByte)
{
    // Each pair differs in case, length or a byte that a text comparison
    // might fold or stop at; both members of every pair are separate modules.
    const std::vector<std::pair<BasicString, BasicString>> distinct = {
        {"module", "Module"},
        {"Zel.A", "zel.a"},
        {"A", "A "},
        {"A", BasicString("A\0", 2)},
        {"Ab", "A"},
        {"\xC3\xA4", "\xC3\x84"},
    };
    for (const auto& [one, other] : distinct) {
        SCOPED_TRACE(::testing::Message() << "'" << one << "' / '" << other << "'");
        ModuleFactory<IHardwareModule> table;
        table.AddFactoryFunction(one, MakeFirst);
        EXPECT_NO_THROW(table.AddFactoryFunction(other, MakeSecond));
        EXPECT_THAT(table.GetModuleNames(), ElementsAre(one, other));
        EXPECT_EQ(TagOf(table.CreateModule(one)), 1);
        EXPECT_EQ(TagOf(table.CreateModule(other)), 2);
    }
}

TEST_F(FactoryTable, AnUnknownNameCannotBeCreated)
{
    factory.AddFactoryFunction("A", MakeFirst);
    EXPECT_THAT([&] { (void)factory.CreateModule("a"); },
                ThrowsMessage<ArgumentException>(StrEq("Invalid argument 'moduleName' = 'a': Unknown module name")));
}

TEST(HardwareModuleLibrary, RecordsItselfInEveryModuleItCreates)
{
    HardwareModuleLibraryBase library(AppDomain::GetInstance());
    library.AddFactoryFunction("A", MakeFirst);

    const std::unique_ptr<IHardwareModule> module = library.CreateHardwareModule("A");

    EXPECT_EQ(module->GetExtendedData().GetLibraryPointer(), &library);
    EXPECT_EQ(&library.GetAppDomain(), &AppDomain::GetInstance());
    EXPECT_THROW((void)library.CreateHardwareModule("B"), ArgumentException);
}

} // namespace
