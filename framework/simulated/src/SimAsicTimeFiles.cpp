#include "Platform/SimAsicTimeFiles.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include "Platform/File.h"
#include "fmt/format.h"

namespace Platform {

namespace {

// Where TMPDIR says, else memory-backed when the system offers it: the files
// are rewritten hundreds of times per simulated second.
std::filesystem::path memoryBackedBase() {
   if (const char* tmp = std::getenv("TMPDIR"); tmp && *tmp) return tmp;
   std::error_code ec;
   std::filesystem::path shm = "/dev/shm";
   if (std::filesystem::is_directory(shm, ec) && ::access(shm.c_str(), W_OK) == 0) return shm;
   return std::filesystem::temp_directory_path();
}

}  // namespace

SimAsicTimeFiles::SimAsicTimeFiles() {
   std::string pattern = (memoryBackedBase() / "vyrptp-sim-asic-time-XXXXXX").string();
   if (!::mkdtemp(pattern.data())) throw std::runtime_error("cannot create the ASIC time directory " + pattern);
   directory_ = pattern;
   pathMapIs("/proc/asic-time", directory_);
}

SimAsicTimeFiles::~SimAsicTimeFiles() {
   for (auto& [unit, f] : time_) {
      if (f.fd >= 0) ::close(f.fd);
   }
   pathMapIs("/proc/asic-time", "");
   std::error_code ec;
   std::filesystem::remove_all(directory_, ec);
}

std::string SimAsicTimeFiles::path(std::uint8_t unit, const char* file) const {
   return fmt::format("{}/{}/{}", directory_, unsigned(unit), file);
}

void SimAsicTimeFiles::unitIs(std::uint8_t unit) {
   std::filesystem::create_directories(fmt::format("{}/{}", directory_, unsigned(unit)));
   const int fd = ::open(path(unit, "cfg").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
   if (fd < 0) throw std::runtime_error("cannot create " + path(unit, "cfg"));
   ::close(fd);
}

// Written in place and cut to length, so descriptors that readers keep open
// see the new text from offset 0.
void SimAsicTimeFiles::timeIs(std::uint8_t unit, const std::string& text) {
   TimeFile& f = time_[unit];
   if (f.fd >= 0 && f.text == text) return;
   const bool opened = f.fd < 0;
   if (opened) {
      f.fd = ::open(path(unit, "ts").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
      if (f.fd < 0) throw std::runtime_error("cannot create " + path(unit, "ts"));
   }
   // Truncating costs as much as writing: only a shorter text, or a file
   // found from before, needs it.
   const bool truncate = opened || text.size() < f.text.size();
   if (::pwrite(f.fd, text.data(), text.size(), 0) != ssize_t(text.size()) ||
       (truncate && ::ftruncate(f.fd, off_t(text.size())) != 0)) {
      throw std::runtime_error("cannot write " + path(unit, "ts"));
   }
   f.text = text;
   ++writes_;
}

void SimAsicTimeFiles::timeDel(std::uint8_t unit) {
   auto it = time_.find(unit);
   if (it != time_.end() && it->second.fd >= 0) {
      if (::ftruncate(it->second.fd, 0) != 0) throw std::runtime_error("cannot empty " + path(unit, "ts"));
      ::close(it->second.fd);
      time_.erase(it);
   }
   ::unlink(path(unit, "ts").c_str());
}

std::string SimAsicTimeFiles::counterConfig(std::uint8_t unit) {
   const int fd = ::open(path(unit, "cfg").c_str(), O_RDWR | O_CLOEXEC);
   if (fd < 0) return {};
   char buf[64];
   const ssize_t n = ::read(fd, buf, sizeof buf);
   const bool consumed = n > 0 && ::ftruncate(fd, 0) == 0;
   ::close(fd);
   return consumed ? std::string(buf, std::size_t(n)) : std::string();
}

}  // namespace Platform
