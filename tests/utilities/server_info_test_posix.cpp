#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

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

std::string Text(const char* text) { return text != nullptr && *text != '\0' ? text : "-"; }

// "role realm flatName controllerHost serverType", then the controller's record
// if there is one: "| name address addressType domain forest flags" (hex; a
// missing text is "-"; the site names are always missing).
std::string Describe(const MachineSetting& setting) {
    const DomainFacts f = ReadDomainFacts(setting);
    std::ostringstream out;
    out << std::hex << static_cast<int>(f.role) << " " << Text(f.realm.c_str()) << " " << Text(f.flatName.c_str())
        << " " << Text(f.controllerHost.c_str()) << " " << ServerTypeOf(f);
    DomainControllerRecord r;
    if (DescribeController(f, &r)) {
        out << " | " << Text(r.domainControllerName) << " " << Text(r.domainControllerAddress) << " "
            << r.domainControllerAddressType << " " << Text(r.domainName) << " " << Text(r.dnsForestName) << " "
            << r.flags << " " << Text(r.dcSiteName) << Text(r.clientSiteName);
    }
    return out.str();
}

TEST(DomainFactsTest, RoleNamesAndControllerFromTheSetting) {
    const std::string host = "sql01.corp.example.com";
    const struct {
        MachineSetting setting;
        std::string described;
    } cases[] = {
        {{"", "[global]\n workgroup = HOME\n security = user\n", true, host}, "0 - - - 807"},
        {{kKerberos, "", true, host},
         "1 CORP.EXAMPLE.COM CORP dc1.corp.example.com 907 | \\\\DC1 \\\\DC1 2 CORP corp.example.com 80000038 --"},
        {{kKerberos, "; comment\n[GLOBAL]\n Work Group = corpnet\n  REALM = Corp.Example.Com\n security = ADS\n", false,
          host},
         "1 CORP.EXAMPLE.COM CORPNET dc1.corp.example.com 907 | \\\\DC1 \\\\DC1 2 CORPNET corp.example.com 80000038 --"},
        {{"", "[global]\nworkgroup = \\\n  NT4DOM\nsecurity = domain\npassword server = pdc.nt4.lan:139, bdc\n", false,
          host},
         "1 - NT4DOM pdc.nt4.lan 907 | \\\\PDC \\\\PDC 2 NT4DOM - 0 --"},
        {{"", "[global]\nworkgroup = SAMDOM\nrealm = samdom.lan\nserver role = active directory domain controller\n",
          false, "dc9.samdom.lan"},
         "2 SAMDOM.LAN SAMDOM - 80f | \\\\DC9 \\\\DC9 2 SAMDOM samdom.lan 80000139 --"},
        {{"", "[global]\nworkgroup = OLD\nserver role = bdc\n", false, host},
         "4 - OLD - 817 | \\\\SQL01 \\\\SQL01 2 OLD - 100 --"},
        {{"[libdefaults]\ndefault_realm = R.LAN\n[realms]\nR.LAN = {\nkdc = [10.0.0.5]:88\n}\n", "", true, host},
         "1 R.LAN R 10.0.0.5 907 | - \\\\10.0.0.5 1 R r.lan 80000038 --"},
        {{"[libdefaults]\ndefault_realm = R.LAN\n", "", true, host}, "1 R.LAN R - 907 | - - 0 R r.lan 80000038 --"},
    };
    for (const auto& c : cases) EXPECT_EQ(Describe(c.setting), c.described) << c.setting.samba << c.setting.kerberos;
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
