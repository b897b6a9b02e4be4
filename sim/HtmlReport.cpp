#include "HtmlReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <vector>

#include "TextReport.h"

namespace Sim {

namespace {

// Chart geometry (px): a label column, then the run's time across the plot.
constexpr double kLabel = 150, kPlot = 800, kRow = 16, kAxis = 24;
constexpr double kWidth = kLabel + kPlot + 20;

// Colours, picked to stay apart for readers with a red-green deficiency too.
constexpr const char* kGood = "#2b8a3e";
constexpr const char* kBad = "#d6336c";
constexpr const char* kNeutral = "#ced4da";

const Json::Array kNoItems;
const Json::Object kNoMembers;

std::string esc(const std::string& s) {
   std::string out;
   for (char c : s) {
      switch (c) {
         case '<': out += "&lt;"; break;
         case '>': out += "&gt;"; break;
         case '&': out += "&amp;"; break;
         case '"': out += "&quot;"; break;
         default: out += c;
      }
   }
   return out;
}

const Json* path(const Json& j, std::initializer_list<const char*> keys) {
   const Json* at = &j;
   for (const char* k : keys) {
      if (!at->isObject() || !(at = at->find(k))) return nullptr;
   }
   return at;
}
double num(const Json* j, double fallback = 0) { return j && j->isNumber() ? j->number() : fallback; }

// The time axis under a chart, with about eight round ticks.
std::string axis(double y, double duration) {
   const double raw = duration / 8, mag = std::pow(10, std::floor(std::log10(raw)));
   const double step = raw / mag < 2 ? mag : raw / mag < 5 ? 2 * mag : 5 * mag;
   std::string s = fmt::format(R"(<line x1="{}" y1="{}" x2="{}" y2="{}" class="axis"/>)", kLabel, y, kLabel + kPlot, y);
   for (double t = 0; t <= duration + 1e-9; t += step) {
      const double x = kLabel + kPlot * t / duration;
      s += fmt::format(
          R"(<line x1="{0}" y1="{1}" x2="{0}" y2="{2}" class="axis"/><text x="{0}" y="{3}" class="tick">{4:g} s</text>)",
          x, y, y + 4, y + 15, t);
   }
   return s;
}

std::string svg(double height, const std::string& body, const std::string& label) {
   return fmt::format(
       R"(<svg xmlns="http://www.w3.org/2000/svg" width="{0}" height="{1}" viewBox="0 0 {0} {1}" role="img" aria-label="{2}">{3}</svg>)",
       kWidth, height, esc(label), body);
}

std::string legend(const std::vector<std::pair<std::string, std::string>>& items) {
   std::string s = R"(<div class="legend">)";
   for (const auto& [colour, text] : items) {
      s += fmt::format(R"(<span><i style="background:{}"></i>{}</span>)", colour, esc(text));
   }
   return s + "</div>";
}

// Readiness of one interface at time t from its changes ([when, ready], ...); not ready before the first.
bool readyAt(const Json* history, double t) {
   bool ready = false;
   if (!history || !history->isArray()) return false;
   for (const Json& change : history->items()) {
      if (change.items()[0].number() > t) break;
      ready = change.items()[1].boolean();
   }
   return ready;
}

// A colour from bad (0) to good (1) through amber.
std::string shade(double fraction) {
   static constexpr std::array<std::array<int, 3>, 3> stops{{{214, 51, 108}, {245, 159, 0}, {43, 138, 62}}};
   const double x = std::clamp(fraction, 0.0, 1.0) * 2;
   const auto i = std::min<std::size_t>(1, std::size_t(x));
   const double f = x - double(i);
   auto mix = [&](int k) { return int(std::lround(stops[i][k] + (stops[i + 1][k] - stops[i][k]) * f)); };
   return fmt::format("rgb({},{},{})", mix(0), mix(1), mix(2));
}

class Page {
  public:
   explicit Page(const Json& doc) : doc_(doc) {
      duration_ = std::max(1e-9, num(path(doc, {"scenario", "duration"}), 1));
      modules_ = path(doc, {"modules"});
   }

