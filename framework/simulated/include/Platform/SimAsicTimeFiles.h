// The simulated kernel's ASIC time files: per kernel unit <n> a time file
// <n>/ts and a counter configuration file <n>/cfg in a memory-backed
// directory (/dev/shm when there is one) that the platform serves as
// "/proc/asic-time". Readers open and read the files as they would the
// kernel's; the owner writes a time file only when its text changes, through
// a descriptor it keeps open.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace Platform {

class SimAsicTimeFiles {
  public:
   SimAsicTimeFiles();
   ~SimAsicTimeFiles();
   SimAsicTimeFiles(const SimAsicTimeFiles&) = delete;
   SimAsicTimeFiles& operator=(const SimAsicTimeFiles&) = delete;

   // The directory behind "/proc/asic-time".
   const std::string& directory() const { return directory_; }

   // Creates unit `unit`'s directory with an empty cfg file.
   void unitIs(std::uint8_t unit);
   // Makes `text` the time file's content, creating the file if it is
   // missing; an unchanged text is not written again.
   void timeIs(std::uint8_t unit, const std::string& text);
   // Removes the time file; descriptors still open on it read nothing.
   void timeDel(std::uint8_t unit);
   // Time file writes so far (unchanged texts not counted).
   std::uint64_t writes() const { return writes_; }

   // The command written into the cfg file since the last call, which the
   // call consumes (empties the file), as the kernel would.
   std::string counterConfig(std::uint8_t unit);

  private:
   struct TimeFile {
      int fd = -1;
      std::string text;
   };
   std::string path(std::uint8_t unit, const char* file) const;

   std::string directory_;
   std::map<std::uint8_t, TimeFile> time_;
   std::uint64_t writes_ = 0;
};

}  // namespace Platform
