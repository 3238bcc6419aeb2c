#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "bench/node/pictures.h"
#include "node/capture_bokeh.h"
#include "platform/chi_metadata.h"
#include "platform/chi_node.h"

namespace bench {

constexpr char kDumpFolder[] = "/data/vendor/camera/";

// A request of two linked cameras of one shape, with its metadata in the platform as long as it
// lives.
class Scene {
public:
    Scene(const Shape& shape, std::uint8_t faces);
    ~Scene();
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    // At most as many as it was made with.
    void SetFaces(std::uint8_t faces) { metadata_.cameraMetadata[0].faceCount = faces; }

    ChiNodeProcessRequestInfo& Request() { return request_; }
    ChiNodeCreateInfo& CreateInfo() { return createInfo_; }
    // Reads a byte of each cache line that a request finds its data in: what it waits for when
    // nothing of it is in a cache.
    void ReadRequestData() const;
    PLIM_OFFSCREEN Main() const { return pictures_.Image(0); }
    PLIM_OFFSCREEN Output() const { return pictures_.Image(2); }
    // What `run` makes of an empty output image, padding included.
    std::string OutcomeOf(const std::function<void()>& run) const {
        return pictures_.OutcomeOf(2, run);
    }
    std::uint8_t* Bytes() const { return pictures_.Bytes(); } // main, aux, output

private:
    Pictures pictures_;
    ChiImageList lists_[3]; // main, aux, output
    ChiImageList* inputs_[2] = {&lists_[0], &lists_[1]};
    ChiImageList* outputs_[1] = {&lists_[2]};
    InputMetadataBokeh metadata_{};
    PhysicalCameraConfigs configs_{};
    PhysicalCameraInputConfig inputConfig_{};
    ChiNodeProcessRequestInfo request_{};
    ChiNodeCreateInfo createInfo_{};
};

// The node as the platform has it.
const ChiNodeCallbacks& Callbacks();

// A created node, driven through its callbacks.
class Node {
public:
    // An engine that does not start leaves a node that copies the main image.
    Node(std::shared_ptr<Scene> scene, bool engineStarts);
    ~Node();
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    void Process();
    // The scene's ReadRequestData and the node's own lines.
    void ReadRequestData() const;

private:
    std::shared_ptr<Scene> scene_;
};

// The node's own steps.
class Probe : public ChiNodeCaptureBokeh {
public:
    void Copy(const PLIM_OFFSCREEN& source, const PLIM_OFFSCREEN& destination);
    // The request's parameters, which the dumps take.
    const frame_params_t& Collect(Scene& scene);
};

} // namespace bench
