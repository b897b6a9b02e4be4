#include "Platform/ProductAttributes.h"

namespace Platform {

namespace {
Pondo::Ptr<const ProductAttributes>& current() {
   static Pondo::Ptr<const ProductAttributes> p;
   return p;
}
}  // namespace

const ProductAttributes* productAttributes() { return current().get(); }

void productAttributesIs(Pondo::Ptr<const ProductAttributes> attributes) { current() = std::move(attributes); }

}  // namespace Platform
