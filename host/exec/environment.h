// The one environment variable vrn-exec sets for the library it loads.
#pragma once

#include <string>

namespace vrn::exec {

// Sets name to value for this process and what it starts.
void SetProcessVariable(const std::string& name, const std::string& value);

}  // namespace vrn::exec
