#include "Platform/File.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <map>

namespace Platform {

namespace {

std::map<std::string, std::string>& pathMap() {
   static std::map<std::string, std::string> m;
   return m;
}

}  // namespace

std::string osPath(const std::string& path) {
   for (const auto& [prefix, directory] : pathMap()) {
      if (path.compare(0, prefix.size(), prefix) != 0) continue;
      if (path.size() == prefix.size() || path[prefix.size()] == '/') return directory + path.substr(prefix.size());
   }
   return path;
}

void pathMapIs(const std::string& prefix, const std::string& directory) {
   if (directory.empty()) {
      pathMap().erase(prefix);
   } else {
      pathMap()[prefix] = directory;
   }
}

int fileOpen(const std::string& path, int flags) { return ::open(osPath(path).c_str(), flags); }

bool fileWrite(const std::string& path, std::string_view text) {
   int fd = fileOpen(path, O_WRONLY | O_TRUNC | O_CLOEXEC);
   if (fd < 0) return false;
   bool ok = true;
   while (ok && !text.empty()) {
      ssize_t n = ::write(fd, text.data(), text.size());
      if (n < 0 && errno == EINTR) continue;
      ok = n > 0;
      if (ok) text.remove_prefix(std::size_t(n));
   }
   return ::close(fd) == 0 && ok;
}

}  // namespace Platform
