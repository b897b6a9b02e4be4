// kivgen: turns an entity description (.kiv) into a C++ header and source.
//
// A .kiv file is the header as its reader sees it, except that each entity
// class is an `entity` block. Everything outside the blocks is copied as it
// stands, in order:
//
//   // The PTP configuration of one interface.
//   entity VYRPTP_EXPORT HwIntfConfig : Kiv::Entity {   <- macro and base optional
//      key intfId: Wyx::IntfId;                         <- constructor argument
//      key chip: Pondo::Ptr<const Chip> or null;        <- may be null (else refused)
//      key name: Pondo::String = "main";                <- may be left out
//      // Whether the interface takes part.             <- goes above the accessor
//      attr enabled: bool = false;                      <- accessor and setter
//      collection peer: Wyx::IntfId -> Peer(port: Port);  <- owned entities, made
//                                                          with (key, port)
//      map counter: Wyx::IntfId -> std::uint32_t;       <- values; `in STORE` optional
//      set active: Pondo::String;                       <- keys only
//      code {                                           <- copied into the class
//         bool idle() const { return active_.empty(); }
//      }
//   }
//
// Each block becomes the class (field ids and names, typed fields, constructor,
// accessors, printed form, members) followed by the declarations of its
// factory and maker; the generated source defines those and toString().
//
//   kivgen <input.kiv> <output.h> <output.cpp> <include path of the header>
//
// Errors read "<file>:<line>: error: ..." (line 0: the file as a whole) and
// exit with status 1. An output is written only when its content changes, so
// that what includes it is not rebuilt for nothing.
#include <cctype>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t kColumns = 120;  // the tree's .clang-format
constexpr std::string_view kStep = "   ";
constexpr std::string_view kContinuation = "    ";

// A failure at a line of the input, or of the file as a whole (line 0).
struct Error {
   int line;
   std::string what;
};

enum class Kind { key, attr, collection, map, set, code };

struct Arg {
   std::string name;
   std::string type;
   bool nullable = false;  // an entity reference that may be null
};

// One declaration of an entity block.
struct Decl {
   Kind kind = Kind::key;
   int line = 0;
   std::string name;
   std::string type;       // key, attr: the value's type; collection, map, set: the key's
   bool nullable = false;  // key: an entity reference that may be null
   std::string init;       // attr: the initial value, or empty
   std::string member;     // collection: the member entity; map: the value's type
   std::string store;      // map: the store, or empty
   std::vector<Arg> args;
   std::vector<std::string> comments;
   std::vector<std::string> code;
};

struct Entity {
   int line = 0;
   std::string exportMacro;
   std::string name;
   std::string base = "Kiv::Entity";
   std::string ns;  // the enclosing namespace, "A::B", or empty
   std::vector<Decl> decls;
};

// The input in order: verbatim lines, and entities in place of their blocks.
struct Piece {
   std::string text;
   std::optional<std::size_t> entity;
};

struct Description {
   std::vector<Piece> pieces;
   std::vector<Entity> entities;
};

// ---------------------------------------------------------------- text

std::string_view trim(std::string_view s) {
   const auto first = s.find_first_not_of(" \t");
   if (first == std::string_view::npos) return {};
   return s.substr(first, s.find_last_not_of(" \t") - first + 1);
}

