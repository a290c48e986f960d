// Benchmarks of whole procedure calls through the host stand-in, at one and
// two threads.
#pragma once

namespace vrn::bench {

void RegisterProcedureBenchmarks();

}  // namespace vrn::bench
