// The version the host asks for after loading: 7.0, major number in the top byte.
#include "frame/procedure.h"

VRN_EXPORT ULONG __GetXpVersion() { return vrn::kXpVersion; }

VRN_EXPORT ULONG xp_GetVersion() { return vrn::kXpVersion; }
