#include "TextReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <vector>

namespace Sim {

namespace {

// How a value reads in a table: whole numbers without decimals, others with three.
std::string cell(const Json& v) {
   if (v.isNull()) return "-";
   if (v.isBool()) return v.boolean() ? "yes" : "no";
   if (v.isString()) return v.string();
   if (v.isNumber()) {
      const double d = v.number();
      if (d == std::floor(d) && std::fabs(d) < 1e15) return fmt::format("{}", static_cast<long long>(d));
      return fmt::format("{:.3f}", d);
   }
   return "";
}

bool isScalar(const Json& v) { return !v.isArray() && !v.isObject(); }

bool allObjects(const Json& v) {
   if (!v.isObject() || v.members().empty()) return false;
   return std::all_of(v.members().begin(), v.members().end(), [](auto& m) { return m.second.isObject(); });
}

// The scalars of an object as "key value; key value".
std::string scalarLine(const Json& o) {
   std::vector<std::string> parts;
   for (const auto& [k, v] : o.members()) {
      if (isScalar(v)) parts.push_back(k + " " + cell(v));
   }
   return fmt::format("{}", fmt::join(parts, "; "));
}

// A table whose columns are the leaves of its rows (nested objects give
// grouped columns, headed by the group's name above the leaves' names;
// arrays are series for charts and left out), with full-width lines between rows.
class Table {
  public:
   void row(const std::string& label, const Json& values) {
      Row r{label, {}};
      leaves(values, "", "", r);
      rows_.push_back(std::move(r));
   }
   void line(std::string text) { rows_.push_back(Row{std::move(text), {}, true}); }
   bool empty() const { return rows_.empty(); }

   std::string render(const std::string& indent) const {
      // "attention" goes last: it is prose.
      std::vector<std::size_t> order(columns_.size());
      for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
      std::stable_partition(order.begin(), order.end(), [&](std::size_t c) { return columns_[c].leaf != "attention"; });
      std::size_t labelWidth = 0;
      for (const Row& r : rows_) {
         if (!r.isLine) labelWidth = std::max(labelWidth, r.label.size());
      }
      std::vector<std::size_t> width(columns_.size());
      std::vector<bool> numeric(columns_.size(), true);
      for (std::size_t c = 0; c < columns_.size(); ++c) {
         width[c] = columns_[c].leaf.size();
         for (const Row& r : rows_) {
            auto it = r.cells.find(c);
            if (it == r.cells.end()) continue;
            width[c] = std::max(width[c], it->second.text.size());
            numeric[c] = numeric[c] && it->second.numeric;
         }
      }
      // A group's name must fit above its columns: the last one takes the rest.
      for (std::size_t i = 0; i < order.size();) {
         std::size_t j = i, span = 0;
         for (; j < order.size() && columns_[order[j]].group == columns_[order[i]].group; ++j)
            span += width[order[j]] + 2;
         if (!columns_[order[i]].group.empty() && span - 2 < columns_[order[i]].group.size()) {
            width[order[j - 1]] += columns_[order[i]].group.size() - (span - 2);
         }
         i = j;
      }
      auto format = [&](const std::string& label, auto text) {
         std::string s = indent + fmt::format("{:<{}}", label, labelWidth);
         for (std::size_t c : order) {
            const std::string t = text(c);
            s += "  " + (numeric[c] ? fmt::format("{:>{}}", t, width[c]) : fmt::format("{:<{}}", t, width[c]));
         }
         while (!s.empty() && s.back() == ' ') s.pop_back();
         return s + "\n";
      };
      std::string out;
      const bool grouped = std::any_of(columns_.begin(), columns_.end(), [](auto& c) { return !c.group.empty(); });
      if (grouped) {
         // Group names start at their first column and span the group's columns.
         std::string s = indent + std::string(labelWidth, ' ');
         for (std::size_t i = 0; i < order.size();) {
            std::size_t j = i, span = 0;
            for (; j < order.size() && columns_[order[j]].group == columns_[order[i]].group; ++j)
               span += width[order[j]] + 2;
            s += "  " + fmt::format("{:<{}}", columns_[order[i]].group, span - 2);
            i = j;
         }
         while (!s.empty() && s.back() == ' ') s.pop_back();
         out += s + "\n";
      }
      out += format("", [&](std::size_t c) { return columns_[c].leaf; });
      for (const Row& r : rows_) {
         if (r.isLine) {
            out += indent + r.label + "\n";
            continue;
         }
         out += format(r.label, [&](std::size_t c) {
            auto it = r.cells.find(c);
            return it == r.cells.end() ? std::string() : it->second.text;
         });
      }
      return out;
   }

  private:
   struct Column {
      std::string group, leaf;
   };
   struct Cell {
      std::string text;
      bool numeric;
   };
   struct Row {
      std::string label;
      std::map<std::size_t, Cell> cells;
      bool isLine = false;
   };

