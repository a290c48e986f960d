// Facts about the server and its domain: the two system queries that
// vrn_GetSrvInfo answers from, with a replaceable source for tests.
#pragma once

#include <cstdint>

namespace vrn {

inline constexpr uint32_t kNoSuchDomain = 1355;  // the server is in no domain

// The domain controller of the local computer's domain, flat names. A text
// field is null when the system has nothing for it (the site names may be absent).
struct DomainControllerInfo {
    const char* domainControllerName;
    const char* domainControllerAddress;
    uint32_t domainControllerAddressType;
    const char* domainName;
    const char* dnsForestName;
    uint32_t flags;
    const char* dcSiteName;
    const char* clientSiteName;
};

class ServerInfoSource {
public:
    virtual ~ServerInfoSource() = default;
    // The server type word (level 101). 0 is success.
    [[nodiscard]] virtual uint32_t ServerType(uint32_t* type) = 0;
    // On 0, *info stays valid until ReleaseDomainController(*info).
    [[nodiscard]] virtual uint32_t DomainController(const DomainControllerInfo** info) = 0;
    virtual void ReleaseDomainController(const DomainControllerInfo* info) = 0;
};

// The system's answers.
ServerInfoSource& SystemServerInfo();
// What the procedure asks: a source set for tests, else the system's.
ServerInfoSource& CurrentServerInfo();
// Sets the source that CurrentServerInfo gives (null: the system's) and
// returns the one set before. The caller keeps it alive while it is set.
ServerInfoSource* SetServerInfoSource(ServerInfoSource* source);

// Owner of one domain-controller answer: released on every path.
class DomainControllerAnswer {
public:
    explicit DomainControllerAnswer(ServerInfoSource& source)
        : source_(source), info_(nullptr), result_(source.DomainController(&info_)) {}
    ~DomainControllerAnswer() {
        if (result_ == 0 && info_ != nullptr) source_.ReleaseDomainController(info_);
    }
    DomainControllerAnswer(const DomainControllerAnswer&) = delete;
    DomainControllerAnswer& operator=(const DomainControllerAnswer&) = delete;
    // Null when the query failed.
    [[nodiscard]] const DomainControllerInfo* Get() const { return result_ == 0 ? info_ : nullptr; }

private:
    ServerInfoSource& source_;
    const DomainControllerInfo* info_;
    uint32_t result_;
};

}  // namespace vrn
