// A temporary directory for tests that work on real files; removed at the end.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

class TempDir {
  public:
   TempDir() {
      std::string pattern = (std::filesystem::temp_directory_path() / "vyrptp-test-XXXXXX").string();
      if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
      path_ = pattern;
   }
   ~TempDir() { std::filesystem::remove_all(path_); }
   TempDir(const TempDir&) = delete;
   TempDir& operator=(const TempDir&) = delete;

   std::string path(const std::string& relative = "") const {
      return relative.empty() ? path_ : path_ + "/" + relative;
   }
   // Writes `text` as the whole content of `relative`, creating its directories.
   void write(const std::string& relative, const std::string& text) const {
      std::filesystem::create_directories(std::filesystem::path(path(relative)).parent_path());
      std::ofstream(path(relative), std::ios::trunc) << text;
   }
   std::string read(const std::string& relative) const {
      std::ifstream in(path(relative));
      return std::string(std::istreambuf_iterator<char>(in), {});
   }
   void remove(const std::string& relative) const { std::filesystem::remove_all(path(relative)); }

  private:
   std::string path_;
};
