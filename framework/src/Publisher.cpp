#include "Pondo/Publisher.h"

#include <algorithm>

namespace Pondo {

void Publisher::subscriberRemove(Subscriber* s) const {
   auto it = std::find(subs_.begin(), subs_.end(), s);
   if (it == subs_.end()) return;
   if (delivering_) {
      *it = nullptr;
      holes_ = true;
   } else {
      subs_.erase(it);
   }
}

std::size_t Publisher::subscribers() const {
   return static_cast<std::size_t>(std::count_if(subs_.begin(), subs_.end(), [](Subscriber* s) { return s; }));
}

void Publisher::settle() const {
   if (holes_) {
      std::erase(subs_, nullptr);
      holes_ = false;
   }
   if (released_) {
      auto* self = const_cast<Publisher*>(this);
      self->released_ = false;
      if (references() == 0) self->destroy();  // unless counted again meanwhile
   }
}

}  // namespace Pondo
