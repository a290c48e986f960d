// Setting a variable of vrn-exec's own environment, which the library reads.
#pragma once

namespace vrn::exec {

// False when the system refuses it.
bool SetEnvironment(const char* name, const char* value);

}  // namespace vrn::exec
