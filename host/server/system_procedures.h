// The few system procedures that client drivers call on their own: the
// type catalogue of ODBC (sp_datatype_info_100, _90) and the read-only check of
// OLE DB (sp_oledb_ro_usrname). Answered as a procedure's call record.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/host.h"

namespace vrn::server {

// name: the procedure's last name part in lower case; names: each parameter's
// @name or empty. Nullopt when name isn't one of them.
[[nodiscard]] std::optional<host::CallResult> CallSystemProcedure(const std::string& name,
                                                                  const std::vector<host::Param>& params,
                                                                  const std::vector<std::string>& names);

}  // namespace vrn::server
