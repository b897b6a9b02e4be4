#include "Json.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <stdexcept>

namespace Sim {

Json& Json::operator[](const std::string& key) {
   if (isNull()) v_ = Object{};
   Object& o = std::get<Object>(v_);
   for (auto& [k, v] : o) {
      if (k == key) return v;
   }
   return o.emplace_back(key, Json()).second;
}

Json& Json::push(Json v) {
   if (isNull()) v_ = Array{};
   return std::get<Array>(v_).emplace_back(std::move(v));
}

const Json* Json::find(const std::string& key) const {
   for (const auto& [k, v] : members()) {
      if (k == key) return &v;
   }
   return nullptr;
}

std::string Json::text() const {
   std::string out;
   write(out);
   return out;
}

namespace {

void writeString(std::string& out, const std::string& s) {
   out += '"';
   for (unsigned char c : s) {
      switch (c) {
         case '"': out += "\\\""; break;
         case '\\': out += "\\\\"; break;
         case '\n': out += "\\n"; break;
         case '\r': out += "\\r"; break;
         case '\t': out += "\\t"; break;
         default:
            if (c < 0x20) {
               fmt::format_to(std::back_inserter(out), "\\u{:04x}", c);
            } else {
               out += char(c);
            }
      }
   }
   out += '"';
}

class Reader {
  public:
   explicit Reader(const std::string& t) : t_(t) {}

   Json document() {
      Json v = value();
      space();
      if (i_ != t_.size()) error("text after the value");
      return v;
   }

  private:
   [[noreturn]] void error(const char* what) const {
      throw std::runtime_error(fmt::format("JSON at offset {}: {}", i_, what));
   }
   void space() {
      while (i_ < t_.size() && (t_[i_] == ' ' || t_[i_] == '\n' || t_[i_] == '\r' || t_[i_] == '\t')) ++i_;
   }
   bool take(char c) {
      space();
      if (i_ < t_.size() && t_[i_] == c) return ++i_, true;
      return false;
   }
   bool word(const char* w) {
      const std::string_view v(w);
      if (t_.compare(i_, v.size(), v) != 0) return false;
      i_ += v.size();
      return true;
   }
   Json value() {
      space();
      if (i_ >= t_.size()) error("a value is missing");
      if (take('{')) {
         Json result = Json::object();
         if (take('}')) return result;
         do {
            space();
            if (i_ >= t_.size() || t_[i_] != '"') error("a member name is missing");
            std::string key = string();
            if (!take(':')) error("':' is missing");
            result[key] = value();
         } while (take(','));
         if (!take('}')) error("'}' is missing");
         return result;
      }
      if (take('[')) {
         Json result = Json::array();
         if (take(']')) return result;
         do result.push(value());
         while (take(','));
         if (!take(']')) error("']' is missing");
         return result;
      }
      if (t_[i_] == '"') return Json(string());
      if (word("true")) return Json(true);
      if (word("false")) return Json(false);
      if (word("null")) return Json();
      double d = 0;
      auto [end, ec] = std::from_chars(t_.data() + i_, t_.data() + t_.size(), d);
      if (ec != std::errc{}) error("not a value");
      i_ = std::size_t(end - t_.data());
      return Json(d);
   }
   std::string string() {
      ++i_;  // the opening quote
      std::string s;
      while (i_ < t_.size() && t_[i_] != '"') {
         char c = t_[i_++];
         if (c != '\\') {
            s += c;
            continue;
         }
         if (i_ >= t_.size()) break;
         c = t_[i_++];
         if (c == 'u') {
            unsigned code = 0;
            if (i_ + 4 > t_.size() || std::from_chars(t_.data() + i_, t_.data() + i_ + 4, code, 16).ec != std::errc{}) {
               error("a bad \\u escape");
            }
            i_ += 4;
            s += char(code);  // the writer escapes control characters only
         } else {
            s += c == 'n' ? '\n' : c == 'r' ? '\r' : c == 't' ? '\t' : c;
         }
      }
      if (i_ >= t_.size()) error("a string does not end");
      ++i_;
      return s;
   }

   const std::string& t_;
   std::size_t i_ = 0;
};

}  // namespace

Json Json::parse(const std::string& text) { return Reader(text).document(); }

void Json::write(std::string& out) const {
   if (isNull()) {
      out += "null";
   } else if (auto* b = std::get_if<bool>(&v_)) {
      out += *b ? "true" : "false";
   } else if (auto* d = std::get_if<double>(&v_)) {
      if (std::isfinite(*d)) {
         fmt::format_to(std::back_inserter(out), "{}", *d);
      } else {
         out += "null";
      }
   } else if (auto* s = std::get_if<std::string>(&v_)) {
      writeString(out, *s);
   } else if (auto* a = std::get_if<Array>(&v_)) {
      out += '[';
      for (std::size_t i = 0; i < a->size(); ++i) {
         if (i) out += ',';
         (*a)[i].write(out);
      }
      out += ']';
   } else {
      const Object& o = std::get<Object>(v_);
      out += '{';
      for (std::size_t i = 0; i < o.size(); ++i) {
         if (i) out += ',';
         writeString(out, o[i].first);
         out += ':';
         o[i].second.write(out);
      }
      out += '}';
   }
}

}  // namespace Sim
