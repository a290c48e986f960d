// vrn-exec's client side of TDS: the same procedures called over the network
// on a vrn-server (or any server that has them), answers read back into the
// call record the local library gives, so that both print alike.
#pragma once

#include <memory>
#include <string>

#include "host/exec/runner.h"

namespace vrn::tds {

struct ClientOptions {
    std::string address;  // HOST:PORT
    std::string user;
    std::string password;
    uint32_t version = 0x74000004;  // the TDS version to ask for
};

// Connects and logs in; throws exec::ScriptError (line 0) when it can't.
[[nodiscard]] std::unique_ptr<exec::Procedures> ConnectProcedures(const ClientOptions& options);

}  // namespace vrn::tds
