// Structured report data: a JSON value that modules fill with their part of
// the run's report and that `--json FILE` writes out.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace Sim {

class Json {
  public:
   using Array = std::vector<Json>;
   using Object = std::vector<std::pair<std::string, Json>>;  // in insertion order

   Json() = default;  // null
   Json(bool b) : v_(b) {}
   Json(double d) : v_(d) {}
   Json(int i) : v_(double(i)) {}
   Json(unsigned i) : v_(double(i)) {}
   Json(long i) : v_(double(i)) {}
   Json(unsigned long i) : v_(double(i)) {}
   Json(long long i) : v_(double(i)) {}
   Json(unsigned long long i) : v_(double(i)) {}
   Json(std::string s) : v_(std::move(s)) {}
   Json(const char* s) : v_(std::string(s)) {}
   static Json array() { return Json(Array{}); }
   static Json object() { return Json(Object{}); }

   // The member `key` of an object, added (as null) when absent; a null value becomes an object.
   Json& operator[](const std::string& key);
   // Appends to an array; a null value becomes an array.
   Json& push(Json v);

   bool isNull() const { return std::holds_alternative<std::monostate>(v_); }
   bool isBool() const { return std::holds_alternative<bool>(v_); }
   bool isNumber() const { return std::holds_alternative<double>(v_); }
   bool isString() const { return std::holds_alternative<std::string>(v_); }
   bool isArray() const { return std::holds_alternative<Array>(v_); }
   bool isObject() const { return std::holds_alternative<Object>(v_); }
   const Json* find(const std::string& key) const;
   double number() const { return std::get<double>(v_); }
   const std::string& string() const { return std::get<std::string>(v_); }
   bool boolean() const { return std::get<bool>(v_); }
   const Array& items() const { return std::get<Array>(v_); }
   const Object& members() const { return std::get<Object>(v_); }

   // Compact JSON text; numbers that are not finite are written as null.
   std::string text() const;
   // Parses JSON text (as text() writes it, and any other); throws std::runtime_error.
   static Json parse(const std::string& text);

  private:
   explicit Json(Array a) : v_(std::move(a)) {}
   explicit Json(Object o) : v_(std::move(o)) {}
   void write(std::string& out) const;
   std::variant<std::monostate, bool, double, std::string, Array, Object> v_;
};

}  // namespace Sim
