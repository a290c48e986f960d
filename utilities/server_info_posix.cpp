// Server and domain facts on Linux. A machine counts as in a domain when Samba
// is set up as a member or controller of one, or when it has a default
// Kerberos realm and holds the keys of a joined host; otherwise the domain
// query fails as it does on a server in no domain. No network is asked: the
// controller is the one that the configuration names.
#include <arpa/inet.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "frame/convert.h"
#include "utilities/server_info.h"
#include "utilities/server_info_posix.h"

namespace vrn::posixserver {

namespace {

// Server type bits.
constexpr uint32_t kTypeWorkstation = 0x1;
constexpr uint32_t kTypeServer = 0x2;
constexpr uint32_t kTypeSqlServer = 0x4;
constexpr uint32_t kTypeDomainController = 0x8;
constexpr uint32_t kTypeBackupController = 0x10;
constexpr uint32_t kTypeDomainMember = 0x100;
constexpr uint32_t kTypeUnixServer = 0x800;

// Domain controller flags.
constexpr uint32_t kFlagPrimary = 0x1;
constexpr uint32_t kFlagLdap = 0x8;
constexpr uint32_t kFlagDirectory = 0x10;
constexpr uint32_t kFlagKdc = 0x20;
constexpr uint32_t kFlagWritable = 0x100;
constexpr uint32_t kFlagDnsForest = 0x80000000u;

constexpr uint32_t kInetAddress = 1;
constexpr uint32_t kNetbiosAddress = 2;

std::string_view Trim(std::string_view text) {
    size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) return {};
    size_t last = text.find_last_not_of(" \t\r\n");
    return text.substr(first, last - first + 1);
}

std::string Upper(std::string_view text) {
    std::string result(text);
    for (char& c : result) c = UpperAscii(c);
    return result;
}

std::string Lower(std::string_view text) {
    std::string result(text);
    for (char& c : result) c = LowerAscii(c);
    return result;
}

// Samba compares names without case and without blanks ("server role" is "serverrole").
std::string SambaName(std::string_view text) {
    std::string result;
    for (char c : text) {
        if (c != ' ' && c != '\t') result += LowerAscii(c);
    }
    return result;
}

bool IsComment(std::string_view line) { return line.empty() || line[0] == '#' || line[0] == ';'; }

// "name = value" split at the first '='; false when there is none.
bool SplitAssignment(std::string_view line, std::string_view* name, std::string_view* value) {
    size_t equals = line.find('=');
    if (equals == std::string_view::npos) return false;
    *name = Trim(line.substr(0, equals));
    *value = Trim(line.substr(equals + 1));
    return true;
}

std::vector<std::string_view> Lines(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        size_t end = text.find('\n');
        lines.push_back(Trim(text.substr(0, end)));
        if (end == std::string_view::npos) break;
        text.remove_prefix(end + 1);
    }
    return lines;
}

struct KerberosSetting {
    std::string defaultRealm;
    std::string keytab;
    std::vector<std::pair<std::string, std::string>> kdcs;  // realm (upper case), first kdc
};

// krb5.conf: [libdefaults] default_realm and default_keytab_name, and the first
// kdc of each realm in [realms] REALM = { kdc = host[:port] }.
KerberosSetting ReadKerberos(std::string_view text) {
    KerberosSetting setting;
    std::string section, realm;
    int depth = 0;
    for (std::string_view line : Lines(text)) {
        if (IsComment(line)) continue;
        if (depth == 0 && line.front() == '[') {
            section = Lower(Trim(line.substr(1, line.find(']') == std::string_view::npos ? line.size() - 1
                                                                                          : line.find(']') - 1)));
            continue;
        }
        if (line == "}") {
            if (depth > 0 && --depth == 0) realm.clear();
            continue;
        }
        std::string_view name, value;
        if (!SplitAssignment(line, &name, &value)) continue;
        if (value == "{") {
            if (depth++ == 0 && section == "realms") realm = Upper(name);
            continue;
        }
        if (depth == 0 && section == "libdefaults") {
            if (name == "default_realm") setting.defaultRealm = Upper(value);
            if (name == "default_keytab_name") setting.keytab = std::string(value);
        } else if (depth == 1 && section == "realms" && name == "kdc" && !realm.empty()) {
            bool known = false;
            for (const auto& entry : setting.kdcs) known = known || entry.first == realm;
            if (!known) setting.kdcs.emplace_back(realm, std::string(value));
        }
    }
    return setting;
}