bool isIdentifier(std::string_view s) {
   auto letter = [](char c) { return c == '_' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
   auto digit = [](char c) { return c >= '0' && c <= '9'; };
   if (s.empty() || !letter(s.front())) return false;
   for (char c : s) {
      if (!letter(c) && !digit(c)) return false;
   }
   return true;
}

std::string join(const std::vector<std::string>& items, std::string_view separator) {
   std::string out;
   for (std::size_t i = 0; i < items.size(); ++i) {
      if (i != 0) out += separator;
      out += items[i];
   }
   return out;
}

std::string quote(std::string_view text) { return "'" + std::string(text) + "'"; }

// Where `separator` first occurs outside brackets (<>, (), [], {}), or npos.
std::size_t findTopLevel(std::string_view text, std::string_view separator) {
   int depth = 0;
   for (std::size_t i = 0; i < text.size(); ++i) {
      if (depth == 0 && text.substr(i).starts_with(separator)) return i;
      const char c = text[i];
      if (c == '<' || c == '(' || c == '[' || c == '{') ++depth;
      if ((c == '>' && (i == 0 || text[i - 1] != '-')) || c == ')' || c == ']' || c == '}') --depth;
   }
   return std::string_view::npos;
}

// Where the first lone ':' (not part of "::") is, or npos.
std::size_t findLoneColon(std::string_view text) {
   for (std::size_t i = 0; i < text.size(); ++i) {
      if (text[i] != ':') continue;
      if (i + 1 < text.size() && text[i + 1] == ':') {
         ++i;
         continue;
      }
      return i;
   }
   return std::string_view::npos;
}

// Splits `text` on commas outside brackets.
std::vector<std::string_view> splitTopLevel(std::string_view text) {
   std::vector<std::string_view> parts;
   for (auto at = findTopLevel(text, ","); at != std::string_view::npos; at = findTopLevel(text, ",")) {
      parts.push_back(trim(text.substr(0, at)));
      text = text.substr(at + 1);
   }
   parts.push_back(trim(text));
   return parts;
}

// ---------------------------------------------------------------- parsing

// A type as written: not empty, its angle brackets balanced.
std::string typeOf(std::string_view text, std::string_view what, std::string_view decl, int line) {
   text = trim(text);
   if (text.empty()) throw Error{line, "missing " + std::string(what) + " in " + quote(decl)};
   int depth = 0;
   for (std::size_t i = 0; i < text.size(); ++i) {
      if (text[i] == '<') ++depth;
      if (text[i] == '>' && (i == 0 || text[i - 1] != '-')) --depth;
      if (depth < 0) break;
   }
   if (depth != 0) throw Error{line, "unbalanced '<>' in " + std::string(what) + " " + quote(text)};
   return std::string(text);
}

// A key or argument type written `TYPE or null`: an entity reference that may
// be null (others are refused with an error naming them).
std::string_view orNull(std::string_view type, bool& nullable) {
   constexpr std::string_view kOrNull = " or null";
   nullable = type.ends_with(kOrNull);
   return nullable ? type.substr(0, type.size() - kOrNull.size()) : type;
}

// `NAME: REST` -> NAME and REST.
std::pair<std::string, std::string_view> nameAndRest(std::string_view text, std::string_view decl, int line,
                                                     std::string_view form = "NAME: TYPE") {
   const auto colon = findLoneColon(text);
   const auto name = trim(text.substr(0, colon));
   if (colon == std::string_view::npos || !isIdentifier(name)) {
      throw Error{line, "expected " + quote(form) + " in " + quote(decl)};
   }
   return {std::string(name), text.substr(colon + 1)};
}

// `KEY -> REST` -> KEY and REST.
std::pair<std::string, std::string_view> keyAndRest(std::string_view text, std::string_view decl, int line) {
   const auto arrow = findTopLevel(text, "->");
   if (arrow == std::string_view::npos) throw Error{line, "missing '->' in " + quote(decl)};
   return {typeOf(text.substr(0, arrow), "key type", decl, line), text.substr(arrow + 2)};
}

// `MEMBER` or `MEMBER(ARG: TYPE, ...)` of a collection.
void parseMember(Decl& d, std::string_view text, std::string_view decl) {
   const auto open = findTopLevel(text, "(");
   d.member = typeOf(text.substr(0, open), "member type", decl, d.line);
   if (open == std::string_view::npos) return;
   const auto list = trim(text.substr(open));
   if (list.size() < 2 || list.back() != ')' || findTopLevel(list.substr(1), ")") != list.size() - 2) {
      throw Error{d.line, "expected '(ARG: TYPE, ...)' after the member type in " + quote(decl)};
   }
   const auto inner = trim(list.substr(1, list.size() - 2));
   if (inner.empty()) throw Error{d.line, "empty argument list in " + quote(decl)};
   for (const auto arg : splitTopLevel(inner)) {
      auto [name, type] = nameAndRest(arg, decl, d.line, "ARG: TYPE");
      if (name == "k") throw Error{d.line, "argument name 'k' is taken by the key in " + quote(decl)};
      for (const auto& other : d.args) {
         if (other.name == name) throw Error{d.line, "argument " + quote(name) + " named twice in " + quote(decl)};
      }
      bool nullable = false;
      type = orNull(type, nullable);
      d.args.push_back({std::move(name), typeOf(type, "argument type", decl, d.line), nullable});
   }
}

std::optional<Kind> kindOf(std::string_view word) {
   if (word == "key") return Kind::key;
   if (word == "attr") return Kind::attr;
   if (word == "collection") return Kind::collection;
   if (word == "map") return Kind::map;
   if (word == "set") return Kind::set;
   return std::nullopt;
}

// One line `KIND NAME: ...;` of an entity block.
Decl parseDecl(std::string_view decl, int line) {
   const auto space = decl.find_first_of(" \t");
   const auto kind = kindOf(decl.substr(0, space));
   if (!kind || space == std::string_view::npos) {
      throw Error{line, "expected key, attr, collection, map, set, code, a comment or '}', not " + quote(decl)};
   }
   if (!decl.ends_with(';')) throw Error{line, "missing ';' at the end of " + quote(decl)};
   Decl d;
   d.kind = *kind;
   d.line = line;
   auto [name, rest] = nameAndRest(decl.substr(space, decl.size() - space - 1), decl, line);
   d.name = std::move(name);
   switch (d.kind) {
      case Kind::key:
      case Kind::attr: {
         const auto equals = findTopLevel(rest, " = ");
         const std::string_view type = rest.substr(0, equals);
         d.type = typeOf(d.kind == Kind::key ? orNull(type, d.nullable) : type, "type", decl, line);
         if (equals != std::string_view::npos) {
            d.init = trim(rest.substr(equals + 3));
            if (d.init.empty()) throw Error{line, "missing initial value after '=' in " + quote(decl)};
         }
         break;
      }
      case Kind::collection: {
         auto [key, member] = keyAndRest(rest, decl, line);
         d.type = std::move(key);
         parseMember(d, member, decl);
         break;
      }
      case Kind::map: {
         auto [key, value] = keyAndRest(rest, decl, line);
         d.type = std::move(key);
         const auto in = findTopLevel(value, " in ");
         d.member = typeOf(value.substr(0, in), "value type", decl, line);
         if (in != std::string_view::npos) d.store = typeOf(value.substr(in + 4), "store type", decl, line);
         break;
      }
      case Kind::set: d.type = typeOf(rest, "key type", decl, line); break;
      case Kind::code: break;
   }
   return d;
}

// The change in brace depth one line of code makes, outside literals and
// comments; `inComment` carries a /* comment */ over lines.
int braceChange(std::string_view line, bool& inComment) {
   int change = 0;
   for (std::size_t i = 0; i < line.size(); ++i) {
      const char c = line[i];
      const char next = i + 1 < line.size() ? line[i + 1] : '\0';
      if (inComment) {
         if (c == '*' && next == '/') {
            inComment = false;
            ++i;
         }
      } else if (c == '/' && next == '/') {
         break;
      } else if (c == '/' && next == '*') {
         inComment = true;
         ++i;
      } else if (c == '"' || (c == '\'' && !(i > 0 && std::isalnum(static_cast<unsigned char>(line[i - 1]))))) {
         // A literal; a quote after a digit is a digit separator.
         for (++i; i < line.size() && line[i] != c; ++i) {
            if (line[i] == '\\') ++i;
         }
      } else if (c == '{') {
         ++change;
      } else if (c == '}') {
         --change;
      }
   }
   return change;
}

// Reads the lines of an entity description.
class Parser {
  public:
   explicit Parser(std::vector<std::string> lines) : lines_(std::move(lines)) {}

   Description parse() {
      Description out;
      while (next_ < lines_.size()) {
         const std::string& text = lines_[next_++];
         const auto t = trim(text);
         if (t == "entity" || t.starts_with("entity ") || t.starts_with("entity\t")) {
            out.entities.push_back(parseEntity(t));
            out.pieces.push_back({{}, out.entities.size() - 1});
         } else {
            trackNamespace(t);
            out.pieces.push_back({text, std::nullopt});
         }
      }
      return out;
   }

  private:
   int lineNo() const { return static_cast<int>(next_); }

   // `namespace A::B {` opens a namespace, a line starting `}  // namespace` closes one.
   void trackNamespace(std::string_view t) {
      if (t.starts_with("namespace") && t.size() > 9 && (t[9] == ' ' || t[9] == '{') && t.ends_with('{')) {
         const auto name = trim(t.substr(9, t.size() - 10));
         if (name.empty() || isIdentifier(name) || name.find("::") != std::string_view::npos) {
            namespaces_.emplace_back(name);
         }
      } else if (t.starts_with('}') && trim(t.substr(1)).starts_with("// namespace")) {
         if (namespaces_.empty()) throw Error{lineNo(), "closes no open namespace: " + quote(t)};
         namespaces_.pop_back();
      }
   }

   std::string currentNamespace() const {
      std::string ns;
      for (const auto& n : namespaces_) {
         if (n.empty()) continue;
         if (!ns.empty()) ns += "::";
         ns += n;
      }
      return ns;
   }

   // `entity [EXPORT] Name [: Base] {` and the block after it.
   Entity parseEntity(std::string_view header) {
      Entity e;
      e.line = lineNo();
      e.ns = currentNamespace();
      const std::string usage = "expected 'entity [EXPORT_MACRO] Name [: Base] {', not " + quote(header);
      if (!header.ends_with('{')) throw Error{e.line, usage};
      auto rest = trim(header.substr(6, header.size() - 7));
      const auto colon = findLoneColon(rest);
      if (colon != std::string_view::npos) {
         e.base = trim(rest.substr(colon + 1));
         if (e.base.empty()) throw Error{e.line, usage};
         rest = trim(rest.substr(0, colon));
      }
      const auto space = rest.find_first_of(" \t");
      if (space != std::string_view::npos) {
         e.exportMacro = rest.substr(0, space);
         rest = trim(rest.substr(space));
      }
      e.name = rest;
      if (!isIdentifier(e.name) || (space != std::string_view::npos && !isIdentifier(e.exportMacro))) {
         throw Error{e.line, usage};
      }
      parseBody(e, header);
      return e;
   }

   void parseBody(Entity& e, std::string_view header) {
      std::vector<std::string> comments;
      std::set<std::string, std::less<>> names;
      while (next_ < lines_.size()) {
         const auto t = trim(lines_[next_++]);
         if (t.empty()) continue;
         if (t == "}") {
            if (!comments.empty()) {
               throw Error{lineNo() - 1, "comment before no declaration: " + quote(comments.back())};
            }
            return;
         }
         if (t.starts_with("//")) {
            comments.emplace_back(t);
            continue;
         }
         Decl d;
         if (t.starts_with("code") && trim(t.substr(4)) == "{") {
            d.kind = Kind::code;
            d.line = lineNo();
            d.code = parseCode(d.line);
         } else {
            d = parseDecl(t, lineNo());
            if (!names.insert(d.name).second) throw Error{d.line, "field " + quote(d.name) + " declared twice"};
         }
         d.comments = std::exchange(comments, {});
         e.decls.push_back(std::move(d));
      }
      throw Error{e.line, "unterminated entity block " + quote(header) + ": no line '}' closes it"};
   }

   // The lines of a `code {` block up to the '}' that balances it, less their common indentation.
   std::vector<std::string> parseCode(int start) {
      std::vector<std::string> code;
      int depth = 1;
      bool inComment = false;
      while (next_ < lines_.size()) {
         const std::string& text = lines_[next_++];
         depth += braceChange(text, inComment);
         if (depth <= 0) {
            if (depth < 0 || trim(text) != "}") {
               throw Error{lineNo(), "a code block ends with a line that is just '}', not " + quote(trim(text))};
            }
            return dedent(code);
         }
         code.push_back(text);
      }
      throw Error{start, "unterminated code block: no '}' balances 'code {'"};
   }

   static std::vector<std::string> dedent(std::vector<std::string> code) {
      std::size_t common = std::string::npos;
      for (const auto& l : code) {
         const auto first = l.find_first_not_of(" \t");
         if (first != std::string::npos && first < common) common = first;
      }
      for (auto& l : code) l = trim(l).empty() ? std::string() : l.substr(common);
      return code;
   }

   std::vector<std::string> lines_;
   std::size_t next_ = 0;
   std::vector<std::string> namespaces_;
};

// ---------------------------------------------------------------- layout

// `head` + items + `tail`, the items packed onto lines that start at `start`
// (which holds everything before the first item) and continue at
// `continuation`; whether every line fits.
std::pair<std::string, bool> pack(std::string start, const std::string& continuation,
                                  const std::vector<std::string>& items, std::string_view tail) {
   std::string text = std::move(start);
   const auto newline = text.rfind('\n');
   std::size_t lineStart = newline == std::string::npos ? 0 : newline + 1;
   bool fits = true;
   bool lineEmpty = true;
   for (std::size_t i = 0; i < items.size(); ++i) {
      const std::string piece = items[i] + (i + 1 < items.size() ? std::string(",") : std::string(tail));
      if (!lineEmpty && text.size() - lineStart + 1 + piece.size() > kColumns) {
         text += "\n";
         lineStart = text.size();
         text += continuation;
         lineEmpty = true;
      }
      if (!lineEmpty) text += ' ';
      text += piece;
      lineEmpty = false;
      if (text.size() - lineStart > kColumns) fits = false;
   }
   return {text, fits};
}

// `head` + the items separated by commas + `tail` on one line when it fits;
// else the items aligned after `head`, or on lines of their own one
// continuation deeper when even that does not fit.
std::string wrap(std::string_view indent, std::string_view head, const std::vector<std::string>& items,
                 std::string_view tail) {
   std::string line = std::string(indent) + std::string(head) + join(items, ", ") + std::string(tail);
   if (line.size() <= kColumns || items.empty()) return line;
   const std::string first = std::string(indent) + std::string(head);
   auto [aligned, fits] = pack(first, std::string(first.size(), ' '), items, tail);
   if (fits) return aligned;
   const std::string deeper = std::string(indent) + std::string(kContinuation);
   return pack(first + "\n" + deeper, deeper, items, tail).first;
}

// A function defined in place: on one line when it fits, else the body on a line of its own.
std::string function(std::string_view indent, std::string_view head, const std::vector<std::string>& params,
                     std::string_view qualifiers, std::string_view body) {
   std::string line = std::string(indent) + std::string(head) + "(" + join(params, ", ") + ")" +
                      std::string(qualifiers) + " { " + std::string(body) + " }";
   if (line.size() <= kColumns) return line;
   return wrap(indent, std::string(head) + "(", params, ")" + std::string(qualifiers) + " {") + "\n" +
          std::string(indent) + std::string(kStep) + std::string(body) + "\n" + std::string(indent) + "}";
}

std::string pass(std::string_view type) { return "Kiv::Pass<" + std::string(type) + ">"; }

bool isEntityReference(std::string_view type) { return type.starts_with("Pondo::Ptr<"); }

// How a key or argument `name` of `type` reaches a constructor: null entity
// references are refused, unless `nullable`.
std::string checked(std::string_view name, std::string_view type, bool nullable) {
   if (nullable || !isEntityReference(type)) return std::string(name);
   return "Kiv::nonNull(" + std::string(name) + ", \"" + std::string(name) + "\")";
}

// The type of the member that holds field `d`.
std::string storage(const Decl& d) {
   switch (d.kind) {
      case Kind::collection: return "Kiv::Collection<" + d.type + ", " + d.member + ">";
      case Kind::map: return "Kiv::Map<" + d.type + ", " + d.member + (d.store.empty() ? "" : ", " + d.store) + ">";
      case Kind::set: return "Kiv::Set<" + d.type + ">";
      default: return d.type;
   }
}

// ---------------------------------------------------------------- header

class HeaderWriter {
  public:
   explicit HeaderWriter(const Entity& e) : e_(e) {
      for (const auto& d : e.decls) {
         if (d.kind == Kind::key) keys_.push_back(&d);
         if (d.kind != Kind::code) fields_.push_back(&d);
      }
   }

   std::string write() {
      const std::string macro = e_.exportMacro.empty() ? "" : e_.exportMacro + " ";
      add("class " + macro + e_.name + " : public " + e_.base + " {");
      add("  public:");
      fieldIds();
      typedFields();
      constructor();
      accessors();
      add("");
      add(std::string(kStep) + "// The entity in print: its type, then every field (Kiv/Print.h).");
      add(std::string(kStep) + "std::string toString() const;");
      add("");
      add("  private:");
      members();
      add("};");
      add("");
      add("// Factory and maker of " + e_.name + ".");
      add(wrap("", macro + "Pondo::Ptr<" + e_.name + "> " + factoryName(e_.name) + "(", keyParams(true), ");"));
      add(wrap("", macro + "Pondo::Ptr<" + e_.name + "> " + e_.name + "Is(", keyParams(true), ");"));
      return out_;
   }

   static std::string factoryName(std::string name) {
      name.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(name.front())));
      return name + "Factory";
   }

   // With `defaults`, as declared: a key's default value follows it.
   std::vector<std::string> keyParams(bool defaults) const {
      std::vector<std::string> params;
      params.reserve(keys_.size());
      for (const Decl* k : keys_) {
         params.push_back(pass(k->type) + " " + k->name + (defaults && !k->init.empty() ? " = " + k->init : ""));
      }
      return params;
   }

   std::vector<std::string> keyNames() const {
      std::vector<std::string> names;
      names.reserve(keys_.size());
      for (const Decl* k : keys_) names.push_back(k->name);
      return names;
   }

   // The definition of toString(), in the generated source.
   std::string toStringDefinition() const {
      std::vector<std::string> args{"\"" + (e_.ns.empty() ? "" : e_.ns + "::") + e_.name + "\"", "F::names"};
      for (const Decl* d : fields_) args.push_back(d->name + "_");
      const std::string head = "std::string " + e_.name + "::toString() const {";
      const std::string line = head + " return Kiv::printed(" + join(args, ", ") + "); }";
      if (line.size() <= kColumns) return line + "\n";
      return head + "\n" + wrap(kStep, "return Kiv::printed(", args, ");") + "\n}\n";
   }

  private:
   void add(std::string_view text) {
      out_ += text;
      out_ += '\n';
   }

   void fieldIds() {
      const std::string in = std::string(kStep) + std::string(kStep);
      std::vector<std::string> ids;
      std::vector<std::string> quoted;
      for (const Decl* d : fields_) {
         ids.push_back(d->name);
         quoted.push_back("\"" + d->name + "\"");
      }
      add(std::string(kStep) + "struct F {");
      if (!ids.empty()) {
         const std::string enumLine = in + "enum : Kiv::FieldId { " + join(ids, ", ") + " };";
         if (enumLine.size() <= kColumns) {
            add(enumLine);
         } else {
            add(in + "enum : Kiv::FieldId {");
            for (const auto& id : ids) {
               std::string item = in;
               item.append(kStep).append(id).append(",");
               add(item);
            }
            add(in + "};");
         }
      }
      // A long list of names goes on lines of its own, as the tree's layout puts it.
      const std::string names =
          "static constexpr std::array<std::string_view, " + std::to_string(ids.size()) + "> names{";
      const std::string namesLine = in + names + join(quoted, ", ") + "};";
      if (namesLine.size() <= kColumns) {
         add(namesLine);
      } else {
         const std::string deeper = in + std::string(kContinuation);
         add(pack(in + names + "\n" + deeper, deeper, quoted, "};").first);
      }
      add(std::string(kStep) + "};");
   }

   void typedFields() {
      bool first = true;
      for (const Decl* d : fields_) {
         if (d->kind == Kind::key) continue;
         if (std::exchange(first, false)) {
            add("");
            add(std::string(kStep) + "// Typed fields, what bindings name.");
         }
         const std::string head = std::string(kStep) + "using " + d->name + "_t =";
         const std::vector<std::string> args{e_.name, storage(*d), "F::" + d->name};
         const std::string target = "Kiv::Field<" + join(args, ", ") + ">;";
         if (head.size() + 1 + target.size() <= kColumns) {
            add(std::string(head).append(" ").append(target));
         } else {
            add(head);
            add(wrap(std::string(kStep) + std::string(kContinuation), "Kiv::Field<", args, ">;"));
         }
      }
   }

   void constructor() {
      if (keys_.empty()) return;
      add("");
      std::vector<std::string> inits;
      inits.reserve(keys_.size());
      for (const Decl* k : keys_) inits.push_back(k->name + "_(" + checked(k->name, k->type, k->nullable) + ")");
      const std::string head = (keys_.size() == 1 ? "explicit " : "") + e_.name + "(";
      const std::string line =
          std::string(kStep) + head + join(keyParams(true), ", ") + ") : " + join(inits, ", ") + " {}";
      if (line.size() <= kColumns) {
         add(line);
      } else {
         add(wrap(kStep, head, keyParams(true), ")"));
         add(wrap(std::string(kStep) + std::string(kContinuation), ": ", inits, " {}"));
      }
      if (keys_.size() > 1) {
         std::vector<std::string> fixed;
         for (std::size_t i = 1; i < keys_.size(); ++i) fixed.push_back(keys_[i]->name + "_");
         add(std::string(kStep) + "// The arguments that must match when the member is asked for again.");
         add(function(kStep, "auto fixedArgs", {}, " const", "return std::make_tuple(" + join(fixed, ", ") + ");"));
      }
   }

   void accessors() {
      const Decl* previous = nullptr;
      for (const auto& d : e_.decls) {
         const bool grouped = d.kind == Kind::key || d.kind == Kind::attr;
         if (!previous || previous->kind != d.kind || !grouped) add("");
         previous = &d;
         for (const auto& c : d.comments) add(std::string(kStep) + c);
         accessorsOf(d);
      }
   }

   void accessorsOf(const Decl& d) {
      const std::string& n = d.name;
      const std::string key = pass(d.type) + " k";
      auto fn = [this](std::string_view head, const std::vector<std::string>& params, std::string_view qualifiers,
                       std::string_view body) { add(function(kStep, head, params, qualifiers, body)); };
      switch (d.kind) {
         case Kind::key: fn(pass(d.type) + " " + n, {}, " const", "return " + n + "_;"); break;
         case Kind::attr:
            fn(pass(d.type) + " " + n, {}, " const", "return " + n + "_;");
            fn("void " + n + "Is", {pass(d.type) + " v"}, "", "set(" + n + "_, v, F::" + n + ");");
            break;
         case Kind::collection: {
            std::vector<std::string> params{key};
            std::vector<std::string> args{"k"};
            for (const auto& a : d.args) {
               params.push_back(pass(a.type) + " " + a.name);
               args.push_back(checked(a.name, a.type, a.nullable));
            }
            fn("const " + d.member + "* " + n, {key}, " const", "return " + n + "_.find(k);");
            fn(d.member + "* " + n, {key}, "", "return " + n + "_.find(k);");
            fn("const " + storage(d) + "& " + n, {}, " const", "return " + n + "_;");
            fn("Pondo::Ptr<" + d.member + "> " + n + "Is", params, "",
               "return " + n + "_.is(" + join(args, ", ") + ");");
            fn("Pondo::Ptr<" + d.member + "> " + n + "Del", {key}, "", "return " + n + "_.del(k);");
            fn("void " + n + "DelAll", {}, "", n + "_.delAll();");
            break;
         }
         case Kind::map:
            fn("const " + d.member + "* " + n, {key}, " const", "return " + n + "_.find(k);");
            fn("const " + storage(d) + "& " + n, {}, " const", "return " + n + "_;");
            fn("void " + n + "Is", {key, pass(d.member) + " v"}, "", n + "_.is(k, v);");
            fn("bool " + n + "Del", {key}, "", "return " + n + "_.del(k);");
            fn("void " + n + "DelAll", {}, "", n + "_.delAll();");
            break;
         case Kind::set:
            fn("bool " + n, {key}, " const", "return " + n + "_.contains(k);");
            fn("const " + storage(d) + "& " + n, {}, " const", "return " + n + "_;");
            fn("void " + n + "Is", {key}, "", n + "_.is(k);");
            fn("bool " + n + "Del", {key}, "", "return " + n + "_.del(k);");
            fn("void " + n + "DelAll", {}, "", n + "_.delAll();");
            break;
         case Kind::code:
            for (const auto& line : d.code) add(line.empty() ? line : std::string(kStep) + line);
            break;
      }
   }

   void members() {
      for (const Decl* d : fields_) {
         const std::string head = std::string(kStep) + storage(*d) + " " + d->name + "_";
         if (d->kind == Kind::key) {
            add(head + ";");
         } else if (d->kind == Kind::attr) {
            add(d->init.empty() ? head + "{};" : head + " = " + d->init + ";");
         } else {
            add(wrap("", head + "{", {"this", "F::" + d->name, "\"" + d->name + "\""}, "};"));
         }
      }
   }

   const Entity& e_;
   std::vector<const Decl*> keys_;
   std::vector<const Decl*> fields_;
   std::string out_;
};

