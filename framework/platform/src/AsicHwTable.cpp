#include "Asic/HwTable.h"

namespace Asic {

void Device::tableRowCommit(std::string_view table, std::uint32_t index, std::span<const std::byte>) {
   Kiv::fatal(fmt::format("this device has no table {} (row {} written)", table, index),
              std::source_location::current());
}

void HwTableBase::doInit(std::uint32_t unitId, Pondo::Ptr<Statebase::EntityManager> entityManager,
                         Pondo::Ptr<const GenericIf> chipInfoGif) {
   Kiv::kassert(chipInfoGif, "table {} of unit {} initialised without a chip", name_, unitId);
   unit_ = unitId;
   em_ = std::move(entityManager);
   gif_ = std::move(chipInfoGif);
   device_ = gif_->chipInfo().device();
   Kiv::kassert(device_, "chip {} has no device", gif_->chipInfo().name());
}

void HwTableBase::doPublishHwTableMountInfo() {
   Kiv::kassert(device_, "table {} mounted before doInit", name_);
   if (em_) {
      em_->mountIs(fmt::format("hardware/{}/unit{}", name_, unit_),
                   fmt::format("{} table of {}", name_, gif_->chipInfo().name()));
   }
}

void HwTableBase::commitRow(std::uint32_t index, std::span<const std::byte> row) {
   Kiv::kassert(device_, "table {} written before doInit", name_);
   device_->tableRowCommit(name_, index, row);
}

}  // namespace Asic