struct SambaSetting {
    std::string workgroup, realm, security, serverRole, passwordServer;
};

// smb.conf: the [global] parameters that tell the domain, with continued lines.
SambaSetting ReadSamba(std::string_view text) {
    SambaSetting setting;
    bool global = false;
    std::string pending;
    for (std::string_view line : Lines(text)) {
        if (pending.empty() && IsComment(line)) continue;
        if (!line.empty() && line.back() == '\\') {
            pending.append(line.substr(0, line.size() - 1));
            continue;
        }
        std::string whole = pending + std::string(line);
        pending.clear();
        std::string_view full = Trim(whole);
        if (full.empty()) continue;
        if (full.front() == '[') {
            size_t close = full.find(']');
            global = SambaName(full.substr(1, close == std::string_view::npos ? full.size() - 1 : close - 1)) == "global";
            continue;
        }
        std::string_view name, value;
        if (!global || !SplitAssignment(full, &name, &value)) continue;
        std::string key = SambaName(name);
        if (key == "workgroup") setting.workgroup = std::string(value);
        if (key == "realm") setting.realm = std::string(value);
        if (key == "security") setting.security = Lower(value);
        if (key == "serverrole") setting.serverRole = Lower(value);
        if (key == "passwordserver") setting.passwordServer = std::string(value);
    }
    return setting;
}

Role RoleOf(const SambaSetting& samba) {
    std::string_view role = samba.serverRole;
    if (role == "active directory domain controller" || role == "dc") return Role::Controller;
    if (role == "classic primary domain controller" || role == "pdc") return Role::PrimaryController;
    if (role == "classic backup domain controller" || role == "bdc") return Role::BackupController;
    if (role == "member server" || role == "member") return Role::Member;
    if (samba.security == "ads" || samba.security == "domain") return Role::Member;
    return Role::Standalone;
}

std::string FirstLabel(std::string_view host) { return Upper(host.substr(0, host.find('.'))); }

std::string WithoutPort(std::string_view host) {
    if (!host.empty() && host.front() == '[') {  // [address]:port
        size_t close = host.find(']');
        return std::string(host.substr(1, close == std::string_view::npos ? host.size() - 1 : close - 1));
    }
    if (host.find(':') != host.rfind(':')) return std::string(host);  // a bare IPv6 address
    return std::string(host.substr(0, host.find(':')));
}

bool IsAddress(const std::string& host) {
    unsigned char buffer[16];
    return ::inet_pton(AF_INET, host.c_str(), buffer) == 1 || ::inet_pton(AF_INET6, host.c_str(), buffer) == 1;
}

}  // namespace

std::string KeytabPathOf(std::string_view kerberos) {
    std::string name = ReadKerberos(kerberos).keytab;
    if (name.rfind("FILE:", 0) == 0) name.erase(0, 5);
    if (name.rfind("WRFILE:", 0) == 0) name.erase(0, 7);
    return name;
}

DomainFacts ReadDomainFacts(const MachineSetting& setting) {
    KerberosSetting kerberos = ReadKerberos(setting.kerberos);
    SambaSetting samba = ReadSamba(setting.samba);
    DomainFacts facts;
    facts.hostName = setting.hostName;
    facts.role = RoleOf(samba);
    if (facts.role == Role::Standalone && !kerberos.defaultRealm.empty() && setting.hostKeytab) {
        facts.role = Role::Member;
    }
    if (facts.role == Role::Standalone) return facts;

    facts.realm = !samba.realm.empty() ? Upper(samba.realm) : kerberos.defaultRealm;
    facts.directory = samba.security == "ads" || facts.role == Role::Controller ||
                      (samba.security.empty() && !facts.realm.empty());
    facts.flatName = !samba.workgroup.empty() ? Upper(samba.workgroup) : FirstLabel(facts.realm);
    for (const auto& [realm, kdc] : kerberos.kdcs) {
        if (realm == facts.realm) facts.controllerHost = WithoutPort(kdc);
    }
    if (facts.controllerHost.empty() && !samba.passwordServer.empty()) {
        std::string_view first = Trim(samba.passwordServer);
        first = first.substr(0, first.find_first_of(" ,\t"));
        if (first != "*") facts.controllerHost = WithoutPort(first);
    }
    return facts;
}

