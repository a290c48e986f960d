#include "host/tds/client.h"

namespace vrn::tds {

std::unique_ptr<exec::Procedures> ConnectProcedures(const ClientOptions&) {
    throw exec::ScriptError(0, "--server is available in the Linux build only");
}

}  // namespace vrn::tds
