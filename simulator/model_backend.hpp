// A simulated unit behind a device handle.
#pragma once

#include <memory>
#include <utility>

#include "simulator/device_backend.hpp"
#include "simulator/device_model.hpp"

namespace zelk::simulator {

class ModelBackend final : public DeviceBackend {
 public:
  explicit ModelBackend(std::unique_ptr<DeviceModel> model) : model_(std::move(model)) {}

  qx_status call(DeviceCall& call) override;
  qx_status read(std::span<std::uint8_t> buffer, std::size_t& received, int timeout_ms) override;

 private:
  std::unique_ptr<DeviceModel> model_;
};

}  // namespace zelk::simulator
