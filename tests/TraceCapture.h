// Captures the trace records of one handle during a test.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Kiv/Trace.h"

class TraceCapture {
  public:
   struct Record {
      std::string handle;
      unsigned level;
      std::string function;
      std::string className;
      std::string message;
   };

   explicit TraceCapture(std::string handle, std::uint16_t mask = Kiv::kTraceAllLevels) : handle_(std::move(handle)) {
      Kiv::traceMaskIs(handle_, mask);
      Kiv::traceSinkIs([this](const Kiv::TraceRecord& r) {
         records.push_back({std::string(r.handle), r.level, std::string(r.function), std::string(r.className),
                            std::string(r.message)});
      });
   }
   ~TraceCapture() {
      Kiv::traceSinkIs({});
      Kiv::traceMaskIs(handle_, 0);
   }
   TraceCapture(const TraceCapture&) = delete;
   TraceCapture& operator=(const TraceCapture&) = delete;

   std::size_t count(unsigned level, std::string_view message) const {
      std::size_t n = 0;
      for (const Record& r : records) n += r.level == level && r.message == message;
      return n;
   }
   bool has(unsigned level, std::string_view message) const { return count(level, message) > 0; }
   void clear() { records.clear(); }

   std::vector<Record> records;

  private:
   std::string handle_;
};
