#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

#include <string>
#include <tuple>

#include "utilities/server_info_posix.h"

namespace vrn::posixserver {
namespace {

constexpr char kKerberos[] = R"(
[libdefaults]
    default_realm = corp.example.com
# kdc = commented.example.com
[realms]
    OTHER.ORG = {
        kdc = kdc.other.org
    }
    CORP.EXAMPLE.COM = {
        kdc = dc1.corp.example.com:88
        kdc = dc2.corp.example.com
        admin_server = dc1.corp.example.com
    }
)";

std::string Text(const char* text) { return text != nullptr ? text : "(absent)"; }

TEST(DomainFactsTest, RoleAndNamesFromTheSetting) {
    const struct {
        const char* what;
        std::string kerberos, samba;
        bool keytab;
        Role role;
        std::string realm, flatName, controller;
        uint32_t serverType;
    } cases[] = {
        {"a plain workgroup", "", "[global]\n workgroup = HOME\n security = user\n", true, Role::Standalone, "", "", "",
         0x807},
        {"joined by Kerberos", kKerberos, "", true, Role::Member, "CORP.EXAMPLE.COM", "CORP", "dc1.corp.example.com",
         0x907},
        {"Samba member, names without case or blanks", kKerberos,
         "; comment\n[GLOBAL]\n Work Group = corpnet\n  REALM = Corp.Example.Com\n security = ADS\n", false,
         Role::Member, "CORP.EXAMPLE.COM", "CORPNET", "dc1.corp.example.com", 0x907},
        {"continued line and password server", "",
         "[global]\nworkgroup = \\\n  NT4DOM\nsecurity = domain\npassword server = pdc.nt4.lan:139, bdc\n", false,
         Role::Member, "", "NT4DOM", "pdc.nt4.lan", 0x907},
        {"Samba domain controller", "",
         "[global]\nworkgroup = SAMDOM\nrealm = samdom.lan\nserver role = active directory domain controller\n", false,
         Role::Controller, "SAMDOM.LAN", "SAMDOM", "", 0x80F},
        {"backup controller", "", "[global]\nworkgroup = OLD\nserver role = bdc\n", false, Role::BackupController, "",
         "OLD", "", 0x817},
    };
    for (const auto& c : cases) {
        const DomainFacts f = ReadDomainFacts({c.kerberos, c.samba, c.keytab, "sql01.corp.example.com"});
        EXPECT_EQ(std::tie(f.role, f.realm, f.flatName, f.controllerHost),
                  std::tie(c.role, c.realm, c.flatName, c.controller))
            << c.what;
        EXPECT_EQ(ServerTypeOf(f), c.serverType) << c.what;
    }
}

TEST(DomainControllerTest, RecordOfEachKindOfDomain) {
    const struct {
        const char* what;
        MachineSetting setting;
        std::string name, address;
        uint32_t addressType;
        std::string domain, forest;
        uint32_t flags;
    } cases[] = {
        {"member of a realm", {kKerberos, "", true, "sql01"}, "\\\\DC1", "\\\\DC1", 2, "CORP", "corp.example.com",
         0x80000038},
        {"controller given by address",
         {"[libdefaults]\ndefault_realm = R.LAN\n[realms]\nR.LAN = {\nkdc = [10.0.0.5]:88\n}\n", "", true, "sql01"},
         "(absent)", "\\\\10.0.0.5", 1, "R", "r.lan", 0x80000038},
        {"realm without a known controller", {"[libdefaults]\ndefault_realm = R.LAN\n", "", true, "sql01"}, "(absent)",
         "(absent)", 0, "R", "r.lan", 0x80000038},
        {"NT4 style member", {"", "[global]\nworkgroup = NT4\nsecurity = domain\n", false, "sql01"}, "(absent)",
         "(absent)", 0, "NT4", "(absent)", 0},
        {"this machine is the controller",
         {"", "[global]\nworkgroup = SAMDOM\nrealm = samdom.lan\nserver role = dc\n", false, "dc9.samdom.lan"},
         "\\\\DC9", "\\\\DC9", 2, "SAMDOM", "samdom.lan", 0x80000139},
    };
    for (const auto& c : cases) {
        DomainControllerRecord r;
        ASSERT_TRUE(DescribeController(ReadDomainFacts(c.setting), &r)) << c.what;
        EXPECT_EQ(std::make_tuple(Text(r.domainControllerName), Text(r.domainControllerAddress),
                                  r.domainControllerAddressType, Text(r.domainName), Text(r.dnsForestName), r.flags,
                                  Text(r.dcSiteName), Text(r.clientSiteName)),
                  std::make_tuple(c.name, c.address, c.addressType, c.domain, c.forest, c.flags, "(absent)", "(absent)"))
            << c.what;
    }
}

// The machine's own answers, read from files that Kerberos's variable names.
TEST(SystemServerInfoTest, ReadsTheKerberosSettingOfTheMachine) {
    if (std::filesystem::exists("/etc/samba/smb.conf")) GTEST_SKIP() << "Samba's setting would take part";
    char pattern[] = "/tmp/vrn-krb5-XXXXXX";
    ASSERT_NE(::mkdtemp(pattern), nullptr);
    const std::string folder = pattern, config = folder + "/krb5.conf", keytab = folder + "/host.keytab";
    const char* saved = std::getenv("KRB5_CONFIG");
    ::setenv("KRB5_CONFIG", config.c_str(), 1);
    ServerInfoSource& system = SystemServerInfo();
    const DomainControllerInfo* info = nullptr;

    EXPECT_EQ(system.DomainController(&info), kNoSuchDomain);  // no file
    std::ofstream(config) << kKerberos << "[libdefaults]\n default_keytab_name = FILE:" << keytab << "\n";
    EXPECT_EQ(system.DomainController(&info), kNoSuchDomain);  // not joined: no keys
    std::ofstream(keytab) << "keys";
    ASSERT_EQ(system.DomainController(&info), 0u);
    EXPECT_STREQ(info->domainControllerName, "\\\\DC1");
    EXPECT_STREQ(info->domainName, "CORP");
    system.ReleaseDomainController(info);
    uint32_t type = 0;
    EXPECT_EQ(system.ServerType(&type), 0u);
    EXPECT_EQ(type, 0x907u);

    if (saved != nullptr) ::setenv("KRB5_CONFIG", saved, 1); else ::unsetenv("KRB5_CONFIG");
    std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace vrn::posixserver
