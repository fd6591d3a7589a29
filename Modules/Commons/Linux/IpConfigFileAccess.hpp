#pragma once

#include <Zel/System/Commons/BasicString.hpp>
#include <Zel/System/Commons/Logging/Loggable.hpp>

#include <cstdint>
#include <vector>

namespace Zel::Hardware::Modules::Commons::Linux {

using Zel::System::Commons::BasicString;

// Reads one value from, and writes one value into, the block of one network
// interface in the ifupdown interfaces file. The file is treated as plain
// lines found by substring search, not parsed as ifupdown grammar: the
// module's behaviour on real controller files depends on exactly these line
// rules (substring matches, a four-line write range, comments skipped only on
// writing), so they stay as they are.
//
// Results: 0 done, 1 not done (file not opened, interface or key not found,
// nothing written). A key that ends its line lets std::out_of_range escape
// from ReadIpPara. A write goes through "<file>.tmp", which is copied over
// the file crash-safely and then deleted.
//
// No state besides the parameter order and the file name; every call opens
// and closes its own streams. Two writers at once share the one temporary
// file, and nothing here serialises them.
class IpConfigFileAccess : private Zel::System::Commons::Logging::Loggable<IpConfigFileAccess, false, false> {
public:
    // parameterOrder: the keys of an interface block in the order a missing
    // one is inserted before its successors ("address", "netmask", "gateway",
    // "dns-nameservers").
    explicit IpConfigFileAccess(std::vector<BasicString> parameterOrder,
                                BasicString fileName = BasicString("/etc/network/interfaces"));

    int ReadIpPara(const BasicString& interfaceName, const BasicString& key, BasicString& value) const;
    int WriteIpPara(const BasicString& interfaceName, const BasicString& key, const BasicString& value) const;

    // The steps of reading and writing.
    bool ReadCheckVaildInterfaceBlock(const BasicString& interfaceName, const BasicString& line) const;
    int ReadValueFromBlock(const BasicString& line, const BasicString& key, BasicString& value) const;
    void SetAddressAssignmentMethod(BasicString& line, const BasicString& method) const;
    void WriteCheckVaildInterfaceBlock(const BasicString& interfaceName, BasicString& line, const BasicString& key,
                                       const BasicString& value, bool& inBlock, bool& modified) const;
    bool FindAndAssignParameter(BasicString& line, const BasicString& key, const BasicString& newParameterLine) const;
    bool AssignParameter(BasicString& line, const BasicString& key, const BasicString& newParameterLine) const;
    void CheckAndWriteLine(BasicString& line, std::uint8_t& lineCounter, const BasicString& key,
                           const BasicString& newParameterLine, bool& modified, bool& inBlock) const;

    const BasicString& GetFileName() const { return fileName; }
    const BasicString& GetTempFileName() const { return tempFileName; }

private:
    std::vector<BasicString> parameterOrder;
    BasicString fileName;
    BasicString tempFileName;
};

} // namespace Zel::Hardware::Modules::Commons::Linux
