#include "Pondo/Publisher.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <typeinfo>

#include <fmt/format.h>

#include "Pondo/Fatal.h"

namespace Pondo {

namespace {

std::string typeName(const std::type_info& t) {
   int status = 0;
   std::unique_ptr<char, void (*)(void*)> name(abi::__cxa_demangle(t.name(), nullptr, nullptr, &status), std::free);
   return status == 0 ? name.get() : t.name();
}

}  // namespace

void handlerThrew(const Receiver& r) {
   std::string what = "unknown exception";
   try {
      throw;
   } catch (const std::exception& e) {
      what = typeName(typeid(e)) + ": " + e.what();
   } catch (...) {
   }
   fatal(fmt::format("exception escaped a handler of {}: {}", typeName(typeid(r)), what),
              std::source_location::current());
}

void Publisher::handlerRemove(Receiver* target, Handler handler) const {
   auto it = std::find_if(subs_.begin(), subs_.end(), [&](const Entry& e) {
      return e.target == target && e.handler == handler && e.active != &kOff;
   });
   if (it == subs_.end()) return;
   if (delivering_) {
      it->active = &kOff;
      holes_ = true;
   } else {
      subs_.erase(it);
   }
}

std::size_t Publisher::subscribers() const {
   return static_cast<std::size_t>(
       std::count_if(subs_.begin(), subs_.end(), [](const Entry& e) { return e.active != &kOff; }));
}

void Publisher::settle() const {
   if (holes_) {
      std::erase_if(subs_, [](const Entry& e) { return e.active == &kOff; });
      holes_ = false;
   }
   if (released_) {
      auto* self = const_cast<Publisher*>(this);
      self->released_ = false;
      if (references() == 0) self->destroy();  // unless counted again meanwhile
   }
}

}  // namespace Pondo
