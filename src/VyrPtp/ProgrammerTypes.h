// The records by which hardware programmers report what they have programmed.
//
// Two families: per interface and for the pipeline, the action generation each
// programmer last processed (PtpProgrammerInfo and its owners, read by the
// readiness aggregator); and per programmer type and interface, the verdict of
// the active programmers with the interfaces' static timestamping properties
// (Status and its members, read by the programmer aggregator).
#pragma once

#include <string>
#include <string_view>

#include "Kiv/Entity.h"
#include "Ptp/HwStatus.h"
#include "VyrPtp/Export.h"
#include "Wyx/IntfId.h"

namespace VyrPtp::Programmer {

// What one programmer last processed for one interface or for the pipeline:
// counter = the action generation, flag = programmed successfully.
class VYRPTP_EXPORT PtpProgrammerInfo : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { programmerName, generation };
   };
   explicit PtpProgrammerInfo(Pondo::String programmerName) : programmerName_(std::move(programmerName)) {}

   const Pondo::String& programmerName() const { return programmerName_; }
   Pondo::Generation generation() const { return generation_; }
   void generationIs(Pondo::Generation g) { set(generation_, g, F::generation); }

  private:
   Pondo::String programmerName_;
   Pondo::Generation generation_;
};

using ProgrammerInfoCollection = Kiv::Collection<Pondo::String, PtpProgrammerInfo>;

// The programmers that handle one interface.
class VYRPTP_EXPORT PtpIntfInfo : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { intfId, programmerInfo };
   };
   explicit PtpIntfInfo(Wyx::IntfId intfId) : intfId_(intfId) {}

   Wyx::IntfId intfId() const { return intfId_; }

   const PtpProgrammerInfo* programmerInfo(const Pondo::String& k) const { return programmerInfo_.find(k); }

   PtpProgrammerInfo* programmerInfo(const Pondo::String& k) { return programmerInfo_.find(k); }
   const ProgrammerInfoCollection& programmerInfo() const { return programmerInfo_; }
   Pondo::Ptr<PtpProgrammerInfo> programmerInfoIs(const Pondo::String& k) { return programmerInfo_.is(k); }
   Pondo::Ptr<PtpProgrammerInfo> programmerInfoDel(const Pondo::String& k) { return programmerInfo_.del(k); }
   void programmerInfoDelAll() { programmerInfo_.delAll(); }

  private:
   Wyx::IntfId intfId_;
   ProgrammerInfoCollection programmerInfo_{this, F::programmerInfo, "programmerInfo"};
};

class VYRPTP_EXPORT PtpIntfInfoStatus : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { intfInfo };
   };

   const PtpIntfInfo* intfInfo(Wyx::IntfId k) const { return intfInfo_.find(k); }

   PtpIntfInfo* intfInfo(Wyx::IntfId k) { return intfInfo_.find(k); }
   const Kiv::Collection<Wyx::IntfId, PtpIntfInfo>& intfInfo() const { return intfInfo_; }
   Pondo::Ptr<PtpIntfInfo> intfInfoIs(Wyx::IntfId k) { return intfInfo_.is(k); }
   Pondo::Ptr<PtpIntfInfo> intfInfoDel(Wyx::IntfId k) { return intfInfo_.del(k); }
   void intfInfoDelAll() { intfInfo_.delAll(); }

  private:
   Kiv::Collection<Wyx::IntfId, PtpIntfInfo> intfInfo_{this, F::intfInfo, "intfInfo"};
};