   std::string render() {
      const std::string name = esc(path(doc_, {"scenario", "name"}) ? path(doc_, {"scenario", "name"})->string() : "");
      std::string body = fmt::format("<h1>{}</h1>", name);
      body += overview();
      body += timeline();
      body += readiness();
      body += delays();
      body += losses();
      body += widenings();
      body += attention();
      body += fmt::format(
          R"(<h2 id="text">Summary as text</h2><details><summary>every module's numbers</summary><pre>{}</pre></details>)",
          esc(textReport(doc_)));
      return fmt::format(R"(<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8"><title>{0} - run report</title>
<style>{1}</style></head>
<body><nav><a href="#timeline">Timeline</a><a href="#readiness">Readiness</a><a href="#delays">Delays</a><a href="#losses">Losses</a><a href="#widenings">Widenings</a><a href="#attention">Needs attention</a><a href="#text">Text</a>
<button id="expand" type="button">Expand all</button></nav>
<main>{2}</main>
<script>{3}</script></body></html>
)",
                         name, kStyle, body, kScript);
   }

  private:
   static constexpr const char* kStyle = R"(
body{font:14px/1.4 system-ui,sans-serif;margin:0;color:#212529;background:#f8f9fa}
main{max-width:1000px;margin:0 auto;padding:8px 24px 48px;background:#fff}
nav{position:sticky;top:0;background:#343a40;padding:6px 24px;z-index:1}
nav a{color:#fff;margin-right:16px;text-decoration:none}
nav button{float:right}
h1{margin:16px 0 4px} h2{margin-top:32px;border-bottom:1px solid #dee2e6}
.figures{display:flex;gap:12px;flex-wrap:wrap}
.figures div{border:1px solid #dee2e6;border-radius:6px;padding:6px 12px;min-width:110px}
.figures b{display:block;font-size:20px}
.legend{margin:4px 0 8px} .legend span{margin-right:14px;white-space:nowrap}
.legend i{display:inline-block;width:12px;height:12px;margin-right:4px;vertical-align:-1px;border:1px solid #adb5bd}
svg text{font:11px system-ui,sans-serif;fill:#212529} .tick{text-anchor:middle;fill:#495057}
.axis{stroke:#868e96} .label{text-anchor:end}
table{border-collapse:collapse;margin:6px 0} td,th{padding:2px 8px;border-bottom:1px solid #e9ecef;text-align:left}
td.n{text-align:right;font-variant-numeric:tabular-nums}
details{margin:4px 0} summary{cursor:pointer;color:#1c7ed6}
pre{font:12px monospace;overflow-x:auto}
.note{color:#495057}
)";
   static constexpr const char* kScript = R"(
window.addEventListener('error', function (e) { document.body.dataset.scriptError = e.message; });
document.getElementById('expand').addEventListener('click', function () {
  var open = this.textContent === 'Expand all';
  document.querySelectorAll('details').forEach(function (d) { d.open = open; });
  this.textContent = open ? 'Collapse all' : 'Expand all';
});
document.body.dataset.scriptRan = 'yes';
)";

   const Json* module(const char* name) const { return modules_ ? modules_->find(name) : nullptr; }
   double x(double t) const { return kLabel + kPlot * std::clamp(t / duration_, 0.0, 1.0); }

   std::string overview() {
      std::string s = fmt::format(
          R"(<p class="note">{} &middot; {:g} s simulated &middot; {:g} loop events</p><div class="figures">)",
          esc(path(doc_, {"scenario", "origin"}) ? path(doc_, {"scenario", "origin"})->string() : ""),
          num(path(doc_, {"run", "simulated"})), num(path(doc_, {"run", "loopEvents"})));
      auto figure = [&](const std::string& what, const std::string& value) {
         s += fmt::format("<div>{}<b>{}</b></div>", esc(what), esc(value));
      };
      if (const Json* chips = path(doc_, {"modules", "platform", "chips"})) {
         double intfs = 0;
         for (const auto& [k, c] : chips->members()) intfs += num(c.find("interfaces"));
         figure("chips / interfaces", fmt::format("{} / {:g}", chips->members().size(), intfs));
      }
      if (const Json* t = path(doc_, {"modules", "readiness", "total"})) {
         figure("ready at the end",
                fmt::format("{:g} of {:g}", num(t->find("ready")), num(t->find("ready")) + num(t->find("notReady"))));
      }
      if (const Json* t = path(doc_, {"modules", "egress-collection", "total"})) {
         figure("timestamps published", fmt::format("{:g} of {:g}", num(t->find("published")), num(t->find("sent"))));
         figure("wrong widenings", fmt::format("{:g}", num(t->find("wrong"))));
      }
      return s + "</div>";
   }

   // Events in one lane per kind along the run's time.
   std::string timeline() {
      const Json* events = path(doc_, {"scenario", "timeline"});
      if (!events || events->items().empty()) return R"(<h2 id="timeline">Timeline</h2><p>No events.</p>)";
      std::vector<std::string> kinds;
      for (const Json& e : events->items()) {
         if (std::find(kinds.begin(), kinds.end(), e.find("kind")->string()) == kinds.end())
            kinds.push_back(e.find("kind")->string());
      }
      std::string body, rows;
      for (std::size_t k = 0; k < kinds.size(); ++k) {
         const double y = double(k) * kRow;
         body += fmt::format(
             R"(<rect x="{}" y="{}" width="{}" height="{}" fill="{}"/><text x="{}" y="{}" class="label">{}</text>)",
             kLabel, y, kPlot, kRow, k % 2 ? "#fff" : "#f1f3f5", kLabel - 6, y + 12, esc(kinds[k]));
      }
      for (const Json& e : events->items()) {
         const std::string& kind = e.find("kind")->string();
         const auto lane = double(std::find(kinds.begin(), kinds.end(), kind) - kinds.begin());
         const std::string what = fmt::format("{:g} s {} {} (line {:g})", e.find("at")->number(), kind,
                                              e.find("body")->string(), e.find("line")->number());
         body +=
             fmt::format(R"(<circle cx="{}" cy="{}" r="4.5" fill="#1c7ed6" stroke="#fff"><title>{}</title></circle>)",
                         x(e.find("at")->number()), lane * kRow + kRow / 2, esc(what));
         rows +=
             fmt::format(R"(<tr><td class="n">{:g}</td><td>{}</td><td>{}</td><td class="n">{:g}</td></tr>)",
                         e.find("at")->number(), esc(kind), esc(e.find("body")->string()), e.find("line")->number());
      }
      const double h = double(kinds.size()) * kRow;
      body += axis(h, duration_);
      return R"(<h2 id="timeline">Timeline</h2>)" + svg(h + kAxis, body, "timeline of the scenario's events") +
             "<details><summary>every event</summary><table><tr><th>at "
             "(s)</th><th>event</th><th>settings</th><th>line</th></tr>" +
             rows + "</table></details>";
   }

   // One strip per chip: the share of its interfaces ready over time; per interface, ready spans and PHY timestamping.
   std::string readiness() {
      std::string s = R"(<h2 id="readiness">Readiness over time and timestamp location</h2>)";
      const Json* chips = path(doc_, {"modules", "readiness", "chips"});
      if (!chips) return s + "<p>No programmers in this scenario, so no readiness.</p>";
      const Json* egress = path(doc_, {"modules", "egress-collection", "chips"});
      constexpr int kBuckets = 200;
      std::string body, drill;
      double y = 0;
      for (const auto& [fap, chip] : chips->members()) {
         const Json& intfs = *chip.find("interfaces");
         for (int b = 0; b < kBuckets; ++b) {
            const double t = duration_ * (b + 0.5) / kBuckets;
            double ready = 0;
            for (const auto& [name, intf] : intfs.members())
               ready += readyAt(path(intf, {"readinessAggregator", "history"}), t);
            const double share = intfs.members().empty() ? 0 : ready / double(intfs.members().size());
            body += fmt::format(R"(<rect x="{:.2f}" y="{}" width="{:.2f}" height="{}" fill="{}"/>)",
                                x(duration_ * b / kBuckets), y, kPlot / kBuckets + 0.3, kRow - 2,
                                shade(share < 1 ? 0.75 * share : 1));
         }
         body += fmt::format(R"(<text x="{}" y="{}" class="label">chip {}</text>)", kLabel - 6, y + 11, esc(fap));
         y += kRow;
         drill += chipDrill(fap, intfs, egress ? path(*egress, {fap.c_str(), "interfaces"}) : nullptr);
      }
      body += axis(y, duration_);
      s += svg(y + kAxis, body, "share of each chip's interfaces ready over time");
      s += legend({{shade(0), "no interface ready"},
                   {shade(0.375), "half ready"},
                   {shade(0.74), "all but a few ready"},
                   {shade(1), "all ready"}});
      s += R"(<p class="note">Per interface (click a chip): ready spans, and where it is timestamped.</p>)" + drill;
      s += locationTable(egress);
      return s;
   }

   std::string chipDrill(const std::string& fap, const Json& intfs, const Json* egress) {
      std::string body;
      double y = 0;
      for (const auto& [name, intf] : intfs.members()) {
         const Json* history = path(intf, {"readinessAggregator", "history"});
         body += fmt::format(R"(<rect x="{}" y="{}" width="{}" height="{}" fill="{}"/>)", kLabel, y + 2, kPlot,
                             kRow - 6, kBad);
         const auto& changes = history ? history->items() : kNoItems;
         for (std::size_t i = 0; i < changes.size(); ++i) {
            if (!changes[i].items()[1].boolean()) continue;
            const double from = changes[i].items()[0].number();
            const double to = i + 1 < changes.size() ? changes[i + 1].items()[0].number() : duration_;
            body += fmt::format(
                R"(<rect x="{:.2f}" y="{}" width="{:.2f}" height="{}" fill="{}"><title>{} ready {:g} to {:g} s</title></rect>)",
                x(from), y + 2, std::max(0.5, x(to) - x(from)), kRow - 6, kGood, esc(name), from, to);
         }
         // Timestamped at the PHY: a band along the strip's foot.
         const Json* location = egress && egress->find(name) ? path(*egress->find(name), {"locationHistory"}) : nullptr;
         const auto& moves = location ? location->items() : kNoItems;
         for (std::size_t i = 0; i < moves.size(); ++i) {
            if (moves[i].items()[1].string() != "externalPhy") continue;
            const double from = moves[i].items()[0].number();
            const double to = i + 1 < moves.size() ? moves[i + 1].items()[0].number() : duration_;
            body += fmt::format(
                R"(<rect x="{:.2f}" y="{}" width="{:.2f}" height="3" fill="#7048e8"><title>{} timestamped at its PHY {:g} to {:g} s</title></rect>)",
                x(from), y + kRow - 4, std::max(0.5, x(to) - x(from)), esc(name), from, to);
         }
         body += fmt::format(R"(<text x="{}" y="{}" class="label">{}</text>)", kLabel - 6, y + 11, esc(name));
         y += kRow;
      }
      body += axis(y, duration_);
      return fmt::format("<details><summary>chip {} ({} interfaces)</summary>{}{}</details>", esc(fap),
                         intfs.members().size(), svg(y + kAxis, body, "readiness of chip " + fap + "'s interfaces"),
                         legend({{kGood, "ready"}, {kBad, "not ready"}, {"#7048e8", "timestamped at its PHY"}}));
   }

   std::string locationTable(const Json* egress) {
      if (!egress) return "";
      std::string rows;
      std::size_t atChip = 0;
      for (const auto& [fap, chip] : egress->members()) {
         std::vector<std::string> phy;
         for (const auto& [name, intf] : chip.find("interfaces")->members()) {
            if (intf.find("location")->string() == "externalPhy") phy.push_back(name);
         }
         if (phy.empty()) {
            ++atChip;
            continue;
         }
         rows += fmt::format(R"(<tr><td>chip {}</td><td class="n">{}</td><td class="n">{}</td><td>{}</td></tr>)",
                             esc(fap), chip.find("interfaces")->members().size() - phy.size(), phy.size(),
                             esc(fmt::format("{}", fmt::join(phy, ", "))));
      }
      return fmt::format(
                 "<h3>Timestamp location at the end</h3><p>{} chips timestamp all their interfaces themselves.</p>",
                 atChip) +
             (rows.empty() ? ""
                           : "<table><tr><th>chip</th><th>at the chip</th><th>at the PHY</th><th>interfaces at the "
                             "PHY</th></tr>" +
                                 rows + "</table>");
   }

   // Per chip the share of its published messages in each delay bucket, and the chassis's counts.
   std::string delays() {
      std::string s = R"(<h2 id="delays">Latch-to-publish delay</h2>)";
      const Json* m = module("egress-collection");
      const Json* edges = m ? m->find("delayHistogramEdgesMs") : nullptr;
      if (!edges) return s + "<p>No egress collection in this scenario.</p>";
      std::vector<std::string> labels;
      const auto& e = edges->items();
      labels.push_back(fmt::format("&lt; {:g}", e.front().number()));
      for (std::size_t i = 1; i < e.size(); ++i)
         labels.push_back(fmt::format("{:g}-{:g}", e[i - 1].number(), e[i].number()));
      labels.push_back(fmt::format("&#8805; {:g}", e.back().number()));
      const double cell = kPlot / double(labels.size());
      std::string body;
      double y = 0;
      auto row = [&](const std::string& label, const Json& counts) {
         double total = 0;
         for (const Json& c : counts.items()) total += c.number();
         for (std::size_t i = 0; i < counts.items().size(); ++i) {
            const double n = counts.items()[i].number(), share = total > 0 ? n / total : 0;
            body += fmt::format(
                R"svg(<rect x="{:.1f}" y="{}" width="{:.1f}" height="{}" fill="rgba(28,126,214,{:.3f})" stroke="#e9ecef"><title>{}: {:g} messages ({:.1f}%) {} ms</title></rect>)svg",
                kLabel + cell * double(i), y, cell, kRow, n > 0 ? 0.12 + 0.88 * share : 0, esc(label), n, share * 100,
                labels[i]);
            if (n > 0) {
               body += fmt::format(R"(<text x="{:.1f}" y="{}" class="tick" style="fill:{}">{:g}</text>)",
                                   kLabel + cell * (double(i) + 0.5), y + 12, share > 0.5 ? "#fff" : "#212529", n);
            }
         }
         body += fmt::format(R"(<text x="{}" y="{}" class="label">{}</text>)", kLabel - 6, y + 12, esc(label));
         y += kRow;
      };
      for (const auto& [fap, chip] : m->find("chips")->members())
         row("chip " + fap, *path(chip, {"total", "delayHistogram"}));
      row("chassis", *path(*m, {"total", "delayHistogram"}));
      for (std::size_t i = 0; i < labels.size(); ++i) {
         body += fmt::format(R"(<text x="{:.1f}" y="{}" class="tick">{}</text>)", kLabel + cell * (double(i) + 0.5),
                             y + 14, labels[i]);
      }
      body += fmt::format(R"(<text x="{}" y="{}" class="tick">milliseconds from latch to publication</text>)",
                          kLabel + kPlot / 2, y + 30);
      s += svg(y + 36, body, "latch-to-publish delay per chip");
      s +=
          R"(<p class="note">Each cell: messages published with that delay; darker is a larger share of the chip's messages.</p>)";
      s += interfaceTables(*m, {"delayMs"}, "delays per interface (ms)");
      return s;
   }

   // Messages per chip by what became of them, as shares of those sent.
   std::string losses() {
      std::string s = R"(<h2 id="losses">Loss accounting</h2>)";
      const Json* m = module("egress-collection");
      if (!m || !m->find("chips")) return s + "<p>No egress collection in this scenario.</p>";
      struct Reason {
         const char* key;
         const char* colour;
         const char* text;
      };
      static constexpr std::array<Reason, 8> kReasons{{{"published", kGood, "published"},
                                                       {"notReady", "#74c0fc", "not ready (time source)"},
                                                       {"drained", kNeutral, "drained at start of polling"},
                                                       {"overwritten", "#f59f00", "overwritten in the chip"},
                                                       {"noTime", "#868e96", "published without time"},
                                                       {"badSource", "#9c36b5", "bad source"},
                                                       {"wrong", kBad, "wrong from a sound time"},
                                                       {"inChip", "#e9ecef", "still in the chip"}}};
      auto count = [](const Json& t, const char* key) {
         const Json* v = t.find(key);
         if (!v) v = path(t, {"lost", key});
         return num(v);
      };
      std::string body;
      double y = 0;
      auto bar = [&](const std::string& label, const Json& t) {
         const double sent = num(t.find("sent"));
         double at = kLabel;
         for (const Reason& r : kReasons) {
            const double n = count(t, r.key), w = sent > 0 ? kPlot * n / sent : 0;
            if (n <= 0) continue;
            body += fmt::format(
                R"(<rect x="{:.2f}" y="{}" width="{:.2f}" height="{}" fill="{}"><title>{}: {:g} {} ({:.2f}%)</title></rect>)",
                at, y + 1, std::max(w, 1.0), kRow - 3, r.colour, esc(label), n, r.text, 100 * n / sent);
            at += w;
         }
         body +=
             fmt::format(R"(<text x="{}" y="{}" class="label">{} ({:g})</text>)", kLabel - 6, y + 11, esc(label), sent);
         y += kRow;
      };
      for (const auto& [fap, chip] : m->find("chips")->members()) bar("chip " + fap, *chip.find("total"));
      bar("chassis", *m->find("total"));
      for (int p = 0; p <= 100; p += 20) {
         body += fmt::format(R"(<text x="{}" y="{}" class="tick">{}%</text>)", kLabel + kPlot * p / 100, y + 14, p);
      }
      s += svg(y + 22, body, "messages per chip by what became of them");
      std::vector<std::pair<std::string, std::string>> items;
      items.reserve(std::size(kReasons));
      for (const Reason& r : kReasons) items.emplace_back(r.colour, r.text);
      s += legend(items) +
           R"(<p class="note">Bars are shares of the messages sent (count in brackets); hover for the numbers.</p>)";
      s += interfaceTables(*m, {"sent", "published", "lost", "inChip"}, "losses per interface");
      return s;
   }

   // Per chip the worst verdict of each span of widenings via its time file and via the FPGA, over the time sources'
   // faults.
   std::string widenings() {
      std::string s = R"(<h2 id="widenings">Widenings against the time sources' health</h2>)";
      const Json* m = module("asicTime");
      if (!m || !m->find("chips")) return s + "<p>No ASIC time section in this scenario.</p>";
      const double bucket = num(m->find("seriesBucket"), duration_);
      static constexpr std::array<std::pair<const char*, const char*>, 5> kVerdicts{{{"wrong", kBad},
                                                                                     {"badSource", "#9c36b5"},
                                                                                     {"noTime", "#868e96"},
                                                                                     {"notReady", "#74c0fc"},
                                                                                     {"correct", kGood}}};
      std::string body;
      double y = 0;
      auto faultBand = [&](const Json* faults, const char* what) {
         body += fmt::format(R"(<rect x="{}" y="{}" width="{}" height="6" fill="#f1f3f5"/>)", kLabel, y + 1, kPlot);
         for (const Json& f : faults ? faults->items() : kNoItems) {
            const double from = f.find("from")->number(), to = num(f.find("until"), duration_);
            body += fmt::format(
                R"(<rect x="{:.2f}" y="{}" width="{:.2f}" height="6" fill="#fa5252"><title>{} fault {} from {:g} to {:g} s</title></rect>)",
                x(from), y + 1, std::max(1.5, x(to) - x(from)), what, esc(f.find("fault")->string()), from, to);
         }
      };
      auto series = [&](const std::string& label, const Json& tally) {
         const Json* ser = tally.find("series");
         const std::size_t n = ser && ser->find("correct") ? ser->find("correct")->items().size() : 0;
         for (std::size_t b = 0; b < n; ++b) {
            for (const auto& [key, colour] : kVerdicts) {
               const double k = ser->find(key)->items()[b].number();
               if (k <= 0) continue;
               body += fmt::format(
                   R"(<rect x="{:.2f}" y="{}" width="{:.2f}" height="{}" fill="{}"><title>{} {:g} to {:g} s: {:g} {}</title></rect>)",
                   x(double(b) * bucket), y + 8, std::max(1.0, x(double(b + 1) * bucket) - x(double(b) * bucket)),
                   kRow - 8, colour, esc(label), double(b) * bucket, double(b + 1) * bucket, k, key);
               break;  // the worst verdict of the span
            }
         }
         body += fmt::format(R"(<text x="{}" y="{}" class="label">{}</text>)", kLabel - 6, y + 17, esc(label));
         y += kRow + 6;
      };
      for (const auto& [fap, chip] : m->find("chips")->members()) {
         faultBand(chip.find("faults"), "time file");
         series("chip " + fap + " time file", *chip.find("viaFile"));
      }
      faultBand(m->find("fpgaFaults"), "FPGA");
      bool first = true;
      for (const auto& [fap, chip] : m->find("chips")->members()) {
         if (!first)
            body += fmt::format(R"(<rect x="{}" y="{}" width="{}" height="6" fill="#fff"/>)", kLabel, y + 1, kPlot);
         first = false;
         series("chip " + fap + " FPGA", *chip.find("viaFpga"));
      }
      body += axis(y, duration_);
      s += svg(y + kAxis, body, "widenings per chip and source over time, with the sources' faults");
      std::vector<std::pair<std::string, std::string>> items{{"#fa5252", "time source fault in force (thin band)"}};
      for (const auto& [key, colour] : kVerdicts) items.emplace_back(colour, key);
      s +=
          legend(items) +
          fmt::format(
              R"(<p class="note">Each span of {:g} s shows its worst verdict; a wrong widening is the library's error only from a sound time.</p>)",
              bucket);
      return s;
   }

   // Every interface with an `attention` note, in any module: first those not ready at the end.
   std::string attention() {
      std::string rows;
      std::size_t n = 0;
      if (modules_) {
         for (const auto& [name, m] : modules_->members()) {
            const Json* chips = m.isObject() ? m.find("chips") : nullptr;
            for (const auto& [fap, chip] : chips && chips->isObject() ? chips->members() : kNoMembers) {
               const Json* intfs = chip.find("interfaces");
               for (const auto& [intf, row] : intfs && intfs->isObject() ? intfs->members() : kNoMembers) {
                  if (const Json* note = row.find("attention")) {
                     ++n;
                     rows += fmt::format("<tr><td>{}</td><td>{}</td><td>{}</td><td>{}</td></tr>", esc(intf), esc(fap),
                                         name == "readiness" ? "not ready at the end" : esc(name), esc(note->string()));
                  }
               }
            }
         }
      }
      std::string s = R"(<h2 id="attention">Needs attention</h2>)";
      if (!n) return s + "<p>Every interface is ready and nothing unusual happened to its timestamps.</p>";
      return s + fmt::format(
                     "<p>{} "
                     "findings.</p><table><tr><th>interface</th><th>chip</th><th>what</th><th>why</th></tr>{}</table>",
                     n, rows);
   }

   // Per chip a collapsed table of its interfaces' values under the given keys.
   std::string interfaceTables(const Json& m, std::vector<std::string> keys, const std::string& what) {
      std::string s;
      for (const auto& [fap, chip] : m.find("chips")->members()) {
         std::string head, rows;
         bool first = true;
         for (const auto& [name, intf] : chip.find("interfaces")->members()) {
            std::string cells;
            for (const std::string& k : keys) {
               const Json* v = intf.find(k);
               if (!v) continue;
               auto add = [&](const std::string& h, const Json& c) {
                  if (first) head += "<th>" + esc(h) + "</th>";
                  cells += fmt::format(R"(<td class="n">{}</td>)", c.isNumber() ? fmt::format("{:g}", c.number())
                                                                   : c.isNull() ? "-"
                                                                                : esc(c.text()));
               };
               if (v->isObject()) {
                  for (const auto& [sub, c] : v->members()) add(k == "lost" ? "lost: " + sub : sub, c);
               } else {
                  add(k, *v);
               }
            }
            first = false;
            rows += "<tr><td>" + esc(name) + "</td>" + cells + "</tr>";
         }
         s += fmt::format(
             "<details><summary>chip {}: {}</summary><table><tr><th>interface</th>{}</tr>{}</table></details>",
             esc(fap), esc(what), head, rows);
      }
      return s;
   }

   const Json& doc_;
   const Json* modules_ = nullptr;
   double duration_ = 1;
};

}  // namespace

std::string htmlReport(const Json& doc) { return Page(doc).render(); }

}  // namespace Sim
