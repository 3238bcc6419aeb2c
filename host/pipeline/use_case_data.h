#pragma once

#include <cstddef>
#include <memory>

#include "host/pipeline/pipeline.h"

namespace host {

// The metadata that a use case keeps for its whole life, as the node reads it.
class UseCaseData {
public:
    // Throws PipelineError for more cameras than the platform's record holds.
    explicit UseCaseData(const UseCase& useCase);

    const PhysicalCameraConfigs* cameraConfigs() const { return configs_.get(); }
    const void* inputConfig() const { return inputs_.get(); } // PhysicalCameraInputConfig, entries
    const std::uint32_t* induceSleep() const { return sleep_.get(); } // null where not supplied

private:
    std::unique_ptr<PhysicalCameraConfigs> configs_;
    std::unique_ptr<std::byte[]> inputs_; // exactly as long as its entries
    std::unique_ptr<std::uint32_t> sleep_;
};

} // namespace host
