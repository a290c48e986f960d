// Included ahead of every file when building with GCC 12 or later. At -O3 that
// compiler warns with -Wrestrict inside the standard library's own string
// concatenation (char_traits copies, inlined from operator+), where nothing
// overlaps. The warning is turned off for the standard headers' lines only:
// inlined into our files it is judged at the library's line, and a real
// overlap in our own code is still reported there.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wrestrict"
#include <string>
#pragma GCC diagnostic pop
