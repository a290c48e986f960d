// How Linux answers the server queries: from the machine's Kerberos and Samba
// configuration, read here apart from the files so that tests can give their own.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "utilities/server_info.h"

namespace vrn::posixserver {

// The configuration that the answers come from.
struct MachineSetting {
    std::string kerberos;   // krb5.conf text, empty when there is none
    std::string samba;      // smb.conf text, empty when there is none
    bool hostKeytab = false;  // the machine holds a key of its realm: it was joined
    std::string hostName;
};

enum class Role { Standalone, Member, Controller, PrimaryController, BackupController };

struct DomainFacts {
    Role role = Role::Standalone;
    bool directory = false;      // an Active Directory style domain (LDAP, KDC)
    std::string realm;           // upper case; empty when unknown
    std::string flatName;        // the domain's flat (NetBIOS) name
    std::string controllerHost;  // as configured: a host name or an address; empty when unknown
    std::string hostName;
};

// Where the Kerberos configuration asks for the host's keys ("" for the default place).
[[nodiscard]] std::string KeytabPathOf(std::string_view kerberos);
[[nodiscard]] DomainFacts ReadDomainFacts(const MachineSetting& setting);

// The server type word of a machine with these facts.
[[nodiscard]] uint32_t ServerTypeOf(const DomainFacts& facts);

// One domain-controller answer with the texts it points into.
// The answer with the texts its fields point into; it stays where it was described.
struct DomainControllerRecord : DomainControllerInfo {
    DomainControllerRecord() : DomainControllerInfo{} {}
    DomainControllerRecord(const DomainControllerRecord&) = delete;
    DomainControllerRecord& operator=(const DomainControllerRecord&) = delete;
    std::string nameText, addressText, domainText, forestText;
};
// False for a machine in no domain.
[[nodiscard]] bool DescribeController(const DomainFacts& facts, DomainControllerRecord* record);

}  // namespace vrn::posixserver
