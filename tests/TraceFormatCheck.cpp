// Compiled twice by the test suite: as it is, it must build; with
// WRONG_FORMAT, the build must fail on the format of the marked line.
#include "Kiv/Trace.h"

namespace {
Kiv::Tracer trace{"TraceFormatCheck"};
}  // namespace

int main() {
   trace(8, "intf: {}, ready: {}", "Ethernet1/1", true);
   Kiv::kassert(true, "slot {:x}", 12u);
#ifdef WRONG_FORMAT
   trace(8, "intf: {:d}", "Ethernet1/1");  // the wrong format
#endif
}