// The programmers that report for the pipeline as a whole.
class VYRPTP_EXPORT PtpPipelineInfoStatus : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { programmerInfo };
   };

   const PtpProgrammerInfo* programmerInfo(const Pondo::String& k) const { return programmerInfo_.find(k); }

   PtpProgrammerInfo* programmerInfo(const Pondo::String& k) { return programmerInfo_.find(k); }
   const ProgrammerInfoCollection& programmerInfo() const { return programmerInfo_; }
   Pondo::Ptr<PtpProgrammerInfo> programmerInfoIs(const Pondo::String& k) { return programmerInfo_.is(k); }
   Pondo::Ptr<PtpProgrammerInfo> programmerInfoDel(const Pondo::String& k) { return programmerInfo_.del(k); }
   void programmerInfoDelAll() { programmerInfo_.delAll(); }

  private:
   ProgrammerInfoCollection programmerInfo_{this, F::programmerInfo, "programmerInfo"};
};

// Which programmer, which interface. Ordered by programmer type, then interface.
struct VYRPTP_EXPORT ProgrammerIntfId {
   Pondo::String programmerType;
   Wyx::IntfId intfId;

   friend auto operator<=>(const ProgrammerIntfId&, const ProgrammerIntfId&) = default;
   // "programmerType CF_UPDATE, intfId Ethernet3/1"
   std::string toString() const;
   // Parses the text form; throws Pondo::RangeError naming the bad field.
   static ProgrammerIntfId fromString(std::string_view text);
};

// What one programmer type has done overall.
class VYRPTP_EXPORT Info : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { programmerType, generation, hwProgrammed };
   };
   explicit Info(Pondo::String programmerType) : programmerType_(std::move(programmerType)) {}

   const Pondo::String& programmerType() const { return programmerType_; }
   Pondo::Generation generation() const { return generation_; }
   void generationIs(Pondo::Generation g) { set(generation_, g, F::generation); }
   bool hwProgrammed() const { return hwProgrammed_; }
   void hwProgrammedIs(bool v) { set(hwProgrammed_, v, F::hwProgrammed); }

  private:
   Pondo::String programmerType_;
   Pondo::Generation generation_;
   bool hwProgrammed_ = false;
};

// One programmer's verdict on one interface: the flag of `generation` says
// programmed and valid.
class VYRPTP_EXPORT IntfInfo : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { intf, generation };
   };
   explicit IntfInfo(ProgrammerIntfId intf) : intf_(std::move(intf)) {}

   const ProgrammerIntfId& intf() const { return intf_; }
   Pondo::Generation generation() const { return generation_; }
   void generationIs(Pondo::Generation g) { set(generation_, g, F::generation); }

  private:
   ProgrammerIntfId intf_;
   Pondo::Generation generation_;
};