std::string banner(const std::filesystem::path& input) {
   return "// Generated by kivgen from " + input.filename().string() + "; edit that file, not this one.\n";
}

std::string header(const Description& description, const std::filesystem::path& input) {
   std::string out = banner(input);
   for (const auto& piece : description.pieces) {
      out += piece.entity ? HeaderWriter(description.entities[*piece.entity]).write() : piece.text + "\n";
   }
   return out;
}

// ---------------------------------------------------------------- source

std::string source(const Description& description, const std::filesystem::path& input, std::string_view includePath) {
   std::string out = banner(input) + "#include \"" + std::string(includePath) + "\"\n\n#include \"Kiv/Print.h\"\n";
   std::optional<std::string> open;  // the namespace being written
   auto close = [&] {
      if (open && !open->empty()) out += "\n}  // namespace " + *open + "\n";
      open.reset();
   };
   for (const auto& e : description.entities) {
      if (open != e.ns) {
         close();
         out += "\n";
         if (!e.ns.empty()) out += "namespace " + e.ns + " {\n\n";
         open = e.ns;
      } else {
         out += "\n";
      }
      HeaderWriter writer(e);
      const std::string made = "return Kiv::make<" + e.name + ">(" + join(writer.keyNames(), ", ") + ");";
      const std::string result = "Pondo::Ptr<" + e.name + "> ";
      out += function("", result + HeaderWriter::factoryName(e.name), writer.keyParams(false), "", made) + "\n";
      out += function("", result + e.name + "Is", writer.keyParams(false), "", made) + "\n";
      out += "\n" + writer.toStringDefinition();
   }
   close();
   return out;
}

