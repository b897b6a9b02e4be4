#include "VyrPtp/ProgrammerTypes.h"

namespace VyrPtp::Programmer {

namespace {
constexpr std::string_view kTypeField = "programmerType ";
constexpr std::string_view kIntfField = ", intfId ";
}  // namespace

std::string ProgrammerIntfId::toString() const {
   return fmt::format("programmerType {}, intfId {}", programmerType, intfId);
}

ProgrammerIntfId ProgrammerIntfId::fromString(std::string_view text) {
   // Programmer types are free text; interface names never hold the separator,
   // so the last one ends the type.
   if (text.substr(0, kTypeField.size()) != kTypeField) {
      throw Pondo::RangeError(fmt::format("bad programmerType in ProgrammerIntfId text '{}'", text));
   }
   const std::size_t sep = text.rfind(kIntfField);
   if (sep == std::string_view::npos || sep < kTypeField.size()) {
      throw Pondo::RangeError(fmt::format("bad intfId in ProgrammerIntfId text '{}'", text));
   }
   ProgrammerIntfId k;
   k.programmerType = std::string(text.substr(kTypeField.size(), sep - kTypeField.size()));
   const std::string_view intf = text.substr(sep + kIntfField.size());
   if (!intf.empty()) {  // the null interface prints as an empty name
      auto id = Wyx::IntfId::parse(intf);
      if (!id) throw Pondo::RangeError(fmt::format("bad intfId in ProgrammerIntfId text '{}'", text));
      k.intfId = *id;
   }
   return k;
}

Pondo::Ptr<PtpProgrammerInfo> ptpProgrammerInfoFactory(const Pondo::String& name) {
   return Kiv::make<PtpProgrammerInfo>(name);
}
Pondo::Ptr<PtpIntfInfo> ptpIntfInfoFactory(Wyx::IntfId intfId) { return Kiv::make<PtpIntfInfo>(intfId); }
Pondo::Ptr<PtpIntfInfoStatus> ptpIntfInfoStatusFactory() { return Kiv::make<PtpIntfInfoStatus>(); }
Pondo::Ptr<PtpPipelineInfoStatus> ptpPipelineInfoStatusFactory() { return Kiv::make<PtpPipelineInfoStatus>(); }
Pondo::Ptr<Info> infoFactory(const Pondo::String& programmerType) { return Kiv::make<Info>(programmerType); }
Pondo::Ptr<IntfInfo> intfInfoFactory(const ProgrammerIntfId& programmerIntfId) {
   return Kiv::make<IntfInfo>(programmerIntfId);
}
Pondo::Ptr<Status> statusFactory() { return Kiv::make<Status>(); }
Pondo::Ptr<PtpProgrammerInfo> PtpProgrammerInfoIs(const Pondo::String& name) { return ptpProgrammerInfoFactory(name); }
Pondo::Ptr<PtpIntfInfo> PtpIntfInfoIs(Wyx::IntfId intfId) { return ptpIntfInfoFactory(intfId); }
Pondo::Ptr<PtpIntfInfoStatus> PtpIntfInfoStatusIs() { return ptpIntfInfoStatusFactory(); }
Pondo::Ptr<PtpPipelineInfoStatus> PtpPipelineInfoStatusIs() { return ptpPipelineInfoStatusFactory(); }
Pondo::Ptr<Info> InfoIs(const Pondo::String& programmerType) { return infoFactory(programmerType); }
Pondo::Ptr<IntfInfo> IntfInfoIs(const ProgrammerIntfId& programmerIntfId) { return intfInfoFactory(programmerIntfId); }
Pondo::Ptr<Status> StatusIs() { return statusFactory(); }

}  // namespace VyrPtp::Programmer