class VYRPTP_EXPORT Status : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { status, intfStatus, programmerActive, staticHwIntfStatus };
   };

   const Info* status(const Pondo::String& k) const { return status_.find(k); }

   Info* status(const Pondo::String& k) { return status_.find(k); }
   const Kiv::Collection<Pondo::String, Info>& status() const { return status_; }
   Pondo::Ptr<Info> statusIs(const Pondo::String& k) { return status_.is(k); }
   Pondo::Ptr<Info> statusDel(const Pondo::String& k) { return status_.del(k); }
   void statusDelAll() { status_.delAll(); }

   const IntfInfo* intfStatus(const ProgrammerIntfId& k) const { return intfStatus_.find(k); }

   IntfInfo* intfStatus(const ProgrammerIntfId& k) { return intfStatus_.find(k); }
   const Kiv::Collection<ProgrammerIntfId, IntfInfo>& intfStatus() const { return intfStatus_; }
   Pondo::Ptr<IntfInfo> intfStatusIs(const ProgrammerIntfId& k) { return intfStatus_.is(k); }
   Pondo::Ptr<IntfInfo> intfStatusDel(const ProgrammerIntfId& k) { return intfStatus_.del(k); }
   void intfStatusDelAll() { intfStatus_.delAll(); }

   // Programmer types running on this system.
   const Kiv::Set<Pondo::String>& programmerActive() const { return programmerActive_; }
   bool programmerActive(const Pondo::String& k) const { return programmerActive_.contains(k); }
   void programmerActiveIs(const Pondo::String& k) { programmerActive_.is(k); }
   bool programmerActiveDel(const Pondo::String& k) { return programmerActive_.del(k); }
   void programmerActiveDelAll() { programmerActive_.delAll(); }

   // Static timestamping properties per interface, as the programmers know them.
   const Ptp::HwIntfStatus* staticHwIntfStatus(Wyx::IntfId k) const { return staticHwIntfStatus_.find(k); }
   Ptp::HwIntfStatus* staticHwIntfStatus(Wyx::IntfId k) { return staticHwIntfStatus_.find(k); }
   const Kiv::Collection<Wyx::IntfId, Ptp::HwIntfStatus>& staticHwIntfStatus() const { return staticHwIntfStatus_; }
   Pondo::Ptr<Ptp::HwIntfStatus> staticHwIntfStatusIs(Wyx::IntfId k, Ptp::LinuxTsOptions o) {
      return staticHwIntfStatus_.is(k, o);
   }
   Pondo::Ptr<Ptp::HwIntfStatus> staticHwIntfStatusDel(Wyx::IntfId k) { return staticHwIntfStatus_.del(k); }
   void staticHwIntfStatusDelAll() { staticHwIntfStatus_.delAll(); }

  private:
   Kiv::Collection<Pondo::String, Info> status_{this, F::status, "status"};
   Kiv::Collection<ProgrammerIntfId, IntfInfo> intfStatus_{this, F::intfStatus, "intfStatus"};
   Kiv::Set<Pondo::String> programmerActive_{this, F::programmerActive, "programmerActive"};
   Kiv::Collection<Wyx::IntfId, Ptp::HwIntfStatus> staticHwIntfStatus_{this, F::staticHwIntfStatus,
                                                                       "staticHwIntfStatus"};
};

VYRPTP_EXPORT Pondo::Ptr<PtpProgrammerInfo> ptpProgrammerInfoFactory(const Pondo::String& name);
VYRPTP_EXPORT Pondo::Ptr<PtpIntfInfo> ptpIntfInfoFactory(Wyx::IntfId intfId);
VYRPTP_EXPORT Pondo::Ptr<PtpIntfInfoStatus> ptpIntfInfoStatusFactory();
VYRPTP_EXPORT Pondo::Ptr<PtpPipelineInfoStatus> ptpPipelineInfoStatusFactory();
VYRPTP_EXPORT Pondo::Ptr<Info> infoFactory(const Pondo::String& programmerType);
VYRPTP_EXPORT Pondo::Ptr<IntfInfo> intfInfoFactory(const ProgrammerIntfId& programmerIntfId);
VYRPTP_EXPORT Pondo::Ptr<Status> statusFactory();
VYRPTP_EXPORT Pondo::Ptr<PtpProgrammerInfo> PtpProgrammerInfoIs(const Pondo::String& name);
VYRPTP_EXPORT Pondo::Ptr<PtpIntfInfo> PtpIntfInfoIs(Wyx::IntfId intfId);
VYRPTP_EXPORT Pondo::Ptr<PtpIntfInfoStatus> PtpIntfInfoStatusIs();
VYRPTP_EXPORT Pondo::Ptr<PtpPipelineInfoStatus> PtpPipelineInfoStatusIs();
VYRPTP_EXPORT Pondo::Ptr<Info> InfoIs(const Pondo::String& programmerType);
VYRPTP_EXPORT Pondo::Ptr<IntfInfo> IntfInfoIs(const ProgrammerIntfId& programmerIntfId);
VYRPTP_EXPORT Pondo::Ptr<Status> StatusIs();

}  // namespace VyrPtp::Programmer

template <>
struct std::hash<VyrPtp::Programmer::ProgrammerIntfId> {
   std::size_t operator()(const VyrPtp::Programmer::ProgrammerIntfId& k) const noexcept {
      return Pondo::hashMix(std::hash<std::string>{}(k.programmerType), std::hash<Wyx::IntfId>{}(k.intfId));
   }
};
