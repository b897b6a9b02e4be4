// A simulated FPGA device. Its PTP counter ("ptp_timestamp", nanoseconds since
// the epoch) follows the activity loop's clock from the loop's UTC time at
// creation, and can be scripted: set, stepped (also back), stalled. Any named
// value can be given a scripted text (non-decimal text, GPIO sample status
// values); registers hold what was written into them.
#pragma once

#include <map>
#include <optional>

#include "Hpx/Ham.h"
#include "Kiv/Activity.h"

namespace Hpx {

class SimHam final : public Ham {
  public:
   // Ready from the start.
   explicit SimHam(Pondo::String name);

   // The counter's present value.
   std::uint64_t counter() const;
   // Sets the present value; a running counter goes on from there.
   void counterIs(std::uint64_t ns);
   // Moves the counter by `ns` (negative: back).
   void stepBy(std::int64_t ns) { counterIs(counter() + std::uint64_t(ns)); }
   // A stalled counter keeps its value until it runs again.
   bool stalled() const { return stalled_; }
   void stalledIs(bool s);

   // The text a read of `valueName` returns instead of its live value
   // ("ptp_timestamp": the counter, any other name: "0").
   void textIs(const Pondo::String& valueName, Pondo::String text) { text_[valueName] = std::move(text); }
   void textDel(const Pondo::String& valueName) { text_.erase(valueName); }
   void registerIs(Reg32 reg, std::uint32_t value) { register_[reg] = value; }

   // Named value reads so far.
   std::uint64_t valueReads() const { return valueReads_; }

   void valueRead(const Pondo::String& valueName) override;
   // A register never written reads 0.
   void registerRead(Reg32 reg, std::uint32_t& value) override;

  private:
   std::uint64_t base_ = 0;  // counter value at loop time since_
   Kiv::Seconds since_ = 0;
   bool stalled_ = false;
   std::map<Pondo::String, Pondo::String> text_;
   std::map<Reg32, std::uint32_t> register_;
   std::uint64_t valueReads_ = 0;
   std::optional<std::uint64_t> resultCounter_;  // the counter value result_ shows, if it shows one
};

}  // namespace Hpx
