#include "VyrPtp/PlatformEgressTsInfoTypes.h"

#include <charconv>
#include <cstdlib>

#include "Kiv/Print.h"

namespace VyrPtp {

std::string PlatformEgressTsIntfInfo::toString() const {
   return fmt::format("PlatformEgressTsIntfInfo(intfId: {}, numBitsInAsicProvidedEgressTs: {}, swTableIndex: {})",
                      intfId, numBitsInAsicProvidedEgressTs, swTableIndex);
}

PlatformEgressTsIntfInfo PlatformEgressTsIntfInfo::fromString(std::string_view text) {
   std::string_view rest = text;
   auto bad = [&](std::string_view what) {
      return Pondo::RangeError(fmt::format("bad {} in PlatformEgressTsIntfInfo text '{}'", what, text));
   };
   auto expect = [&](std::string_view s) {
      if (rest.substr(0, s.size()) != s) throw bad(s);
      rest.remove_prefix(s.size());
   };
   auto until = [&](std::string_view s, std::string_view what) {
      auto end = rest.find(s);
      if (end == std::string_view::npos) throw bad(what);
      std::string_view v = rest.substr(0, end);
      rest.remove_prefix(end);
      return v;
   };
   auto number = [&](std::string_view v, std::string_view what) {
      std::uint32_t n = 0;
      auto [p, ec] = std::from_chars(v.data(), v.data() + v.size(), n);
      if (ec != std::errc{} || p != v.data() + v.size()) throw bad(what);
      return n;
   };

   PlatformEgressTsIntfInfo info;
   expect("PlatformEgressTsIntfInfo(intfId: ");
   std::string_view intf = until(", ", "intfId");
   if (!intf.empty()) {
      auto id = Wyx::IntfId::parse(intf);
      if (!id) throw bad("intfId");
      info.intfId = *id;
   }
   expect(", numBitsInAsicProvidedEgressTs: ");
   info.numBitsInAsicProvidedEgressTs =
       number(until(", ", "numBitsInAsicProvidedEgressTs"), "numBitsInAsicProvidedEgressTs");
   expect(", swTableIndex: (index: ");
   info.swTableIndex.index = number(until(", ", "index"), "index");
   expect(", portType: ");
   auto portType = Pondo::enumFromName<PortType>(until(")", "portType"));
   if (!portType) throw bad("portType");
   info.swTableIndex.portType = *portType;
   expect("))");
   if (!rest.empty()) throw bad("trailing text");
   return info;
}

PlatformEgressTsLogicalFapInfo::PlatformEgressTsLogicalFapInfo(LogicalFapId logicalFapId, std::uint8_t asicTimeId,
                                                               Pondo::Ptr<const Asic::ChipInfo> chipInfo)
    : logicalFapId_(logicalFapId),
      asicTimeId_(asicTimeId),
      chipInfo_(std::move(chipInfo)),
      chipInfoGif_(chipInfo_ ? chipInfo_->gif() : nullptr) {}

std::string PlatformEgressTsLogicalFapInfo::toString() const {
   return Kiv::printed("VyrPtp::PlatformEgressTsLogicalFapInfo", F::names, logicalFapId_, asicTimeId_, chipInfo_,
                       chipInfoGif_, intfInfo_);
}

Pondo::Ptr<PlatformEgressTsLogicalFapInfo> PlatformEgressTsInfo::addLogicalFapInfo(
    LogicalFapId id, std::uint8_t asicTimeId, Pondo::Ptr<const Asic::ChipInfo> chipInfo) {
   Kiv::kassert(std::getenv("SIMULATION_VMID"), "addLogicalFapInfo: This should only be called in testing!");
   return logicalFapInfoIs(id, asicTimeId, chipInfo);
}

Pondo::Ptr<PlatformEgressTsLogicalFapInfo> platformEgressTsLogicalFapInfoFactory(
    LogicalFapId logicalFapId, std::uint8_t asicTimeId, Pondo::Ptr<const Asic::ChipInfo> chipInfo) {
   return Kiv::make<PlatformEgressTsLogicalFapInfo>(logicalFapId, asicTimeId, std::move(chipInfo));
}
Pondo::Ptr<PlatformEgressTsLogicalFapInfo> PlatformEgressTsLogicalFapInfoIs(LogicalFapId logicalFapId,
                                                                            std::uint8_t asicTimeId,
                                                                            Pondo::Ptr<const Asic::ChipInfo> chipInfo) {
   return platformEgressTsLogicalFapInfoFactory(logicalFapId, asicTimeId, std::move(chipInfo));
}

}  // namespace VyrPtp
