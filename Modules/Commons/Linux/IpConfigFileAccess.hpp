#pragma once

#include <Zel/System/Commons/BasicString.hpp>
#include <Zel/System/Commons/Logging/Loggable.hpp>

#include <chrono>
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
// value refused, nothing written or the new content not put in place). A key
// that ends its line lets std::out_of_range escape from ReadIpPara.
//
// A write replaces the file a link finally names (the link stays): under an
// exclusive flock on that file's directory, which a rename never replaces and
// which a read-only directory still grants, it fills "<file>.tmp" beside the
// file, gives it the file's mode and owner, flushes it and renames it over
// the file, so readers (who take no lock) see the old or the new content.
// Where the file cannot be renamed over (a bind-mounted file) it is rewritten
// in place instead, with a warning: not atomically, but only once the file
// has been extended to the new length, so that a file system without room
// fails the write with the file unchanged. Writers in any thread or process
// of the board wait for each other up to the lock timeout, then fail.
//
// No state besides the parameter order, the file name and the lock timeout;
// every call opens and closes its own files.
class IpConfigFileAccess : private Zel::System::Commons::Logging::Loggable<IpConfigFileAccess, false, false> {
public:
    // parameterOrder: the keys of an interface block in the order a missing
    // one is inserted before its successors ("address", "netmask", "gateway",
    // "dns-nameservers").
    // lockTimeout bounds a writer's wait for another's write to end.
    explicit IpConfigFileAccess(std::vector<BasicString> parameterOrder,
                                BasicString fileName = BasicString("/etc/network/interfaces"),
                                std::chrono::milliseconds lockTimeout = std::chrono::seconds(5));

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

private:
    std::vector<BasicString> parameterOrder;
    BasicString fileName;
    std::chrono::milliseconds lockTimeout;
};

} // namespace Zel::Hardware::Modules::Commons::Linux
