// The product attributes service: facts about the hardware product the agent
// runs on.
#pragma once

#include <optional>

#include "Kiv/Entity.h"

namespace Platform {

// The flags the PTP agent reads.
struct Attributes {
   // Chip time is read through the kernel's ASIC time files.
   bool chipTimeFromAsicTimeFile = false;
   // The chip's time counter must be initialised before use.
   bool asicTimeCounterNeedsInit = false;
};

class ProductAttributes : public Kiv::Entity {
  public:
   explicit ProductAttributes(std::optional<Attributes> attributes) : attributes_(attributes) {}
   // The attribute object, or null when the product has none.
   const Attributes* attributes() const { return attributes_ ? &*attributes_ : nullptr; }

  private:
   std::optional<Attributes> attributes_;
};

// The product's attributes, or null when the platform has none.
const ProductAttributes* productAttributes();
// Installs the product's attributes (the platform at start, tests, the simulator).
void productAttributesIs(Pondo::Ptr<const ProductAttributes> attributes);

}  // namespace Platform
