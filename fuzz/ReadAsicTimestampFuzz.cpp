// Fuzzes the reader of ASIC time file records with arbitrary file contents.
// Checks: only an empty file fails, a failure leaves time of day 0, and the
// file is always consumed to its end.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#include "VyrPtp/VyrHelperPtp.h"

namespace {

int file() {
   static const int fd = [] {
      // Every trace level on, into a sink that drops the records: formatting runs.
      Kiv::traceSinkIs([](const Kiv::TraceRecord&) {});
      Kiv::traceMaskIs("VyrPtp", Kiv::kTraceAllLevels);
      return memfd_create("asic-time-ts", 0);
   }();
   return fd;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
   const int fd = file();
   if (fd < 0 || ftruncate(fd, 0) != 0) std::abort();
   if (size && pwrite(fd, data, size, 0) != ssize_t(size)) std::abort();
   ::lseek(fd, off_t(size / 2), SEEK_SET);  // wherever the last reader left it

   VyrPtp::U64 timeOfDay = 1;
   const int rc = VyrPtp::readAsicTimestamp(fd, timeOfDay);
   if (rc != (size ? 0 : -1)) std::abort();
   if (rc != 0 && timeOfDay != 0) std::abort();
   if (::lseek(fd, 0, SEEK_CUR) != off_t(size)) std::abort();
   return 0;
}