// ---------------------------------------------------------------- files

std::vector<std::string> readLines(const std::filesystem::path& path) {
   std::ifstream in(path, std::ios::binary);
   if (!in) throw Error{0, "cannot read the file"};
   std::vector<std::string> lines;
   for (std::string line; std::getline(in, line);) {
      if (line.ends_with('\r')) line.pop_back();
      lines.push_back(std::move(line));
   }
   if (in.bad()) throw Error{0, "cannot read the file"};
   return lines;
}

// Writes `content` unless the file already holds it; through a temporary
// file, so that an interrupted run leaves no half-written output.
void writeIfChanged(const std::filesystem::path& path, const std::string& content) {
   {
      std::ifstream in(path, std::ios::binary);
      if (in && std::string(std::istreambuf_iterator<char>(in), {}) == content) return;
   }
   std::error_code ec;
   if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path(), ec);
   auto temporary = path;
   temporary += ".tmp";
   {
      std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
      out << content;
      if (!out.flush()) throw Error{0, "cannot write the file"};
   }
   std::filesystem::rename(temporary, path, ec);
   if (ec) {
      std::filesystem::remove(temporary, ec);
      throw Error{0, "cannot write the file"};
   }
}

void fail(const std::filesystem::path& file, const Error& error) {
   std::cerr << file.string() << ":" << error.line << ": error: " << error.what << "\n";
}

}  // namespace

int main(int argc, char** argv) {
   if (argc != 5) {
      std::cerr
          << "usage: kivgen <input.kiv> <output.h> <output.cpp> <include path of the header, e.g. Ptp/HwConfig.h>\n";
      return 1;
   }
   const std::filesystem::path input = argv[1];
   const std::filesystem::path headerPath = argv[2];
   const std::filesystem::path sourcePath = argv[3];
   std::string headerText;
   std::string sourceText;
   try {
      const Description description = Parser(readLines(input)).parse();
      headerText = header(description, input);
      sourceText = source(description, input, argv[4]);
   } catch (const Error& error) {
      fail(input, error);
      return 1;
   }
   auto write = [](const std::filesystem::path& path, const std::string& text) {
      try {
         writeIfChanged(path, text);
         return true;
      } catch (const Error& error) {
         fail(path, error);
         return false;
      }
   };
   return write(headerPath, headerText) && write(sourcePath, sourceText) ? 0 : 1;
}
