// What the procedure tests share: the loaded library and one call as a line.
#pragma once

#include <cstdint>
#include <string>

#include "host/host.h"

namespace vrn::test {

inline const host::Library& Lib() {
    static const host::Library library(host::DefaultLibraryPath());
    return library;
}

inline std::string Code(uint32_t code) { return std::to_string(static_cast<int32_t>(code)); }

// The return code, then every delivery in its order: M[message] O<n>[bytes] D[status/count].
// Without texts, the kinds and each output's size: "M O2:8 D".
inline std::string Trace(const host::CallResult& r, bool texts = true) {
    std::string line = std::to_string(r.returnCode);
    size_t message = 0, output = 0, done = 0;
    for (host::EventKind kind : r.order) {
        if (kind == host::EventKind::Done) {
            const host::Done& d = r.dones[done++];  // "D" alone is the final done, status 0 and no count
            line += " D";
            if (d.status != 0 || d.info != 0 || d.count != 0) line += std::to_string(d.status) + "/" + std::to_string(d.count);
        }
        if (kind == host::EventKind::Message) {
            const std::string& text = r.messages[message++].text;
            line += texts ? " M[" + text + "]" : " M";
        }
        if (kind == host::EventKind::Output) {
            const host::OutputValue& o = r.outputs[output++];
            line += " O" + std::to_string(o.param);
            line += texts ? "[" + std::string(o.value.begin(), o.value.end()) + "]" : ":" + std::to_string(o.value.size());
        }
    }
    return line;
}

}  // namespace vrn::test
