// Hardware tables of fixed-size rows written by index (the chips' PTP
// control tables). A table is bound to one chip with doInit, mounted in the
// state database with doPublishHwTableMountInfo, and written row by row with
// entryCommit; the chip's device keeps what was committed.
//
//   struct FwdCtrlEntry { std::uint8_t forward = 0; };
//   class FwdCtrlTable : public Asic::HwTable<FwdCtrlEntry> {
//     public:
//      FwdCtrlTable() : HwTable("fwdCtrl") {}
//   };
//   auto t = Kiv::make<FwdCtrlTable>();
//   t->doInit(unit, em, chipInfo->gif());
//   t->doPublishHwTableMountInfo();
//   t->entryCommit(0, FwdCtrlEntry{1});
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <type_traits>

#include "Asic/ChipInfo.h"
#include "Statebase/EntityManager.h"

namespace Asic {

class HwTableBase : public Kiv::Entity {
  public:
   // The table's name, as the device and the mount path know it.
   const std::string& tableName() const { return name_; }
   std::uint32_t unit() const { return unit_; }
   bool initialized() const { return device_ != nullptr; }
   const GenericIf* chipInfoGif() const { return gif_.get(); }

   // Binds the table to the chip behind `chipInfoGif` as hardware unit `unitId`.
   void doInit(std::uint32_t unitId, Pondo::Ptr<Statebase::EntityManager> entityManager,
               Pondo::Ptr<const GenericIf> chipInfoGif);
   // Mounts the table's status in the state database ("hardware/<table>/unit<N>").
   void doPublishHwTableMountInfo();

  protected:
   explicit HwTableBase(std::string name) : name_(std::move(name)) {}
   // Writes one row to the chip.
   void commitRow(std::uint32_t index, std::span<const std::byte> row);

  private:
   std::string name_;
   std::uint32_t unit_ = 0;
   Pondo::Ptr<Statebase::EntityManager> em_;
   Pondo::Ptr<const GenericIf> gif_;
   Device* device_ = nullptr;
};

// A table whose rows are `EntryT`, a plain record of the row's fields.
template <class EntryT>
class HwTable : public HwTableBase {
   static_assert(std::is_trivially_copyable_v<EntryT>, "a table row is a plain record");

  public:
   using Entry = EntryT;

   void entryCommit(std::uint32_t index, const Entry& entry) { commitRow(index, std::as_bytes(std::span(&entry, 1))); }

  protected:
   using HwTableBase::HwTableBase;
};

}  // namespace Asic