uint32_t ServerTypeOf(const DomainFacts& facts) {
    // The library lives inside the database server, so that bit always holds.
    uint32_t type = kTypeWorkstation | kTypeServer | kTypeSqlServer | kTypeUnixServer;
    switch (facts.role) {
        case Role::Standalone: break;
        case Role::Member: type |= kTypeDomainMember; break;
        case Role::Controller:
        case Role::PrimaryController: type |= kTypeDomainController; break;
        case Role::BackupController: type |= kTypeBackupController; break;
    }
    return type;
}

bool DescribeController(const DomainFacts& facts, DomainControllerRecord* record) {
    if (facts.role == Role::Standalone) return false;
    DomainControllerInfo& info = *record;
    info = DomainControllerInfo{};
    bool self = facts.role != Role::Member;
    std::string host = self ? facts.hostName : facts.controllerHost;
    if (!host.empty() && IsAddress(host)) {
        record->addressText = "\\\\" + host;
        info.domainControllerAddressType = kInetAddress;
    } else if (!host.empty()) {
        record->nameText = "\\\\" + FirstLabel(host);
        record->addressText = record->nameText;
        info.domainControllerAddressType = kNetbiosAddress;
    }
    record->domainText = facts.flatName;
    record->forestText = Lower(facts.realm);

    auto textOrAbsent = [](const std::string& text) { return text.empty() ? nullptr : text.c_str(); };
    info.domainControllerName = textOrAbsent(record->nameText);
    info.domainControllerAddress = textOrAbsent(record->addressText);
    info.domainName = textOrAbsent(record->domainText);
    info.dnsForestName = textOrAbsent(record->forestText);
    if (!facts.realm.empty()) info.flags |= kFlagDnsForest | kFlagKdc;
    if (facts.directory) info.flags |= kFlagDirectory | kFlagLdap;
    if (self) info.flags |= kFlagWritable;
    if (facts.role == Role::PrimaryController || facts.role == Role::Controller) info.flags |= kFlagPrimary;
    return true;
}

namespace {

constexpr size_t kLongestSetting = 1 << 20;

std::string ReadSmallFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text;
    char buffer[4096];
    while (file && text.size() < kLongestSetting) {
        file.read(buffer, sizeof buffer);
        text.append(buffer, static_cast<size_t>(file.gcount()));
    }
    return text;
}

bool Exists(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0;
}

MachineSetting ReadMachineSetting() {
    MachineSetting setting;
    // Kerberos's own variable may name other files, colon-separated.
    const char* files = std::getenv("KRB5_CONFIG");
    std::string_view list = files != nullptr && *files != '\0' ? files : "/etc/krb5.conf";
    while (!list.empty()) {
        size_t colon = list.find(':');
        setting.kerberos += ReadSmallFile(std::string(list.substr(0, colon)));
        setting.kerberos += '\n';
        list = colon == std::string_view::npos ? std::string_view{} : list.substr(colon + 1);
    }
    setting.samba = ReadSmallFile("/etc/samba/smb.conf");
    std::string keytab = KeytabPathOf(setting.kerberos);
    setting.hostKeytab = Exists(keytab.empty() ? "/etc/krb5.keytab" : keytab);
    char host[256] = {};
    if (::gethostname(host, sizeof host - 1) == 0) setting.hostName = host;
    return setting;
}

class PosixServerInfo final : public ServerInfoSource {
public:
    uint32_t ServerType(uint32_t* type) override {
        *type = ServerTypeOf(ReadDomainFacts(ReadMachineSetting()));
        return 0;
    }

    uint32_t DomainController(const DomainControllerInfo** info) override {
        auto record = std::make_unique<DomainControllerRecord>();
        if (!DescribeController(ReadDomainFacts(ReadMachineSetting()), record.get())) return kNoSuchDomain;
        *info = record.release();
        return 0;
    }

    void ReleaseDomainController(const DomainControllerInfo* info) override {
        delete static_cast<const DomainControllerRecord*>(info);
    }
};

}  // namespace

}  // namespace vrn::posixserver

namespace vrn {

ServerInfoSource& SystemServerInfo() {
    static posixserver::PosixServerInfo source;
    return source;
}

}  // namespace vrn
