// The stand-in's SRV_PROC: the record of one client call. Parameters go in
// before the call; everything the procedure sends comes out in result.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/host.h"

// One column as the procedure bound it: srv_describe's srcData, replaced by
// srv_setcoldata; the length by srv_setcollen. Both stay until changed, as
// a procedure may bind a buffer once and send many rows.
struct HostColumnBinding {
    const void* data = nullptr;
    bool hasLength = false;
    int length = 0;
};

struct srv_proc {
    std::vector<vrn::host::Param> params;
    vrn::host::CallOptions options;
    std::u16string instanceName;  // NUL-terminated copy handed out by srv_pfieldex
    vrn::host::CallResult result;
    std::vector<HostColumnBinding> bindings;  // parallel to the open result set's columns
    bool resultSetOpen = false;              // columns described and not yet closed by a done
};
