// The hardware access object of a system-controller FPGA (an "Hpx"): its ready
// flag, named values read as decimal text, and 32-bit registers.
#pragma once

#include <cstdint>
#include <string>

#include "Kiv/Entity.h"
#include "Pondo/Types.h"

namespace Hpx {

// A 32-bit register of the device, named by its offset.
struct Reg32 {
   std::uint32_t offset = 0;

   friend constexpr auto operator<=>(const Reg32&, const Reg32&) = default;
   std::string toString() const { return fmt::format("Reg32(offset: {:#x})", offset); }
};

// The driver of one device. Reads happen on the caller's thread and return at once.
class Ham : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { name, ready };
   };

   const Pondo::String& name() const { return name_; }
   bool ready() const { return ready_; }
   void readyIs(bool r) { set(ready_, r, F::ready); }

   // Reads the named value ("ptp_timestamp", "ptp_gpio_sample_status", ...) and
   // leaves it as decimal text in result().
   virtual void valueRead(const Pondo::String& valueName) = 0;
   const Pondo::String& result() const { return result_; }
   // Reads the register into `value`.
   virtual void registerRead(Reg32 reg, std::uint32_t& value) = 0;

  protected:
   explicit Ham(Pondo::String name) : name_(std::move(name)) {}
   Pondo::String result_;

  private:
   Pondo::String name_;
   bool ready_ = false;
};

}  // namespace Hpx