   void leaves(const Json& v, const std::string& group, const std::string& leaf, Row& r) {
      if (v.isArray()) return;
      if (v.isObject()) {
         for (const auto& [k, m] : v.members()) leaves(m, group.empty() && !leaf.empty() ? leaf : group, k, r);
         return;
      }
      r.cells[column(group, leaf)] = Cell{cell(v), v.isNumber() || v.isNull()};
   }
   std::size_t column(const std::string& group, const std::string& leaf) {
      for (std::size_t i = 0; i < columns_.size(); ++i) {
         if (columns_[i].group == group && columns_[i].leaf == leaf) return i;
      }
      // A new column joins the others of its group.
      auto it = std::find_if(columns_.rbegin(), columns_.rend(), [&](auto& c) { return c.group == group; });
      if (group.empty() || it == columns_.rend()) {
         columns_.push_back({group, leaf});
         return columns_.size() - 1;
      }
      const std::size_t at = std::size_t(columns_.rend() - it);
      columns_.insert(columns_.begin() + std::ptrdiff_t(at), {group, leaf});
      for (Row& r : rows_) {
         std::map<std::size_t, Cell> shifted;
         for (auto& [c, v] : r.cells) shifted[c >= at ? c + 1 : c] = v;
         r.cells.swap(shifted);
      }
      return at;
   }

   std::vector<Column> columns_;
   std::vector<Row> rows_;
};

// A list of scalars, shortened when long.
std::string listLine(const Json& a) {
   constexpr std::size_t kShown = 12;
   std::vector<std::string> items;
   for (const Json& v : a.items()) {
      if (items.size() == kShown) break;
      items.push_back(cell(v));
   }
   if (items.empty()) return "none";
   std::string s = fmt::format("{}", fmt::join(items, ", "));
   if (a.items().size() > kShown) s += fmt::format(", ... ({} in all)", a.items().size());
   return s;
}

std::size_t interfaceCount(const Json& chips) {
   std::size_t n = 0;
   for (const auto& [k, chip] : chips.members()) {
      if (const Json* intfs = chip.find("interfaces"); intfs && intfs->isObject()) n += intfs->members().size();
   }
   return n;
}

// `chips`: per chip a heading with its scalars, its interfaces (or only the
// unusual ones) and its total; a chip without interfaces is one row; then the chassis total.
void chipsTable(const Json& chips, const Json* chassisTotal, std::size_t screenful, Table& t) {
   const bool filter = interfaceCount(chips) > screenful;
   for (const auto& [fap, chip] : chips.members()) {
      const Json* intfs = chip.find("interfaces");
      if (!intfs || !intfs->isObject()) {
         t.row("chip " + fap, chip);
         continue;
      }
      const std::string scalars = scalarLine(chip);
      t.line("chip " + fap + (scalars.empty() ? "" : " (" + scalars + ")"));
      std::size_t others = 0;
      for (const auto& [name, intf] : intfs->members()) {
         if (filter && !intf.find("attention")) {
            ++others;
            continue;
         }
         t.row(name, intf);
      }
      if (others) t.line(fmt::format("  ({} other interfaces with nothing unusual)", others));
      if (const Json* total = chip.find("total")) t.row("chip " + fap + " total", *total);
   }
   if (chassisTotal) t.row("chassis total", *chassisTotal);
}

std::string moduleText(const std::string& name, const Json& m, std::size_t screenful) {
   std::string out = name + ":";
   const std::string scalars = scalarLine(m);
   out += scalars.empty() ? "\n" : " " + scalars + "\n";
   const Json* chips = m.find("chips");
   for (const auto& [k, v] : m.members()) {
      if (isScalar(v) || (k == "total" && chips)) continue;
      Table t;
      if (k == "chips" && allObjects(v)) {
         chipsTable(v, m.find("total"), screenful, t);
      } else if (allObjects(v)) {
         for (const auto& [rk, row] : v.members()) t.row(rk, row);
      } else if (v.isArray() && !v.items().empty() && v.items().front().isObject()) {
         std::size_t i = 0;
         for (const Json& row : v.items()) {
            if (++i > screenful) {
               t.line(fmt::format("  ... ({} in all)", v.items().size()));
               break;
            }
            t.row(std::to_string(i), row);
         }
      } else if (v.isArray()) {
         out += fmt::format("  {}: {}\n", k, listLine(v));
         continue;
      } else {
         out += fmt::format("  {}: {}\n", k, scalarLine(v));
         continue;
      }
      out += "  " + k + ":\n" + t.render("    ");
   }
   return out;
}

}  // namespace

std::string textReport(const Json& doc, std::size_t screenful) {
   std::string out;
   if (const Json* modules = doc.find("modules")) {
      for (const auto& [name, m] : modules->members()) out += moduleText(name, m, screenful);
   }
   return out;
}

}  // namespace Sim
