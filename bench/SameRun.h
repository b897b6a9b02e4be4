// Figures that benchmarks leave for comparison within the same run: per
// timestamp cost in nanoseconds, by name. main() prints the ratios at the end.
#pragma once

#include <time.h>

#include <map>
#include <string>

inline std::map<std::string, double>& perTimestampNs() {
   static std::map<std::string, double> figures;
   return figures;
}

// CPU time of the process (user and kernel), in nanoseconds.
inline double cpuNs() {
   timespec t;
   clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
   return double(t.tv_sec) * 1e9 + double(t.tv_nsec);
}
