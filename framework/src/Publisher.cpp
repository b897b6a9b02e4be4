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

// The hold keeps this publisher, and with it a change's source and values,
// alive while its subscribers and its owners' subscribers run, whatever they
// release.
void Publisher::deliver(const Change& c) const {
   Ptr<const Publisher> hold(this);
   ++delivering_;
   const std::size_t n = subs_.size();
   for (std::size_t i = 0; i < n; ++i) {
      if (Subscriber* s = subs_[i]) s->onChange(c);
   }
   if (--delivering_ == 0 && holes_) {
      std::erase(subs_, nullptr);
      holes_ = false;
   }
   if (owner_) owner_->publish(c);
}

}  // namespace Pondo
